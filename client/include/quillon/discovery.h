// All endpoints of a network, by who answers a question to their group.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "protocol/answers.h"
#include <quillon/datagram_socket.h>

namespace quillon {

/// Gathers answers to "query". An answer counts for the address that sent it, once: whatever else
/// that address says, and more endpoints than a network of this kind has, is only counted.
class Discovery {
  public:
    struct Found {
        std::string address;  ///< that answered
        Holder holder;        ///< what it said, its name for itself included
    };

    void take(const DatagramSocket::Received &datagram);
    const std::vector<Found> &found() const { return found_; }
    /// Datagrams that were not taken.
    unsigned surplus() const { return surplus_; }

  private:
    std::vector<Found> found_;
    unsigned surplus_ = 0;
};

/// Asks on the network of the address from (any without it) and gathers for as long as timeout.
/// Throws std::system_error when the system refuses.
Discovery discover(const std::string &from, std::chrono::milliseconds timeout);

}  // namespace quillon
