// The control socket of a running board, for requests from outside. It is an abstract one in the
// PC's network namespace, so it leaves nothing in the file system.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace sim {

/// Listens for requests to the board of this user and name. Throws std::runtime_error when one of
/// that name runs already. Call it before runOnPrivateHost; the descriptor is served inside.
int listenForControl(const std::string &name);

/// Takes one request of the same user, up to 4096 bytes, and sends what answer returns for it.
/// Waits at most 1 s for the request. A connection of another user is closed at once.
void serveControl(int listening, const std::function<std::string(const std::string &)> &answer);

/// Sends a request to a running board of this user; returns its answer, and in answerer the process
/// that gave it. Waits up to 5 s for a busy board and 10 s for the answer. Throws
/// std::runtime_error without an answer, or when another user has taken the name; nothing from that
/// user is printed.
std::string askBoard(const std::string &name, const std::string &request,
                     pid_t *answerer = nullptr);

}  // namespace sim
