// A way from the PC to a program on the board's network, which nothing else leads into.
#pragma once

#include <cstdint>

namespace sim {

/// A listening socket at 127.0.0.1 of the machine on which this is called; port 0: any that is
/// free. A child process inherits it when that is asked for. Throws std::runtime_error when the
/// system refuses.
int listenOnLoopback(std::uint16_t port);

}  // namespace sim
