// All endpoints of a network: those that answer a question to their multicast group.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "protocol/answers.h"
#include <quillon/datagram_socket.h>

namespace quillon {

/// Gathers answers to the question who holds control. An answer counts for the address that sent
/// it, once. Whatever else that address says is only counted, and so are endpoints beyond 1024.
class Discovery {
  public:
    struct Found {
        std::string address;  ///< of the endpoint that answered
        Holder holder;        ///< what it said; holder.endpoint is how it calls itself
    };

    void take(const DatagramSocket::Received &datagram);
    const std::vector<Found> &found() const { return found_; }
    /// Datagrams that were not taken.
    unsigned surplus() const { return surplus_; }

  private:
    std::vector<Found> found_;
    unsigned surplus_ = 0;
};

/// Asks on the network of the local address from (empty: the system chooses) and gathers answers
/// for the whole of timeout. Throws std::system_error when the system refuses.
Discovery discover(const std::string &from, std::chrono::milliseconds timeout);

}  // namespace quillon
