// Text to key strokes and back for a computer with the US layout: ASCII alone, and without a
// library. The room layouts/ has all layouts, for programs that can have libxkbcommon.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "protocol/keys.h"

namespace quillon {

/// The stroke that types an ASCII character (line feed is Enter), with Caps Lock off; none for
/// one that the layout lacks.
std::optional<Stroke> strokeOf(char character);

/// The character that a key types, '\n' for Enter; '\0' for one that types none.
char characterOf(std::uint8_t usage, bool shift, bool capsLock);

/// Appends the keyboard's states that type a text: press and release for every character; where
/// Shift changes, it does so in a state of its own before the key. Ends with all keys up. False,
/// with error naming character and place, when the layout lacks one; states is then not to be used.
bool typeStrokes(const std::string &text, std::vector<Stroke> &states, std::string &error);

}  // namespace quillon
