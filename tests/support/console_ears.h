// Receives what all consoles of the private host get at their link port, in the order of arrival.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace test {

class ConsoleEars {
  public:
    /// Listens at all addresses, and in the consoles' group on eth0.
    ConsoleEars() : socket_(listenEverywhere()) {
        thread_ = std::thread([this] {
            while (!ending_) hearOne();
        });
    }
    ~ConsoleEars() {
        ending_ = true;
        send(kEnd, linkPort(htonl(INADDR_LOOPBACK)));
        thread_.join();
        close(socket_);
    }

    /// Sets the answer to questions for consent from now on; none: no answer.
    void answer(std::optional<std::string> text) {
        const std::lock_guard<std::mutex> lock(mutex_);
        answer_ = std::move(text);
    }

    /// Waits for count datagrams, 5 s at most, and returns all that were sent until now. Each is
    /// "FROM-PORT>DESTINATION TEXT", with "+N" for N zero bytes behind the text; the destination
    /// is "all" for the group.
    std::vector<std::string> take(std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_for(lock, kPatience, [&] { return heard_.size() >= count; });
        // This arrives after everything that was sent before it.
        send(kEnd, linkPort(htonl(INADDR_LOOPBACK)));
        changed_.wait_for(lock, kPatience, [&] { return ended_; });
        ended_ = false;
        return std::exchange(heard_, {});
    }

  private:
    static constexpr char kEnd[] = "the end of a test's step", kAllConsoles[] = "225.168.1.168";
    static constexpr std::chrono::seconds kPatience{5};

    static sockaddr_in linkPort(in_addr_t address) {
        sockaddr_in port{};
        port.sin_family = AF_INET;
        port.sin_port = htons(2333);
        port.sin_addr.s_addr = address;
        return port;
    }

    // One socket for all, so that the order of the datagrams is kept.
    static int listenEverywhere() {
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

    void send(const std::string &text, const sockaddr_in &to) {
        sendto(socket_, text.data(), text.size(), 0, reinterpret_cast<const sockaddr *>(&to),
               sizeof to);
    }

    void hearOne() {
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
        if (answer_ && words.rfind("apply|", 0) == 0) send(*answer_, from);
    }

    const int socket_;
    std::atomic<bool> ending_{false};
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> heard_;
    bool ended_ = false;
    std::optional<std::string> answer_;
    std::thread thread_;
};

}  // namespace test
