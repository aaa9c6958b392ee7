// A private machine inside this one: namespaces of its own, and a root assembled from the PC's.
#pragma once

#include <functional>

namespace sim {

/// Runs body in private mount, PID, IPC and network namespaces (and a user
/// namespace when the caller may not make those) and returns what it returned, or 128 and the
/// signal that ended it. The private host sees the PC's folders, a /dev without hardware, a
/// loopback interface, and empty /version and /data; it goes with body, and nothing of it is left
/// on the PC. SIGINT, SIGTERM and SIGHUP are passed on to body's process; the terminal is put back
/// afterwards as it was. Call it before any thread is started. When the kernel refuses, prints
/// one line that says what is missing, and returns 1.
int runOnPrivateHost(const std::function<int()> &body);

/// Puts the private host's own tools (a `reboot` that does nothing) first in PATH, and last those
/// of the administrator, which a user's PATH lacks. runOnPrivateHost does so for body.
void putToolsInPath();

}  // namespace sim
