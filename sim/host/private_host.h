// A private machine inside this one: its own namespaces, and a root folder assembled from the PC's.
#pragma once

#include <functional>

namespace sim {

/// Runs body in private mount, PID, IPC and network namespaces (and a user namespace when the
/// caller may not make those). Returns what body returned, or 128 plus the signal that ended it.
/// The private host has the PC's folders, a /dev without hardware, a loopback interface, and empty
/// /version and /data; it ends with body and leaves nothing on the PC. SIGINT, SIGTERM and SIGHUP
/// are passed on to body's process; afterwards the terminal is as it was. Call it before any thread
/// is started. When the kernel refuses, prints one line that says what is missing, and returns 1.
int runOnPrivateHost(const std::function<int()> &body);

/// Puts the private host's own tools (a `reboot` that does nothing) first in PATH, and the system's
/// folders, which a user's PATH may lack, last. runOnPrivateHost does so for body.
void putToolsInPath();

}  // namespace sim
