#include "control.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "private_host.h"
#include "process.h"

namespace sim {
namespace {

constexpr std::size_t kLongestText = 4096;

[[noreturn]] void fail(const std::string &what) {
    throw std::runtime_error(what + ": " + strerror(errno));
}

// The abstract address of a user's board; its length goes to size.
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
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd < 0) fail("socket");
    return fd;
}

// A connection to the board's socket, -1 when nobody listens.
int connectTo(const std::string &name) {
    socklen_t size = 0;
    const sockaddr_un address = addressOf(name, size);
    const int fd = openSocket();
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), size) == 0) return fd;
    close(fd);
    return -1;
}

ucred peerOf(int fd) {
    ucred peer{};
    socklen_t size = sizeof peer;
    getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size);
    return peer;
}

// Asks, and tells which process answered.
std::string converse(const std::string &name, const std::string &request, pid_t &answerer) {
    const int fd = connectTo(name);
    if (fd < 0) throw std::runtime_error("no board named " + name + " runs");
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
    send(fd, request.data(), request.size(), MSG_NOSIGNAL);

    char text[kLongestText];
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    iovec part{text, sizeof text};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t n = recvmsg(fd, &message, 0);
    close(fd);
    if (n <= 0) throw std::runtime_error("the board named " + name + " does not answer");
    ucred sender{};
    if (const cmsghdr *header = CMSG_FIRSTHDR(&message))
        memcpy(&sender, CMSG_DATA(header), sizeof sender);
    answerer = sender.pid;
    return std::string(text, static_cast<std::size_t>(n));
}

bool inOtherNamespace(pid_t pid, const char *which) {
    char own[64] = "", other[64] = "";
    const std::string name = std::string("/ns/") + which;
    return readlink(("/proc/self" + name).c_str(), own, sizeof own - 1) < 0 ||
           readlink(("/proc/" + std::to_string(pid) + name).c_str(), other, sizeof other - 1) < 0 ||
           strcmp(own, other) != 0;
}

void joinNamespacesOf(pid_t board) {
    char cwd[4096];
    if (getcwd(cwd, sizeof cwd) == nullptr) strcpy(cwd, "/");
    const int handle = static_cast<int>(syscall(SYS_pidfd_open, board, 0));
    int spaces = CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWPID;
    if (inOtherNamespace(board, "user")) spaces |= CLONE_NEWUSER;
    if (handle < 0 || setns(handle, spaces) != 0) fail("cannot enter the board");
    close(handle);
    if (chdir(cwd) != 0 && chdir("/") != 0) fail("chdir");
    putToolsInPath();
}

}  // namespace

int listenForControl(const std::string &name) {
    socklen_t size = 0;
    const sockaddr_un address = addressOf(name, size);
    const int fd = openSocket();
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), size) != 0 || listen(fd, 8) != 0) {
        close(fd);
        if (errno == EADDRINUSE)
            throw std::runtime_error("a board named " + name +
                                     " runs already; --name gives this one another");
        fail("cannot listen for control");
    }
    return fd;
}

void serveControl(int listening, const std::function<std::string(const std::string &)> &answer) {
    const int client = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) return;
    const timeval patience{1, 0};
    setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    char text[kLongestText];
    const ssize_t n = recv(client, text, sizeof text, 0);
    if (n > 0 && peerOf(client).uid == getuid()) {
        const std::string reply = answer(std::string(text, static_cast<std::size_t>(n)));
        send(client, reply.data(), reply.size(), MSG_NOSIGNAL);
    }
    close(client);
}

std::string askBoard(const std::string &name, const std::string &request) {
    pid_t board = 0;
    return converse(name, request, board);
}

int enterBoard(const std::string &name, const std::vector<std::string> &command) {
    pid_t board = 0;
    converse(name, "status", board);
    fflush(nullptr);
    // A process of its own does it, for one that joined a PID namespace is in neither.
    const pid_t entered = fork();
    if (entered < 0) fail("fork");
    if (entered > 0) return awaitExit(entered);
    int status = 1;
    try {
        joinNamespacesOf(board);
        status = awaitExit(launch({command, {}, "", -1, -1, -1, false}));
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "quillon-board: %s\n", error.what());
    }
    _exit(status);
}

}  // namespace sim
