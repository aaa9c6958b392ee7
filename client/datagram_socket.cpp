#include <quillon/datagram_socket.h>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "client/ipv4.h"

namespace quillon {
namespace {

constexpr char kAnyAddress[] = "0.0.0.0";

std::string orAny(const std::string &address) {
    return address.empty() ? kAnyAddress : address;
}

std::system_error refusal(int error, const std::string &what) {
    return {error, std::generic_category(), what};
}

bool setUp(int fd, const sockaddr_in &local, const in_addr &own, DatagramSocket::Sharing sharing) {
    const int shared = sharing == DatagramSocket::kShared ? 1 : 0;
    if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &shared, sizeof shared) != 0 ||
        bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local) != 0 ||
        setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &own, sizeof own) != 0)
        return false;
    if (!IN_MULTICAST(ntohl(local.sin_addr.s_addr))) {
        // From here on nobody else takes the port, and with it what comes.
        const int alone = 0;
        return setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &alone, sizeof alone) == 0;
    }
    const ip_mreq membership{local.sin_addr, own};
    return setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) == 0;
}

}  // namespace

DatagramSocket::DatagramSocket(const std::string &address, std::uint16_t port,
                               const std::string &from, Sharing sharing) {
    const sockaddr_in local = ipv4(orAny(address), port), own = ipv4(orAny(from), 0);
    fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (setUp(fd_, local, own.sin_addr, sharing)) return;
    const int error = errno;
    if (fd_ >= 0) close(fd_);
    throw refusal(error, "cannot listen at " + address + ":" + std::to_string(port));
}

DatagramSocket::~DatagramSocket() {
    close(fd_);
}

void DatagramSocket::send(const std::string &address, std::uint16_t port, const std::string &text) {
    const sockaddr_in to = ipv4(address, port);
    if (sendto(fd_, text.data(), text.size(), 0, reinterpret_cast<const sockaddr *>(&to),
               sizeof to) < 0)
        throw refusal(errno, "cannot send to " + address);
}

std::optional<DatagramSocket::Received> DatagramSocket::receive(std::chrono::milliseconds timeout) {
    pollfd readable{fd_, POLLIN, 0};
    if (poll(&readable, 1, static_cast<int>(timeout.count())) <= 0) return std::nullopt;
    char text[2048], sender[INET_ADDRSTRLEN] = "";
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t n =
        recvfrom(fd_, text, sizeof text, MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&from), &size);
    if (n < 0) return std::nullopt;
    inet_ntop(AF_INET, &from.sin_addr, sender, sizeof sender);
    return Received{std::string(text, static_cast<std::size_t>(n)), sender, ntohs(from.sin_port)};
}

}  // namespace quillon
