// The console port of an address has one owner, a running "watch" or "control". It passes what
// comes there on to the other consoles of the same user on this machine, over a socket in the
// abstract name space. Anybody can take such a name first, so both ends believe only a process of
// their own user.
#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <string>

#include <quillon/datagram_socket.h>

namespace quillon {

/// A datagram as it is passed on: "SENDER PORT", a line feed, and its text. parseRelayText returns
/// none for anything else.
std::string relayText(const DatagramSocket::Received &datagram);
std::optional<DatagramSocket::Received> parseRelayText(const std::string &text);

/// The end of the program that owns the port.
class WatchRelay {
  public:
    /// Throws std::system_error when the system refuses; EADDRINUSE when somebody has the name.
    explicit WatchRelay(const std::string &address);
    ~WatchRelay();
    WatchRelay(const WatchRelay &) = delete;
    WatchRelay &operator=(const WatchRelay &) = delete;

    /// The socket, to poll for input before admit().
    int fd() const { return fd_; }
    void admit();
    /// Passes a datagram to all listeners.
    void pass(const DatagramSocket::Received &datagram);

  private:
    int fd_ = -1;
    std::deque<int> listeners_;  ///< the oldest is closed when there are too many
};

/// The end of a program that listens.
class WatchListener {
  public:
    /// Never waits.
    explicit WatchListener(const std::string &address);
    ~WatchListener();
    WatchListener(const WatchListener &) = delete;
    WatchListener &operator=(const WatchListener &) = delete;

    /// False when no program of this user passes anything on at the address, or not any more.
    bool connected() const { return connected_; }
    /// The next datagram that was passed on; none when the time-out ran out.
    std::optional<DatagramSocket::Received> receive(std::chrono::milliseconds timeout);
    /// The socket, to poll for input while connected.
    int fd() const { return fd_; }

  private:
    int fd_ = -1;
    bool connected_ = false;
};

}  // namespace quillon
