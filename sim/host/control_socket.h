// Speaking to a running board from outside: its control socket, an abstract one in the PC's network
// namespace, so that nothing lies about in the file system.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace sim {

/// Listens for requests to the board of this user and name. Throws std::runtime_error when one of
/// that name runs already. Call it before runOnPrivateHost; the descriptor is served inside.
int listenForControl(const std::string &name);

/// Takes one request of the same user, a line of text, and sends what answer makes of it. Others
/// are turned away at once.
void serveControl(int listening, const std::function<std::string(const std::string &)> &answer);

/// Sends a request to a running board of this user; its answer. Throws std::runtime_error when none
/// runs, or another user has taken its name: of what that says nothing is believed or printed.
std::string askBoard(const std::string &name, const std::string &request);

/// Runs a command on the private host of a running board; its exit status, 1 with a line on
/// standard error when the kernel refuses. Throws std::runtime_error when none runs.
int enterBoard(const std::string &name, const std::vector<std::string> &command);

}  // namespace sim
