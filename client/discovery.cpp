#include <quillon/discovery.h>

#include <algorithm>

#include "protocol/ports.h"
#include "protocol/requests.h"

namespace quillon {

void Discovery::take(const DatagramSocket::Received &datagram) {
    constexpr std::size_t kMost = 1024;
    const auto known = [&](const Found &found) { return found.address == datagram.sender; };
    const auto holder = parseHolder(datagram.text);
    if (!holder || found_.size() == kMost || std::any_of(found_.begin(), found_.end(), known))
        ++surplus_;
    else
        found_.push_back({datagram.sender, *holder});
}

Discovery discover(const std::string &from, std::chrono::milliseconds timeout) {
    using Clock = std::chrono::steady_clock;
    DatagramSocket socket(from, 0, from);
    socket.send(kEndpointGroup, kOperatorPort, kHolderQuestion);
    const auto deadline = Clock::now() + timeout;
    Discovery discovery;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) return discovery;
        if (const auto answer = socket.receive(left)) discovery.take(*answer);
    }
}

}  // namespace quillon
