// IPv4 addresses for socket calls.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>

namespace quillon {

/// The socket address for a dotted address and a port. Throws std::runtime_error for a text that is
/// no address.
sockaddr_in ipv4(const std::string &address, std::uint16_t port);

}  // namespace quillon
