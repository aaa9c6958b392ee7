#include "gateway/listener.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "gateway/configuration.h"

namespace gateway {
namespace {

int listenAt(int family, const sockaddr *address, socklen_t size, const std::string &name) {
    constexpr int kBacklog = 32;
    const int fd = socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) throw std::runtime_error(std::string("cannot open a socket: ") + strerror(errno));
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(fd, address, size) == 0 && listen(fd, kBacklog) == 0) return fd;
    const std::string why = strerror(errno);
    close(fd);
    throw std::runtime_error("cannot listen at " + name + ": " + why);
}

bool answers(const sockaddr_un &address) {
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0)
        throw std::runtime_error(std::string("cannot open a socket: ") + strerror(errno));
    const bool connected =
        connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    // A program that is stopped has connections that wait.
    const bool taken = connected || errno == EAGAIN;
    close(probe);
    return taken;
}

unsigned long long inodeOf(const std::string &path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

End endOf(const sockaddr_storage &address, socklen_t size) {
    char host[NI_MAXHOST] = "", port[NI_MAXSERV] = "";
    if (address.ss_family == AF_UNIX ||
        getnameinfo(reinterpret_cast<const sockaddr *>(&address), size, host, sizeof host, port,
                    sizeof port, NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return {};
    return {host, static_cast<std::uint16_t>(std::stoi(port))};
}

}  // namespace

int listenOnTcp(const std::string &where) {
    const HostPort hostPort = parseHostPort(where);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(hostPort.port);
    inet_pton(AF_INET, hostPort.host.c_str(), &address.sin_addr);
    return listenAt(AF_INET, reinterpret_cast<const sockaddr *>(&address), sizeof address, where);
}

SocketFile::SocketFile(std::string path) : path_(std::move(path)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path_.size() >= sizeof address.sun_path)
        throw std::runtime_error("the path of a socket is too long: " + path_);
    memcpy(address.sun_path, path_.data(), path_.size());
    if (answers(address)) throw std::runtime_error("another gateway has the socket " + path_);
    unlink(path_.c_str());
    fd_ = listenAt(AF_UNIX, reinterpret_cast<const sockaddr *>(&address), sizeof address, path_);
    inode_ = inodeOf(path_);
}

SocketFile::~SocketFile() {
    if (inodeOf(path_) == inode_) unlink(path_.c_str());
}

bool isUnixSocket(int fd) {
    int domain = 0;
    socklen_t size = sizeof domain;
    return getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX;
}

bool othersMayConnect(int fd) {
    sockaddr_un address{};
    socklen_t size = sizeof address;
    struct stat status {};
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) != 0 ||
        address.sun_path[0] == '\0')
        return true;  // a name without a file is everybody's
    return stat(address.sun_path, &status) != 0 || (status.st_mode & S_IWOTH) != 0;
}

std::string End::name() const {
    if (host.empty()) return "this machine";
    const bool six = host.find(':') != std::string::npos;
    return (six ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

End ownEnd(int fd) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) != 0) return {};
    return endOf(address, size);
}

End otherEnd(int fd) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getpeername(fd, reinterpret_cast<sockaddr *>(&address), &size) != 0) return {};
    return endOf(address, size);
}

Listener::Listener(boost::asio::io_context &context, int fd, std::function<void(int)> take)
    : socket_(context, fd), timer_(context), take_(std::move(take)) {
    // One that was handed in may block, and then who leaves before it is accepted stops everybody.
    socket_.native_non_blocking(true);
    wait();
}

Listener::~Listener() {
    *alive_ = false;
}

void Listener::wait() {
    socket_.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                       [this, alive = alive_](const boost::system::error_code &error) {
                           if (!error && *alive) accept();
                       });
}

void Listener::accept() {
    constexpr std::chrono::seconds kPause(1);
    const int fd = accept4(socket_.native_handle(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd >= 0) take_(fd);
    if (fd >= 0 || (errno != EMFILE && errno != ENFILE && errno != ENOMEM)) return wait();
    timer_.expires_after(kPause);
    timer_.async_wait([this, alive = alive_](const boost::system::error_code &error) {
        if (!error && *alive) wait();
    });
}

}  // namespace gateway
