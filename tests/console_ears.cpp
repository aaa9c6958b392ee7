#include "console_ears.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace test {
namespace {

using namespace std::chrono_literals;

constexpr char kEnd[] = "the end of a test's step", kAllConsoles[] = "225.168.1.168";

sockaddr_in linkPort(in_addr_t address) {
    sockaddr_in port{};
    port.sin_family = AF_INET;
    port.sin_port = htons(2333);
    port.sin_addr.s_addr = address;
    return port;
}

void send(int from, const std::string &text, const sockaddr_in &to) {
    sendto(from, text.data(), text.size(), 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
}

// One socket for all, so that the order of the datagrams is kept.
int listenEverywhere() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    const sockaddr_in local = linkPort(INADDR_ANY);
    ip_mreq group{};  // multicast is routed on eth0
    inet_pton(AF_INET, kAllConsoles, &group.imr_multiaddr);
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        setsockopt(fd, IPPROTO_IP, IP_PKTINFO, &on, sizeof on) != 0 ||
        bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) != 0 ||
        setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group) != 0)
        throw std::system_error(errno, std::generic_category(), "the consoles' ears");
    return fd;
}

}  // namespace

ConsoleEars::ConsoleEars() : socket_(listenEverywhere()) {
    thread_ = std::thread([this] {
        while (!ending_) hearOne();
    });
}

ConsoleEars::~ConsoleEars() {
    ending_ = true;
    send(socket_, kEnd, linkPort(htonl(INADDR_LOOPBACK)));
    thread_.join();
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
    send(socket_, kEnd, linkPort(htonl(INADDR_LOOPBACK)));
    changed_.wait_for(lock, 5s, [&] { return ended_; });
    ended_ = false;
    return std::exchange(heard_, {});
}

void ConsoleEars::hearOne() {
    char text[256] = {};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))];
    sockaddr_in from{};
    iovec bytes{text, sizeof text - 1};
    msghdr message{&from, sizeof from, &bytes, 1, control, sizeof control, 0};
    const ssize_t size = recvmsg(socket_, &message, 0);
    if (size < 0) return;

    const std::string words = text;
    const std::string tail(text + words.size(), static_cast<std::size_t>(size) - words.size());
    const bool zeroes = tail.find_first_not_of('\0') == std::string::npos;
    const auto *info = reinterpret_cast<const in_pktinfo *>(CMSG_DATA(CMSG_FIRSTHDR(&message)));
    const std::string destination = inet_ntoa(info->ipi_addr);
    const std::lock_guard<std::mutex> lock(mutex_);
    changed_.notify_all();
    ended_ = words == kEnd;
    if (ended_) return;
    heard_.push_back(std::to_string(ntohs(from.sin_port)) + ">" +
                     (destination == kAllConsoles ? "all" : destination) + " " + words +
                     (tail.empty() ? "" : "+" + std::to_string(tail.size())) +
                     (zeroes ? "" : " that are not zero"));
    if (answer_ && words.rfind("apply|", 0) == 0) send(socket_, *answer_, from);
}

}  // namespace test
