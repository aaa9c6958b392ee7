#include "console_ears.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace test {
namespace {

using namespace std::chrono_literals;

constexpr char kEnd[] = "the end of a test's step";

// One socket for all, so that the order of the datagrams is kept.
int listenEverywhere() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(2333);
    ip_mreq group{};  // multicast is routed on eth0
    inet_pton(AF_INET, "225.168.1.168", &group.imr_multiaddr);
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        setsockopt(fd, IPPROTO_IP, IP_PKTINFO, &on, sizeof on) != 0 ||
        bind(fd, reinterpret_cast<sockaddr *>(&local), sizeof local) != 0 ||
        setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group) != 0)
        throw std::system_error(errno, std::generic_category(), "the consoles' ears");
    return fd;
}

std::string destination(msghdr &message) {
    for (cmsghdr *part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != IPPROTO_IP || part->cmsg_type != IP_PKTINFO) continue;
        const auto *info = reinterpret_cast<const in_pktinfo *>(CMSG_DATA(part));
        const std::string address = inet_ntoa(info->ipi_addr);
        return address == "225.168.1.168" ? "all" : address;
    }
    return "nowhere";
}

}  // namespace

ConsoleEars::ConsoleEars() : socket_(listenEverywhere()), wake_(eventfd(0, EFD_CLOEXEC)) {
    thread_ = std::thread([this] { listen(); });
}

ConsoleEars::~ConsoleEars() {
    eventfd_write(wake_, 1);
    thread_.join();
    close(wake_);
    close(socket_);
}

void ConsoleEars::answer(std::optional<std::string> text) {
    const std::lock_guard<std::mutex> lock(mutex_);
    answer_ = std::move(text);
}

std::vector<std::string> ConsoleEars::take(std::size_t count) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, 5s, [&] { return heard_.size() >= count; });
    // What was sent before this was heard before it.
    sockaddr_in self{};
    self.sin_family = AF_INET;
    self.sin_port = htons(2333);
    self.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sendto(socket_, kEnd, strlen(kEnd), 0, reinterpret_cast<sockaddr *>(&self), sizeof self);
    changed_.wait_for(lock, 5s, [&] { return ended_; });
    ended_ = false;
    return std::exchange(heard_, {});
}

void ConsoleEars::listen() {
    pollfd fds[] = {{wake_, POLLIN, 0}, {socket_, POLLIN, 0}};
    for (;;) {
        poll(fds, 2, -1);
        if (fds[0].revents != 0) return;
        hearOne();
    }
}

void ConsoleEars::hearOne() {
    char text[256] = {};
    alignas(cmsghdr) char control[256];
    sockaddr_in from{};
    iovec bytes{text, sizeof text - 1};
    msghdr message{};
    message.msg_name = &from;
    message.msg_namelen = sizeof from;
    message.msg_iov = &bytes;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(socket_, &message, 0);
    if (size < 0) return;

    const std::string words = text;
    const std::string tail(text + words.size(), static_cast<std::size_t>(size) - words.size());
    const bool zeroes = tail.find_first_not_of('\0') == std::string::npos;
    const std::lock_guard<std::mutex> lock(mutex_);
    changed_.notify_all();
    ended_ = words == kEnd;
    if (ended_) return;
    heard_.push_back(std::to_string(ntohs(from.sin_port)) + ">" + destination(message) + " " +
                     words + (tail.empty() ? "" : "+" + std::to_string(tail.size())) +
                     (zeroes ? "" : " that are not zero"));
    if (!answer_ || words.rfind("apply|", 0) != 0) return;
    const std::string &answer = *answer_;
    sendto(socket_, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr *>(&from),
           sizeof from);
}

}  // namespace test
