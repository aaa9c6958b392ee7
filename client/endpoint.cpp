#include <quillon/endpoint.h>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "client/ipv4.h"

namespace quillon {
namespace {

[[noreturn]] void fail(const std::string &what) {
    throw std::runtime_error(what + ": " + strerror(errno));
}

int openFrom(const std::string &from) {
    const sockaddr_in local = from.empty() ? sockaddr_in{} : ipv4(from, 0);
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) fail("cannot open a socket");
    if (from.empty()) return fd;
    if (bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) == 0) return fd;
    const int error = errno;
    close(fd);
    errno = error;
    fail("cannot send from " + from);
}

}  // namespace

Endpoint::Endpoint(const std::string &address, std::uint16_t port, const std::string &from)
    : name_(address + ":" + std::to_string(port)) {
    const sockaddr_in peer = ipv4(address, port);
    fd_ = openFrom(from);
    // Connected, so that "nobody listens there" comes back as an error of a later call.
    if (connect(fd_, reinterpret_cast<const sockaddr *>(&peer), sizeof peer) != 0) {
        const int error = errno;
        close(fd_);
        errno = error;
        fail("cannot reach " + name_);
    }
}

Endpoint::~Endpoint() {
    close(fd_);
}

std::string Endpoint::ownAddress() const {
    sockaddr_in own{};
    socklen_t size = sizeof own;
    char text[INET_ADDRSTRLEN] = "";
    getsockname(fd_, reinterpret_cast<sockaddr *>(&own), &size);
    inet_ntop(AF_INET, &own.sin_addr, text, sizeof text);
    return text;
}

void Endpoint::send(const void *bytes, std::size_t size) {
    while (::send(fd_, bytes, size, 0) < 0) {
        if (errno == EINTR) continue;
        if (errno == ECONNREFUSED) throw std::runtime_error("nobody listens at " + name_);
        fail("cannot send to " + name_);
    }
}

std::optional<std::string> Endpoint::ask(const std::string &text,
                                         std::chrono::milliseconds timeout) {
    using Clock = std::chrono::steady_clock;
    char late[1];
    while (recv(fd_, late, sizeof late, MSG_DONTWAIT) >= 0) continue;  // answers to earlier texts
    send(text.data(), text.size());
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) return std::nullopt;
        pollfd readable{fd_, POLLIN, 0};
        if (poll(&readable, 1, static_cast<int>(left.count())) <= 0) continue;
        if (auto answer = receive()) return answer;
    }
}

std::optional<std::string> Endpoint::receive() {
    char reply[1500];
    const ssize_t n = recv(fd_, reply, sizeof reply, MSG_DONTWAIT);
    if (n >= 0) return std::string(reply, static_cast<std::size_t>(n));
    if (errno == ECONNREFUSED) throw std::runtime_error("nobody listens at " + name_);
    return std::nullopt;
}

}  // namespace quillon
