#include "client/watch_relay.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace quillon {
namespace {

constexpr std::size_t kMostListeners = 16;

struct Name {
    sockaddr_un address{};
    socklen_t size;

    explicit Name(const std::string &text) {
        address.sun_family = AF_UNIX;
        const std::size_t length = std::min(text.size(), sizeof address.sun_path - 1);
        memcpy(address.sun_path + 1, text.data(), length);
        size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + length);
    }
    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&address); }
};

// A user's own, so that two users of one machine are not in each other's way.
Name nameOf(const std::string &address) {
    return Name("quillon-watch/" + std::to_string(getuid()) + "/" + address);
}

// A connection of whole messages, because only a connection tells which user is at the other end.
int open() {
    return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
}

bool isOwn(int fd) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == getuid();
}

}  // namespace

std::string relayText(const DatagramSocket::Received &datagram) {
    return datagram.sender + " " + std::to_string(datagram.senderPort) + "\n" + datagram.text;
}

std::optional<DatagramSocket::Received> parseRelayText(const std::string &text) {
    const std::size_t end = text.find('\n');
    char address[INET_ADDRSTRLEN] = "";
    unsigned port = 0;
    int used = 0;
    in_addr parsed{};
    if (end == std::string::npos ||
        sscanf(text.substr(0, end).c_str(), "%15[0-9.] %5u%n", address, &port, &used) != 2 ||
        static_cast<std::size_t>(used) != end || port > 0xFFFF ||
        inet_pton(AF_INET, address, &parsed) != 1)
        return std::nullopt;
    return DatagramSocket::Received{text.substr(end + 1), address,
                                    static_cast<std::uint16_t>(port)};
}

WatchRelay::WatchRelay(const std::string &address) : fd_(open()) {
    const Name name = nameOf(address);
    if (fd_ >= 0 && bind(fd_, name.get(), name.size) == 0 && listen(fd_, kMostListeners) == 0)
        return;
    const int error = errno;
    if (fd_ >= 0) close(fd_);
    throw std::system_error(error, std::generic_category(), "cannot pass messages on");
}

WatchRelay::~WatchRelay() {
    for (const int listener : listeners_) close(listener);
    close(fd_);
}

void WatchRelay::admit() {
    for (std::size_t n = 0; n < kMostListeners; ++n) {
        const int listener = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (listener < 0) return;
        if (!isOwn(listener)) {
            close(listener);
            continue;
        }
        if (listeners_.size() == kMostListeners) {
            close(listeners_.front());
            listeners_.pop_front();
        }
        listeners_.push_back(listener);
    }
}

void WatchRelay::pass(const DatagramSocket::Received &datagram) {
    const std::string text = relayText(datagram);
    // A listener that does not read misses the datagram; one that has ended is removed.
    const auto gone = [&](int listener) {
        if (send(listener, text.data(), text.size(), MSG_NOSIGNAL) >= 0 || errno == EAGAIN)
            return false;
        close(listener);
        return true;
    };
    listeners_.erase(std::remove_if(listeners_.begin(), listeners_.end(), gone), listeners_.end());
}

WatchListener::WatchListener(const std::string &address) : fd_(open()) {
    const Name name = nameOf(address);
    connected_ = fd_ >= 0 && connect(fd_, name.get(), name.size) == 0 && isOwn(fd_);
}

WatchListener::~WatchListener() {
    if (fd_ >= 0) close(fd_);
}

std::optional<DatagramSocket::Received> WatchListener::receive(std::chrono::milliseconds timeout) {
    if (!connected_) return std::nullopt;
    pollfd readable{fd_, POLLIN, 0};
    if (poll(&readable, 1, static_cast<int>(timeout.count())) <= 0) return std::nullopt;
    char text[2048 + 32];
    const ssize_t n = recv(fd_, text, sizeof text, 0);
    connected_ = n > 0 || (n < 0 && errno == EAGAIN);
    return n > 0 ? parseRelayText(std::string(text, static_cast<std::size_t>(n))) : std::nullopt;
}

}  // namespace quillon
