// A port of an address has one owner: the running "watch" or "control". What comes for its address
// it passes on to the other consoles of the same user on this machine, over a socket in the
// abstract name space. Anybody can take such a name first, so both ends believe only a process of
// their own user.
#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <string>

#include <quillon/datagram_socket.h>

namespace quillon {

/// A datagram as it is passed on, "SENDER PORT", a line feed and its text; and back, none for
/// anything else.
std::string relayText(const DatagramSocket::Received &datagram);
std::optional<DatagramSocket::Received> parseRelayText(const std::string &text);

/// Of the program that owns the port.
class WatchRelay {
  public:
    /// Throws std::system_error when the system refuses; EADDRINUSE when somebody has the name.
    explicit WatchRelay(const std::string &address);
    ~WatchRelay();
    WatchRelay(const WatchRelay &) = delete;
    WatchRelay &operator=(const WatchRelay &) = delete;

    /// To wait on, until somebody wants to hear; then call admit().
    int fd() const { return fd_; }
    void admit();
    /// To all who hear and still live.
    void pass(const DatagramSocket::Received &datagram);

  private:
    int fd_ = -1;
    std::deque<int> listeners_;  ///< the oldest goes when there are too many
};

/// Of a program that wants to hear.
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
    /// To wait on for it while connected.
    int fd() const { return fd_; }

  private:
    int fd_ = -1;
    bool connected_ = false;
};

}  // namespace quillon
