// The socket for viewers of a virtual computer's picture, in a folder that only its user can enter.
#pragma once

#include <string>

namespace sim {

/// Listens for the board of this name; path gets where. The name has to be this board's own by now
/// (listenForControl), because what a former board left there is replaced. Throws
/// std::runtime_error when that is not possible.
int listenForViewers(const std::string &name, std::string &path);

}  // namespace sim
