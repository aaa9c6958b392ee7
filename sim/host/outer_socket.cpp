#include "sim/host/outer_socket.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace sim {

int listenOnLoopback(std::uint16_t port) {
    constexpr int kBacklog = 32;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) throw std::runtime_error(std::string("cannot open a socket: ") + strerror(errno));
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
        listen(fd, kBacklog) == 0)
        return fd;
    const int error = errno;
    close(fd);
    throw std::runtime_error("cannot listen at 127.0.0.1:" + std::to_string(port) + ": " +
                             strerror(error));
}

}  // namespace sim
