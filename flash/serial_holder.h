// Serial devices: the one of a port in the settings, and the process that has it open.
#pragma once

#include <string>

namespace flash {

/// The device of a com_port in the settings, "COM0" to "COM3"; empty for any other text.
std::string deviceOf(const std::string &port);

/// Another process that has the device open, as "process 123 (quillon)"; empty when there is none.
/// Throws std::runtime_error when this user may not look into all processes.
std::string holderOf(const std::string &device);

}  // namespace flash
