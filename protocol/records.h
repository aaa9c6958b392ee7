// The records that consoles send to an endpoint's data server, one datagram each.
//
//   keyboard   11  57 AB 01 modifiers 00 usage 00 00 00 00 00
//   absolute   10  57 AB 04 01 buttons x-low x-high y-low y-high wheel   (picture pixels)
//   relative    7  57 AB 02 buttons dx dy wheel
#pragma once

#include <array>
#include <cstdint>

#include "protocol/keys.h"

namespace quillon {

using KeyboardRecord = std::array<std::uint8_t, 11>;
using AbsoluteRecord = std::array<std::uint8_t, 10>;
using RelativeRecord = std::array<std::uint8_t, 7>;

/// Bits of the buttons byte. The endpoint passes one button at a time.
enum Button : std::uint8_t { kNoButton = 0, kLeft = 1, kRight = 2, kMiddle = 4 };

/// The whole state of the keyboard: modifiers and at most one key down.
KeyboardRecord keyboardRecord(const Stroke &down);

/// wheel: positive is away from the user.
AbsoluteRecord absoluteRecord(std::uint16_t x, std::uint16_t y, Button button, std::int8_t wheel);
RelativeRecord relativeRecord(std::int8_t dx, std::int8_t dy, Button button, std::int8_t wheel);

}  // namespace quillon
