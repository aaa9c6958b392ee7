#include "console_ports.h"

#include <cerrno>
#include <chrono>
#include <system_error>

#include "link_messages.h"

namespace console {
namespace {

constexpr std::uint16_t kHeartbeatPort = 41237;
constexpr std::chrono::milliseconds kAtOnce(0);

using Take = std::function<void(const DatagramSocket::Received &)>;

// What is there, but not for ever when more keeps coming.
void drain(DatagramSocket &socket, const Take &take) {
    constexpr int kMost = 64;
    for (int i = 0; i < kMost; ++i) {
        const auto datagram = socket.receive(kAtOnce);
        if (!datagram) return;
        take(*datagram);
    }
}

bool send(DatagramSocket &socket, const DatagramSocket::Received &to, const std::string &text,
          std::string &why) {
    try {
        socket.send(to.sender, to.senderPort, text);
        return true;
    } catch (const std::system_error &error) {
        why = error.what();
        return false;
    }
}

}  // namespace

ConsolePorts::ConsolePorts(const std::string &address, Owner owner)
    : address_(address), group_(kAllConsoles, kLinkPort, address) {
    try {
        takePorts();
    } catch (const std::system_error &error) {
        if (owner == kSelf || error.code().value() != EADDRINUSE) throw;
        listener_ = std::make_unique<WatchListener>(address);
    }
}

// All or none of them.
void ConsolePorts::takePorts() {
    tried_ = std::chrono::steady_clock::now();
    auto link =
        std::make_unique<DatagramSocket>(address_, kLinkPort, address_, DatagramSocket::kAlone);
    auto heartbeats = std::make_unique<DatagramSocket>(address_, kHeartbeatPort, address_);
    relay_ = std::make_unique<WatchRelay>(address_);
    link_ = std::move(link);
    heartbeats_ = std::move(heartbeats);
    listener_.reset();
}

void ConsolePorts::addTo(std::vector<pollfd> &fds) const {
    fds.push_back({group_.fd(), POLLIN, 0});
    if (listener_) fds.push_back({listener_->fd(), POLLIN, 0});
    if (!own()) return;
    for (const int fd : {link_->fd(), heartbeats_->fd(), relay_->fd()})
        fds.push_back({fd, POLLIN, 0});
}

void ConsolePorts::serve(const std::function<void(const DatagramSocket::Received &)> &take) {
    constexpr std::chrono::seconds kRetry(2);
    if (!own() && std::chrono::steady_clock::now() - tried_ >= kRetry) try {
            takePorts();
        } catch (const std::system_error &) {
            // Its owner still lives.
        }
    drain(group_, take);
    if (listener_)
        while (const auto text = listener_->receive(kAtOnce)) take({*text, address_, 0});
    if (!own()) return;
    relay_->admit();
    drain(*link_, [&](const auto &datagram) {
        relay_->pass(datagram.text);
        take(datagram);
    });
    drain(*heartbeats_, [&](const auto &ping) {
        std::string why;  // the network is down for a while: as good as no answer
        if (ping.text == "heart") send(*heartbeats_, ping, "ackheart", why);
    });
}

bool ConsolePorts::answer(const DatagramSocket::Received &to, const std::string &text,
                          std::string &why) {
    return send(*link_, to, text, why);
}

}  // namespace console
