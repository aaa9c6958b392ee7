// Who has a serial device open.
#pragma once

#include <string>

namespace flash {

/// "process 123 (quillon)" of another process that has the device open, empty when none has.
/// Throws std::runtime_error when this user may not look into all processes.
std::string holderOf(const std::string &device);

}  // namespace flash
