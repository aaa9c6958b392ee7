// Asking a HID chip once, without the daemon.
#pragma once

#include <optional>
#include <string>

namespace service {

struct ProbedChip {
    int speed;      ///< at which it answered, bits per second
    bool computer;  ///< of a CH9329: a computer that is on is at its USB plug
};

/// Asks a CH9329 for its information, or a CH9350 for its status, at 115200 and then at 9600 bits
/// per second; nothing is changed in the chip. None when no whole answer came within a second each.
/// Throws std::runtime_error when the device cannot be opened.
std::optional<ProbedChip> probeChip(const std::string &device, bool isCh9329);

}  // namespace service
