#include "client/ipv4.h"

#include <arpa/inet.h>

#include <stdexcept>

namespace quillon {

sockaddr_in ipv4(const std::string &address, std::uint16_t port) {
    sockaddr_in in{};
    in.sin_family = AF_INET;
    in.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &in.sin_addr) != 1)
        throw std::runtime_error("\"" + address + "\" is not an IPv4 address");
    return in;
}

}  // namespace quillon
