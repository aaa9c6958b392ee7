#include "sim/host/control_socket.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "sim/host/private_host.h"
#include "sim/host/process.h"

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
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) fail("socket");
    return fd;
}

// Anybody can take an abstract name. A socket's peer has the credentials of who listens there, or
// of who connected.
bool isOwn(int fd) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == getuid();
}

[[noreturn]] void tellImpostor(const std::string &name) {
    throw std::runtime_error("another user of this machine has the name of the board " + name +
                             "; --name gives this one another");
}

// A connection to a board of this user. Waits a while for one that has many others to serve, which
// anybody can see to; never for an answer of somebody else.
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
    fcntl(fd, F_SETFL, 0);  // from here on there is somebody to wait for
    return fd;
}

// Asks, and tells which process answered.
std::string converse(const std::string &name, const std::string &request, pid_t &answerer) {
    const int fd = connectTo(name);
    const int on = 1;
    const timeval patience{10, 0};  // with one that is stopped
    setsockopt(fd, SOL_SOCKET, SO_PASSCRED, &on, sizeof on);
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
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
    ucred sender{};
    if (const cmsghdr *header = n > 0 ? CMSG_FIRSTHDR(&message) : nullptr)
        memcpy(&sender, CMSG_DATA(header), sizeof sender);
    if (n <= 0 || sender.pid <= 0 || sender.uid != getuid())
        throw std::runtime_error("the board named " + name + " does not answer");
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

// A descriptor that is closed on every way out.
class Handle {
  public:
    Handle(int fd, const char *what) : fd_(fd) {
        if (fd < 0) fail(what);
    }
    ~Handle() { close(fd_); }
    Handle(const Handle &) = delete;
    Handle &operator=(const Handle &) = delete;
    int get() const { return fd_; }

  private:
    const int fd_;
};

void joinNamespacesOf(pid_t board) {
    constexpr char kRefused[] = "cannot enter the board";
    char cwd[4096];
    if (getcwd(cwd, sizeof cwd) == nullptr) strcpy(cwd, "/");
    const std::string process = "/proc/" + std::to_string(board);
    const Handle handle(static_cast<int>(syscall(SYS_pidfd_open, board, 0)), kRefused);
    // The number may have gone to another process since the answer, but not from here on.
    struct stat owner {};
    if (stat(process.c_str(), &owner) != 0) fail(kRefused);
    if (owner.st_uid != getuid()) throw std::runtime_error(kRefused);
    // In a chroot the root of the board's mount namespace is the host's, not the board's.
    const Handle root(open((process + "/root").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC),
                      kRefused);
    int spaces = CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWPID;
    if (inOtherNamespace(board, "user")) spaces |= CLONE_NEWUSER;
    if (setns(handle.get(), spaces) != 0 || fchdir(root.get()) != 0 || chroot(".") != 0)
        fail(kRefused);
    if (chdir(cwd) != 0 && chdir("/") != 0) fail("chdir");
    putToolsInPath();
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
    close(connectTo(name));  // throws for another user's
    throw std::runtime_error("a board named " + name +
                             " runs already; --name gives this one another");
}

void serveControl(int listening, const std::function<std::string(const std::string &)> &answer) {
    const int client = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) return;
    if (!isOwn(client)) {  // before any wait: strangers must not hold others up
        close(client);
        return;
    }
    const timeval patience{1, 0};
    setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    char text[kLongestText];
    const ssize_t n = recv(client, text, sizeof text, 0);
    if (n > 0) {
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
