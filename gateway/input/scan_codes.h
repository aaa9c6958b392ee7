// The scan codes of QEMU's extended key events: those of a PC's keyboard, set 1, with 0x80 added
// where the keyboard sends E0 before. A code is a position, whatever the viewer's layout.
#pragma once

#include <cstdint>

namespace gateway {

/// The HID usage for a code; 0 for none.
std::uint8_t usageOfScanCode(std::uint32_t code);

}  // namespace gateway
