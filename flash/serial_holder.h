// Finds the process that has a serial device open.
#pragma once

#include <string>

namespace flash {

/// Another process that has the device open, as "process 123 (quillon)"; empty when there is none.
/// Throws std::runtime_error when this user may not look into all processes.
std::string holderOf(const std::string &device);

}  // namespace flash
