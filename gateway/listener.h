// Listening sockets, and what comes from them.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

// Boost 1.74 forgets to include <utility>, so it stands before.
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

namespace gateway {

/// A listening socket at "HOST:PORT". Throws std::runtime_error when the system refuses.
int listenOnTcp(const std::string &where);

/// A unix socket, which goes with the object if it is still this one. What a gateway left behind
/// that was killed is replaced.
class SocketFile {
  public:
    /// Throws std::runtime_error when another program answers there, or the system refuses.
    explicit SocketFile(std::string path);
    ~SocketFile();
    SocketFile(const SocketFile &) = delete;
    SocketFile &operator=(const SocketFile &) = delete;

    const std::string &path() const { return path_; }
    /// The listening socket, which is the caller's.
    int fd() const { return fd_; }

  private:
    const std::string path_;
    int fd_ = -1;
    unsigned long long inode_ = 0;
};

bool isUnixSocket(int fd);
/// Of a unix socket: its file lets every user connect.
bool othersMayConnect(int fd);

/// One end of a TCP socket.
struct End {
    std::string host;  ///< in digits; empty for another kind of socket
    std::uint16_t port = 0;

    /// "127.0.0.1:5900", for a person.
    std::string name() const;
};
End ownEnd(int fd);
End otherEnd(int fd);

/// Accepts what comes. A process without free descriptors waits before it tries again.
class Listener {
  public:
    /// fd: becomes the object's. take: gets each new socket, which becomes its own.
    Listener(boost::asio::io_context &context, int fd, std::function<void(int)> take);
    ~Listener();
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

  private:
    void wait();
    void accept();

    boost::asio::posix::stream_descriptor socket_;
    boost::asio::steady_timer timer_;
    const std::function<void(int)> take_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace gateway
