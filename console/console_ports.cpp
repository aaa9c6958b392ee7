#include "console_ports.h"

#include <cerrno>
#include <chrono>
#include <system_error>

#include "link_messages.h"

namespace console {
namespace {

constexpr std::uint16_t kHeartbeatPort = 41237;
constexpr std::chrono::milliseconds kAtOnce(0);

}  // namespace

ConsolePorts::ConsolePorts(const std::string &address, Owner owner)
    : address_(address), group_(kAllConsoles, kLinkPort, address) {
    try {
        link_ =
            std::make_unique<DatagramSocket>(address, kLinkPort, address, DatagramSocket::kAlone);
    } catch (const std::system_error &error) {
        if (owner == kSelf || error.code().value() != EADDRINUSE) throw;
        listener_ = std::make_unique<WatchListener>(address);
        return;
    }
    heartbeats_ = std::make_unique<DatagramSocket>(address, kHeartbeatPort, address);
    relay_ = std::make_unique<WatchRelay>(address);
}

void ConsolePorts::addTo(std::vector<pollfd> &fds) const {
    fds.push_back({group_.fd(), POLLIN, 0});
    if (listener_) fds.push_back({listener_->fd(), POLLIN, 0});
    if (!own()) return;
    for (const int fd : {link_->fd(), heartbeats_->fd(), relay_->fd()})
        fds.push_back({fd, POLLIN, 0});
}

void ConsolePorts::serve(const std::function<void(const DatagramSocket::Received &)> &take) {
    while (const auto datagram = group_.receive(kAtOnce)) take(*datagram);
    if (listener_)
        while (const auto text = listener_->receive(kAtOnce)) take({*text, address_, 0});
    if (!own()) return;
    relay_->admit();
    while (const auto datagram = link_->receive(kAtOnce)) {
        relay_->pass(datagram->text);
        take(*datagram);
    }
    while (const auto ping = heartbeats_->receive(kAtOnce)) try {
            if (ping->text == "heart")
                heartbeats_->send(ping->sender, ping->senderPort, "ackheart");
        } catch (const std::system_error &) {
            // The network is down for a while: as good as no answer.
        }
}

bool ConsolePorts::answer(const DatagramSocket::Received &to, const std::string &text,
                          std::string &why) {
    try {
        link_->send(to.sender, to.senderPort, text);
        return true;
    } catch (const std::system_error &error) {
        why = error.what();
        return false;
    }
}

}  // namespace console
