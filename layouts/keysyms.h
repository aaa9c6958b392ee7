// Keysyms, by which X11 and the viewers of remote screens name keys and characters.
#pragma once

#include <cstdint>

namespace quillon {

/// The HID usage of a key that a keysym names, which may be a modifier key's; 0 for a keysym that
/// stands for a character, or for no key of a PC's keyboard. Digits and signs of the keypad are
/// keys too.
std::uint8_t usageOfKeysym(std::uint32_t keysym);

/// The character of a keysym; 0 for none.
char32_t characterOf(std::uint32_t keysym);

/// The HID usage for one of Linux' key codes (input-event-codes.h); 0 for none.
std::uint8_t usageOfEventCode(unsigned code);

}  // namespace quillon
