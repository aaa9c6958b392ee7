// The board's network interface on the private host.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace sim {

/// Makes eth0 with these IPv4 addresses (/24), the first one primary, and multicast routed on it;
/// an earlier one is removed. Nothing that is sent there leaves the private host. Throws
/// std::runtime_error when the system refuses.
void makeEth0(const std::vector<std::string> &addresses);

/// The consoles' own network: the other end of the board's cable, with their addresses. Its packets
/// pass the board's eth0, and so its firewall.
class ConsoleNetwork {
  public:
    /// Makes it with the addresses (/24); makeEth0() comes first. Throws std::runtime_error when
    /// the system refuses.
    explicit ConsoleNetwork(const std::vector<std::string> &addresses);
    ~ConsoleNetwork();
    ConsoleNetwork(const ConsoleNetwork &) = delete;
    ConsoleNetwork &operator=(const ConsoleNetwork &) = delete;

    /// Calls something whose sockets and child processes are to be on this network. It is the
    /// calling thread that changes over and comes back.
    void run(const std::function<void()> &what) const;

  private:
    int own_ = -1, board_ = -1;  ///< the two network namespaces
};

/// True while some socket is bound to this UDP port.
bool udpPortBound(unsigned port);

/// Bytes that wait to be received on this UDP port.
unsigned long udpBytesWaiting(unsigned port);

}  // namespace sim
