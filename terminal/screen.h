// Text on the screen of a Terminal. What is put there passes printable(), because much of it was
// written by others.
#pragma once

#include <curses.h>

#include <string>

namespace quillon {

enum Colour : short { kNoColour = 0, kGreen = 1, kRed = 2, kYellow = 3 };

/// Makes the colours known; a Terminal does so.
void startColours();

/// One line of text from a cell on, cut at the right edge. Nothing for a cell outside of the
/// screen.
void put(int row, int column, const std::string &text, attr_t attributes = A_NORMAL,
         Colour colour = kNoColour);

/// The same for a text that was typed: printableText().
void putText(int row, int column, const std::string &utf8);

/// A line of text that is reversed over the whole width.
void bar(int row, std::string text, Colour colour = kNoColour);

}  // namespace quillon
