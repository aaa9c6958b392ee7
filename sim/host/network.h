// The board's network interface on the private host.
#pragma once

#include <string>
#include <vector>

namespace sim {

/// Makes eth0 with these IPv4 addresses (/24), the first one primary, and multicast routed on it;
/// an earlier one is removed. Nothing that is sent there leaves the private host. Throws
/// std::runtime_error when the system refuses.
void makeEth0(const std::vector<std::string> &addresses);

/// True while some socket is bound to this UDP port.
bool udpPortBound(unsigned port);

/// Bytes that wait to be received on this UDP port.
unsigned long udpBytesWaiting(unsigned port);

}  // namespace sim
