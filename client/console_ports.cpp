#include <quillon/console_ports.h>

#include <cerrno>
#include <chrono>
#include <system_error>

#include "client/watch_relay.h"
#include "protocol/link_messages.h"
#include "protocol/ports.h"
#include "protocol/requests.h"

namespace quillon {
namespace {

constexpr std::chrono::milliseconds kAtOnce(0);

using Take = std::function<void(const DatagramSocket::Received &)>;

constexpr int kMostOfOneTurn = 64;

void drain(DatagramSocket &socket, const Take &take) {
    for (int i = 0; i < kMostOfOneTurn; ++i) {
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
    : address_(address), group_(kConsoleGroup, kConsolePort, address) {
    try {
        takePorts();
    } catch (const std::system_error &error) {
        if (owner == kSelf || error.code().value() != EADDRINUSE) throw;
        listener_ = std::make_unique<WatchListener>(address);
    }
}

ConsolePorts::~ConsolePorts() = default;

// All or none of them. When messages cannot be passed on to other programs, the ports still work.
void ConsolePorts::takePorts() {
    tried_ = std::chrono::steady_clock::now();
    auto link =
        std::make_unique<DatagramSocket>(address_, kConsolePort, address_, DatagramSocket::kAlone);
    auto heartbeats = std::make_unique<DatagramSocket>(address_, kOutputPort, address_);
    try {
        relay_ = std::make_unique<WatchRelay>(address_);
    } catch (const std::system_error &) {
        relay_.reset();
    }
    link_ = std::move(link);
    heartbeats_ = std::move(heartbeats);
    listener_.reset();
}

std::string ConsolePorts::trouble() const {
    if (own() && !relay_)
        return "another user of this machine has the name under which messages are passed on: "
               "other consoles at " +
               address_ + " hear nothing";
    if (own()) return "";
    if (listener_ && listener_->connected())
        return "another program at " + address_ + " answers heartbeats and questions";
    return "another program has the ports of " + address_ +
           " and passes nothing on: questions for control go to it alone";
}

void ConsolePorts::addTo(std::vector<pollfd> &fds) const {
    fds.push_back({group_.fd(), POLLIN, 0});
    if (listener_ && listener_->connected()) fds.push_back({listener_->fd(), POLLIN, 0});
    if (!own()) return;
    for (const int fd : {link_->fd(), heartbeats_->fd()}) fds.push_back({fd, POLLIN, 0});
    if (relay_) fds.push_back({relay_->fd(), POLLIN, 0});
}

void ConsolePorts::hearThroughOther(const Take &take) {
    constexpr std::chrono::seconds kRetry(2);
    if (std::chrono::steady_clock::now() - tried_ >= kRetry) {
        try {
            takePorts();
            return;
        } catch (const std::system_error &) {
            // Another program still has them.
        }
        if (!listener_->connected()) listener_ = std::make_unique<WatchListener>(address_);
    }
    for (int i = 0; i < kMostOfOneTurn; ++i) {
        const auto datagram = listener_->receive(kAtOnce);
        if (!datagram) return;
        take(*datagram);
    }
}

void ConsolePorts::serve(const Take &take) {
    drain(group_, take);
    if (!own()) hearThroughOther(take);
    if (!own()) return;
    if (relay_) relay_->admit();
    drain(*link_, [&](const auto &datagram) {
        if (relay_) relay_->pass(datagram);
        take(datagram);
    });
    drain(*heartbeats_, [&](const auto &ping) {
        std::string why;  // without an answer the endpoint asks again
        if (ping.text == kHeartbeat) send(*heartbeats_, ping, kHeartbeatAnswer, why);
    });
}

bool ConsolePorts::answer(const DatagramSocket::Received &to, const std::string &text,
                          std::string &why) {
    return send(*link_, to, text, why);
}

}  // namespace quillon
