// A folder of devices for a daemon that runs elsewhere on this machine, and not on a private host.
#pragma once

#include <string>

namespace sim {

/// Makes the folder unless it exists. Throws std::runtime_error when it cannot, or when it is one
/// of the system's own, where a file of ours would take the place of a device.
void makeDeviceFolder(const std::string &folder);

/// Gives what is open to the group of the folder, to read and write. False when the system refuses.
bool shareWithGroup(int fd, const std::string &folder);

/// Makes a link in the folder in place of a former one. Throws std::runtime_error when it cannot.
void linkDevice(const std::string &folder, const std::string &name, const std::string &target);

}  // namespace sim
