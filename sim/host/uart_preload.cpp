// Preloaded into the daemon on a simulated board: makes a pseudo-terminal behave like a UART where
// the daemon can notice it. When a UART is closed, or flushed before a change of speed, what was
// written leaves at the old speed; a pseudo-terminal would discard it or deliver it at the new one.
// A UART that is closed receives nothing. The library also stands in for the one netlink protocol
// of the board's kernel, and for a network that loses datagrams.

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "protocol/ports.h"
#include "sim/chips/losses.h"
#include "sim/host/paths.h"
#include "sim/host/uart_events.h"

namespace {

using sim::UartEvent;

template <class Function>
Function next(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

int realClose(int fd) {
    static const auto call = next<int (*)(int)>("close");
    return call(fd);
}

int realSocket(int domain, int type, int protocol) {
    static const auto call = next<int (*)(int, int, int)>("socket");
    return call(domain, type, protocol);
}

// Which of the board's ports a descriptor is, -1 for none.
int portOf(int fd) {
    struct stat info {
    }, device{};
    if (fstat(fd, &info) != 0 || !S_ISCHR(info.st_mode)) return -1;
    for (int port = 0; port < 4; ++port) {
        char path[32];
        snprintf(path, sizeof path, "/dev/ttyAMA%d", port);
        if (stat(path, &device) == 0 && device.st_dev == info.st_dev &&
            device.st_ino == info.st_ino)
            return port;
    }
    return -1;
}

void tell(UartEvent::Kind kind, int port) {
    const int fd = realSocket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0) return;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, sim::kUartSocket);
    const UartEvent event{kind, static_cast<unsigned char>(port)};
    char done = 0;
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
        send(fd, &event, sizeof event, MSG_NOSIGNAL) == sizeof event) [[maybe_unused]]
        const ssize_t n = recv(fd, &done, sizeof done, 0);
    realClose(fd);
}

int openAs(const char *name, const char *path, int flags, mode_t mode) {
    const int fd = next<int (*)(const char *, int, ...)>(name)(path, flags, mode);
    const int port = fd < 0 ? -1 : portOf(fd);
    if (port >= 0) tell(UartEvent::kOpened, port);
    return fd;
}

sim::Losses lossesAskedFor() {
    double part = 0;
    unsigned seed = 0;
    const char *text = getenv(sim::kLossVariable);
    if (text == nullptr || sscanf(text, "%lf %u", &part, &seed) != 2) return sim::Losses();
    return sim::Losses(part, seed);
}

// Only the data server loses datagrams: a thread must find the datagram that select() reported.
bool isDataServer(int fd) {
    constexpr int kFirstOther = quillon::kHeartbeatPort, kLastOther = quillon::kAnnouncePort;
    sockaddr_in own{};
    socklen_t size = sizeof own;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&own), &size) != 0) return false;
    const int port = ntohs(own.sin_port);
    return own.sin_family == AF_INET && (port < kFirstOther || port > kLastOther);
}

mode_t modeOf(int flags, va_list arguments) {
    return (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

extern "C" {

int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openAs("open", path, flags, mode);
}

int open64(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openAs("open64", path, flags, mode);
}

// The video input's driver has a netlink protocol of its own, which a PC's kernel lacks.
int socket(int domain, int type, int protocol) {
    constexpr int kVideoProtocol = 21;
    if (domain == AF_NETLINK && protocol == kVideoProtocol) protocol = NETLINK_USERSOCK;
    return realSocket(domain, type, protocol);
}

ssize_t recvfrom(int fd, void *buffer, size_t size, int flags, sockaddr *from, socklen_t *length) {
    using Receive = ssize_t (*)(int, void *, size_t, int, sockaddr *, socklen_t *);
    static const auto call = next<Receive>("recvfrom");
    static sim::Losses losses = lossesAskedFor();
    for (;;) {
        const ssize_t n = call(fd, buffer, size, flags, from, length);
        if (n < 0 || !losses.happen() || !isDataServer(fd)) return n;
        memset(buffer, 0, static_cast<size_t>(n));  // the daemon relies on a clear buffer
    }
}

int close(int fd) {
    const int port = portOf(fd);
    if (port >= 0) tell(UartEvent::kClosing, port);
    return realClose(fd);
}

int tcflush(int fd, int queue) {
    const int port = portOf(fd);
    if (port < 0 || queue == TCIFLUSH) return next<int (*)(int, int)>("tcflush")(fd, queue);
    tell(UartEvent::kDrain, port);
    return queue == TCIOFLUSH ? next<int (*)(int, int)>("tcflush")(fd, TCIFLUSH) : 0;
}

}  // extern "C"
