// Who has which UDP port on this machine, as the kernel's table tells.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

namespace service {

/// A bound UDP socket.
struct UdpSocket {
    std::uint16_t port;
    unsigned long waiting;  ///< bytes in its receive queue
    unsigned user;          ///< its owner's id
    unsigned long inode;    ///< differs from that of every other socket
};

/// The sockets at a port, on the calling process's network. Throws std::runtime_error without a
/// table.
std::vector<UdpSocket> udpSocketsAt(std::uint16_t port);

}  // namespace service
