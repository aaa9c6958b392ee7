#include "watch_relay.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <system_error>

namespace console {
namespace {

constexpr char kHear[] = "hear", kAdmitted[] = "admitted";
constexpr std::size_t kMostListeners = 16;

struct Name {
    sockaddr_un address{};
    socklen_t size = sizeof(sa_family_t);

    // An empty text lets the system choose a name.
    explicit Name(const std::string &text) {
        address.sun_family = AF_UNIX;
        if (text.empty()) return;
        memcpy(address.sun_path + 1, text.data(),
               std::min(text.size(), sizeof address.sun_path - 1));
        size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
    }
    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&address); }
};

Name nameOf(const std::string &address) {
    return Name("quillon-watch-" + address);
}

int open(const Name &name) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && bind(fd, name.get(), name.size) == 0) return fd;
    const int error = errno;
    if (fd >= 0) close(fd);
    throw std::system_error(error, std::generic_category(), "cannot pass messages on");
}

}  // namespace

WatchRelay::WatchRelay(const std::string &address) : fd_(open(nameOf(address))) {}

WatchRelay::~WatchRelay() {
    close(fd_);
}

void WatchRelay::admit() {
    char text[16] = "";
    Listener who{{}, sizeof who.name};
    auto *name = reinterpret_cast<sockaddr *>(&who.name);
    const ssize_t n = recvfrom(fd_, text, sizeof text - 1, MSG_DONTWAIT, name, &who.size);
    if (n < 0 || strcmp(text, kHear) != 0 || who.size <= sizeof(sa_family_t)) return;
    if (sendto(fd_, kAdmitted, strlen(kAdmitted), MSG_DONTWAIT, name, who.size) < 0) return;
    if (listeners_.size() == kMostListeners) listeners_.pop_front();
    listeners_.push_back(who);
}

void WatchRelay::pass(const std::string &text) {
    const auto gone = [&](const Listener &who) {
        return sendto(fd_, text.data(), text.size(), MSG_DONTWAIT,
                      reinterpret_cast<const sockaddr *>(&who.name), who.size) < 0 &&
               errno != EAGAIN;
    };
    listeners_.erase(std::remove_if(listeners_.begin(), listeners_.end(), gone), listeners_.end());
}

WatchListener::WatchListener(const std::string &address) : fd_(open(Name(""))) {
    const Name watch = nameOf(address);
    if (connect(fd_, watch.get(), watch.size) != 0) return;
    if (send(fd_, kHear, strlen(kHear), 0) < 0) return;
    connected_ = receive(std::chrono::seconds(1)) == std::string(kAdmitted);
}

WatchListener::~WatchListener() {
    close(fd_);
}

std::optional<std::string> WatchListener::receive(std::chrono::milliseconds timeout) {
    pollfd readable{fd_, POLLIN, 0};
    if (poll(&readable, 1, static_cast<int>(timeout.count())) <= 0) return std::nullopt;
    char text[2048];
    const ssize_t n = recv(fd_, text, sizeof text, MSG_DONTWAIT);
    if (n < 0) return std::nullopt;
    return std::string(text, static_cast<std::size_t>(n));
}

}  // namespace console
