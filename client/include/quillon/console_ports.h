// What comes for a console: messages about control, and heartbeats, which it answers.
#pragma once

#include <poll.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/watch_relay.h"
#include <quillon/datagram_socket.h>

namespace quillon {

/// The ports of one address. One program of an address owns them; others of ours hear through it
/// what comes, and leave the answers to it.
class ConsolePorts {
  public:
    enum Owner { kSelf, kSelfOrOther };

    /// kSelf: throws std::system_error when another program has the ports; kSelfOrOther: then hears
    /// through that, if it is ours and this user's, until the ports are free.
    ConsolePorts(const std::string &address, Owner owner);

    /// False when another program answers for this address.
    bool own() const { return link_ != nullptr; }
    /// What is not as it should be, for the person; empty when all is.
    std::string trouble() const;

    /// To poll for input; then call serve.
    void addTo(std::vector<pollfd> &fds) const;
    /// Answers heartbeats, and calls back for everything else that came, but not without end when
    /// more keeps coming: what is left waits for the next call.
    void serve(const std::function<void(const DatagramSocket::Received &)> &take);

    /// Sends an answer to who sent a message; false, with why, when it cannot leave.
    bool answer(const DatagramSocket::Received &to, const std::string &text, std::string &why);

  private:
    void takePorts();
    void hearThroughOther(const std::function<void(const DatagramSocket::Received &)> &take);

    const std::string address_;
    std::unique_ptr<DatagramSocket> link_, heartbeats_;
    DatagramSocket group_;
    std::unique_ptr<WatchRelay> relay_;  ///< none when another user has its name
    std::unique_ptr<WatchListener> listener_;
    std::chrono::steady_clock::time_point tried_;  ///< when the ports were wanted last
};

}  // namespace quillon
