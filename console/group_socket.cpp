#include "group_socket.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace console {
namespace {

in_addr parse(const std::string &address) {
    in_addr in{};
    if (!address.empty()) inet_pton(AF_INET, address.c_str(), &in);
    return in;
}

}  // namespace

GroupSocket::GroupSocket(const std::string &group, std::uint16_t port, const std::string &from)
    : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const int on = 1;
    const in_addr own = parse(from);
    ip_mreq membership{parse(group), own};
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    // Without a port it is answers that are expected, at the own address.
    if (port == 0) local.sin_addr = own;
    const bool ok =
        fd_ >= 0 && setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
        bind(fd_, reinterpret_cast<const sockaddr *>(&local), sizeof local) == 0 &&
        setsockopt(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) == 0 &&
        (from.empty() || setsockopt(fd_, IPPROTO_IP, IP_MULTICAST_IF, &own, sizeof own) == 0);
    if (ok) return;
    const std::string why = strerror(errno);
    if (fd_ >= 0) close(fd_);
    throw std::runtime_error("cannot join group " + group + ": " + why);
}

GroupSocket::~GroupSocket() {
    close(fd_);
}

void GroupSocket::send(const std::string &address, std::uint16_t port, const std::string &text) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr = parse(address);
    if (sendto(fd_, text.data(), text.size(), 0, reinterpret_cast<const sockaddr *>(&to),
               sizeof to) < 0)
        throw std::runtime_error("cannot send to " + address + ": " + strerror(errno));
}

std::optional<GroupSocket::Received> GroupSocket::receive(std::chrono::milliseconds timeout) {
    pollfd readable{fd_, POLLIN, 0};
    if (poll(&readable, 1, static_cast<int>(timeout.count())) <= 0) return std::nullopt;
    char text[2048], sender[INET_ADDRSTRLEN] = "";
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t n =
        recvfrom(fd_, text, sizeof text, 0, reinterpret_cast<sockaddr *>(&from), &size);
    if (n < 0) return std::nullopt;
    inet_ntop(AF_INET, &from.sin_addr, sender, sizeof sender);
    return Received{std::string(text, static_cast<std::size_t>(n)), sender};
}

}  // namespace console
