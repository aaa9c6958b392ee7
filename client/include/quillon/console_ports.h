// What comes for a console: link messages about who holds control, and heartbeats, which it
// answers. No function waits: the caller polls, and calls serve() every second also without input.
// An object is for one thread at a time.
#pragma once

#include <poll.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <quillon/datagram_socket.h>

namespace quillon {

class WatchListener;
class WatchRelay;

/// The console ports of one address. One program at an address owns them. Other programs of the
/// same user that use this library hear through it what comes, and leave the answers to it.
class ConsolePorts {
  public:
    enum Owner { kSelf, kSelfOrOther };

    /// kSelf: throws std::system_error when another program has the ports. kSelfOrOther: hears
    /// through that program, if it uses this library and runs as the same user, until the ports are
    /// free.
    ConsolePorts(const std::string &address, Owner owner);
    ~ConsolePorts();
    ConsolePorts(const ConsolePorts &) = delete;
    ConsolePorts &operator=(const ConsolePorts &) = delete;

    /// False while another program has the ports.
    bool own() const { return link_ != nullptr; }
    const std::string &address() const { return address_; }
    /// What is not as it should be, for a person; empty when everything is.
    std::string trouble() const;

    /// Appends the sockets to poll for input, which change; then call serve().
    void addTo(std::vector<pollfd> &fds) const;
    /// Answers heartbeats, and calls take for every other datagram to the console port, 64 of each
    /// socket at most: the rest waits for the next call.
    void serve(const std::function<void(const DatagramSocket::Received &)> &take);

    /// Sends an answer to the sender of a message; only while own(). False, with why for a person,
    /// when it cannot leave.
    bool answer(const DatagramSocket::Received &to, const std::string &text, std::string &why);

  private:
    void takePorts();
    void hearThroughOther(const std::function<void(const DatagramSocket::Received &)> &take);

    const std::string address_;
    std::unique_ptr<DatagramSocket> link_, heartbeats_;
    DatagramSocket group_;
    std::unique_ptr<WatchRelay> relay_;  ///< none when another user has taken its name
    std::unique_ptr<WatchListener> listener_;
    std::chrono::steady_clock::time_point tried_;  ///< when the ports were last asked for
};

}  // namespace quillon
