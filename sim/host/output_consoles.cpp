#include "sim/host/output_consoles.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "protocol/ports.h"
#include "protocol/requests.h"

namespace sim {
namespace {

int listenAt(const std::string &address) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;  // a person may run a console at this address too
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(quillon::kOutputPort);
    inet_pton(AF_INET, address.c_str(), &local.sin_addr);
    if (bind(fd, reinterpret_cast<sockaddr *>(&local), sizeof local) != 0)
        throw std::runtime_error("cannot listen at " + address + ": " + strerror(errno));
    return fd;
}

void answerHeartbeat(int fd, bool silent) {
    sockaddr_in from{};
    socklen_t size = sizeof from;
    char text[64];
    const ssize_t n =
        recvfrom(fd, text, sizeof text, MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&from), &size);
    if (silent || n <= 0 || std::string(text, static_cast<std::size_t>(n)) != quillon::kHeartbeat)
        return;
    constexpr std::size_t kAnswerSize = sizeof quillon::kHeartbeatAnswer - 1;
    sendto(fd, quillon::kHeartbeatAnswer, kAnswerSize, 0, reinterpret_cast<sockaddr *>(&from),
           size);
}

}  // namespace

OutputConsoles::OutputConsoles(const std::vector<std::string> &addresses)
    : addresses_(addresses), wake_(eventfd(0, EFD_CLOEXEC)) {
    for (const std::string &address : addresses_) sockets_.push_back(listenAt(address));
    thread_ = std::thread([this] { serve(); });
}

OutputConsoles::~OutputConsoles() {
    eventfd_write(wake_, 1);
    thread_.join();
    for (const int fd : sockets_) close(fd);
    close(wake_);
}

bool OutputConsoles::setAnswering(const std::string &address, bool on) {
    if (std::find(addresses_.begin(), addresses_.end(), address) == addresses_.end()) return false;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (on)
        silent_.erase(address);
    else
        silent_.insert(address);
    return true;
}

void OutputConsoles::serve() {
    for (;;) {
        std::vector<pollfd> fds{{wake_, POLLIN, 0}};
        for (const int fd : sockets_) fds.push_back({fd, POLLIN, 0});
        poll(fds.data(), fds.size(), -1);
        if (fds[0].revents != 0) return;
        const std::lock_guard<std::mutex> lock(mutex_);
        for (std::size_t i = 0; i < sockets_.size(); ++i)
            if (fds[i + 1].revents != 0)
                answerHeartbeat(sockets_[i], silent_.count(addresses_[i]) != 0);
    }
}

}  // namespace sim
