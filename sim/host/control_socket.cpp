#include "sim/host/control_socket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace sim {
namespace {

constexpr std::size_t kLongestText = 4096;

[[noreturn]] void fail(const std::string &what) {
    throw std::runtime_error(what + ": " + strerror(errno));
}

// The abstract address of a board of this user; its length goes to size.
sockaddr_un addressOf(const std::string &name, socklen_t &size) {
    const std::string text = "quillon-board/" + std::to_string(getuid()) + "/" + name;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (text.size() + 1 > sizeof address.sun_path) throw std::runtime_error("the name is too long");
    memcpy(address.sun_path + 1, text.data(), text.size());
    size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
    return address;
}

int openSocket() {
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) fail("socket");
    return fd;
}

// Anybody can take an abstract name. The peer's credentials are those of the process that listens
// there, or that connected.
bool isOwn(int fd) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == getuid();
}

[[noreturn]] void tellImpostor(const std::string &name) {
    throw std::runtime_error("another user of this machine has the name of the board " + name +
                             "; --name gives this one another");
}

// Connects to a board of this user. Waits a while when its queue is full, which any user can cause,
// but never for an answer of another user.
int connectTo(const std::string &name) {
    constexpr std::chrono::milliseconds kPatience(5000), kAgain(10);
    const auto end = std::chrono::steady_clock::now() + kPatience;
    socklen_t size = 0;
    const sockaddr_un address = addressOf(name, size);
    const int fd = openSocket();
    while (connect(fd, reinterpret_cast<const sockaddr *>(&address), size) != 0) {
        const bool busy = errno == EAGAIN;
        if (busy && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(kAgain);
            continue;
        }
        close(fd);
        throw std::runtime_error(busy ? "the board named " + name + " does not answer"
                                      : "no board named " + name + " runs");
    }
    if (!isOwn(fd)) {
        close(fd);
        tellImpostor(name);
    }
    fcntl(fd, F_SETFL, 0);  // from here on waiting is safe
    return fd;
}

// Appends a packet that a process of this user sent; false at the end, or for another user's.
bool readPart(int fd, std::string &answer, pid_t &sender) {
    constexpr std::size_t kMost = 64 << 20;
    char text[kLongestText];
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    iovec part{text, sizeof text};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t n = recvmsg(fd, &message, 0);
    ucred credentials{};
    if (const cmsghdr *header = n > 0 ? CMSG_FIRSTHDR(&message) : nullptr)
        memcpy(&credentials, CMSG_DATA(header), sizeof credentials);
    if (n <= 0 || credentials.pid <= 0 || credentials.uid != getuid() || answer.size() > kMost)
        return false;
    sender = credentials.pid;
    answer.append(text, static_cast<std::size_t>(n));
    return true;
}

}  // namespace

int listenForControl(const std::string &name) {
    socklen_t size = 0;
    const sockaddr_un address = addressOf(name, size);
    const int fd = openSocket();
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), size) == 0 && listen(fd, 8) == 0)
        return fd;
    const int error = errno;
    close(fd);
    errno = error;
    if (error != EADDRINUSE) fail("cannot listen for control");
    close(connectTo(name));  // throws when it is another user's
    throw std::runtime_error("a board named " + name +
                             " runs already; --name gives this one another");
}

void serveControl(int listening, const std::function<std::string(const std::string &)> &answer) {
    const int client = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) return;
    if (!isOwn(client)) {  // before any wait: other users must not delay this one
        close(client);
        return;
    }
    const timeval patience{1, 0};
    setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    char text[kLongestText];
    const ssize_t n = recv(client, text, sizeof text, 0);
    if (n > 0) {
        const std::string reply = answer(std::string(text, static_cast<std::size_t>(n)));
        // A picture is longer than a packet may be.
        for (std::size_t at = 0; at < reply.size(); at += kLongestText) {
            const std::size_t size = std::min(kLongestText, reply.size() - at);
            if (send(client, reply.data() + at, size, MSG_NOSIGNAL) < 0) break;
        }
    }
    close(client);
}

std::string askBoard(const std::string &name, const std::string &request, pid_t *answerer) {
    const int fd = connectTo(name);
    const int on = 1;
    const timeval patience{10, 0};  // the board may be stopped
    setsockopt(fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    send(fd, request.data(), request.size(), MSG_NOSIGNAL);

    std::string answer;
    pid_t sender = 0;
    while (readPart(fd, answer, sender)) continue;
    close(fd);
    if (sender <= 0) throw std::runtime_error("the board named " + name + " does not answer");
    if (answerer != nullptr) *answerer = sender;
    return answer;
}

}  // namespace sim
