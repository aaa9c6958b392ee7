// Who has a serial device open.
#pragma once

#include <string>

namespace flash {

/// "process 123 (quillon)" of another process that has the device open; empty when none has, as
/// far as this user may look.
std::string holderOf(const std::string &device);

}  // namespace flash
