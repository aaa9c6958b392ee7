// Speaking to a running board from outside: its control socket, an abstract one in the PC's network
// namespace, so that nothing lies about in the file system.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace sim {

/// Listens for requests to the board of this user and name. Throws std::runtime_error when one of
/// that name runs already. Call it before runOnPrivateHost; the descriptor is served inside.
int listenForControl(const std::string &name);

/// Takes one request of the same user, a line of text, and sends what answer makes of it. Others
/// are turned away at once.
void serveControl(int listening, const std::function<std::string(const std::string &)> &answer);

/// Sends a request to a running board of this user; its answer, and in answerer the process that
/// gave it. Throws std::runtime_error when none runs, or another user has taken its name: of what
/// that one says nothing is believed or printed.
std::string askBoard(const std::string &name, const std::string &request,
                     pid_t *answerer = nullptr);

}  // namespace sim
