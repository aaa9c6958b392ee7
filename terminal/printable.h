// All foreign text passes here on its way to a terminal.
#pragma once

#include <string>

namespace quillon {

/// The text with '?' for every byte that a terminal might take as part of a command: control
/// characters, and every byte beyond ASCII, because a terminal that reads Latin-1 takes some of
/// them for control characters even inside UTF-8. Text from the network, a file or another user is
/// printed this way.
std::string printable(std::string text);

/// The same, but letters and signs beyond ASCII stay where the locale says that the terminal reads
/// UTF-8 (setlocale() first), without those that only change how others are shown.
std::string printableText(const std::string &utf8);

/// The same as printable() for a text of several lines; line feeds stay.
std::string printableLines(std::string text);

}  // namespace quillon
