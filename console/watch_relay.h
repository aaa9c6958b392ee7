// A port of an address has one owner: the running "watch". What comes for its address it passes
// on to the other consoles of this machine, over a socket in the abstract name space.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <deque>
#include <optional>
#include <string>

#include "datagram_socket.h"

namespace console {

/// The end of the watch.
class WatchRelay {
  public:
    /// For the watch at address. Throws std::system_error when the system refuses.
    explicit WatchRelay(const std::string &address);
    ~WatchRelay();
    WatchRelay(const WatchRelay &) = delete;
    WatchRelay &operator=(const WatchRelay &) = delete;

    /// To wait on, until somebody wants to hear; then call admit().
    int fd() const { return fd_; }
    void admit();
    /// To all who hear and still live.
    void pass(const std::string &text);

  private:
    struct Listener {
        sockaddr_un name;
        socklen_t size;
    };

    int fd_ = -1;
    std::deque<Listener> listeners_;  ///< the oldest goes when there are too many
};

/// The end of who wants to hear.
class WatchListener {
  public:
    explicit WatchListener(const std::string &address);
    ~WatchListener();
    WatchListener(const WatchListener &) = delete;
    WatchListener &operator=(const WatchListener &) = delete;

    /// False when no watch runs at the address.
    bool connected() const { return connected_; }
    /// The next text that was passed on; none when the time-out ran out.
    std::optional<std::string> receive(std::chrono::milliseconds timeout);
    /// To wait on for it.
    int fd() const { return fd_; }

  private:
    int fd_ = -1;
    bool connected_ = false;
};

}  // namespace console
