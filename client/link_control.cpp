#include <quillon/link_control.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "client/watch_relay.h"
#include "protocol/link_messages.h"
#include "protocol/ports.h"
#include <quillon/datagram_socket.h>

namespace quillon {
namespace {

constexpr std::chrono::seconds kPatience(12);

// Hears what an endpoint says to one address, there or through the program that has the port.
class ReplyEar {
  public:
    explicit ReplyEar(const std::string &address) {
        try {
            socket_ = std::make_unique<DatagramSocket>(address, kConsolePort, address,
                                                       DatagramSocket::kAlone);
        } catch (const std::system_error &) {
            listener_ = std::make_unique<WatchListener>(address);
        }
    }

    bool hears() const { return socket_ || listener_->connected(); }

    // The code of the reply from an endpoint, kNone without one. The sender's address counts, not
    // the name in the message.
    static constexpr int kNone = -1;
    int reply(const std::string &endpoint) {
        constexpr std::chrono::milliseconds kOnItsWay(200), kLongest(1000);
        const auto end = std::chrono::steady_clock::now() + kLongest;
        while (std::chrono::steady_clock::now() < end) {
            const auto datagram = next(kOnItsWay);
            if (!datagram) return kNone;
            const auto message = parseLinkMessage(datagram->text);
            if (message && message->kind == LinkMessage::kReply && datagram->sender == endpoint)
                return message->code;
        }
        return kNone;
    }

  private:
    std::optional<DatagramSocket::Received> next(std::chrono::milliseconds timeout) {
        return socket_ ? socket_->receive(timeout) : listener_->receive(timeout);
    }

    std::unique_ptr<DatagramSocket> socket_;
    std::unique_ptr<WatchListener> listener_;
};

std::string described(const Holder &holder) {
    return holder.user + " holds control, level " + std::to_string(holder.level);
}

bool holds(const Holder &holder, const LinkRequest &request) {
    return holder.linked && holder.user == request.name;
}

[[noreturn]] void explain(Session &session, const std::string &why) {
    if (!permissionsOn(session.settings()))
        throw std::runtime_error(
            "permissions are off: the endpoint takes records from everybody, "
            "and no requests for control (see \"permissions on\")");
    throw std::runtime_error(why);
}

// An endpoint does not answer when the holder adds an output, nor when they have eight already.
void checkOutput(Session &session, const LinkRequest &request) {
    const auto outputs = linkedOutputs(session.settings());
    if (std::find(outputs.begin(), outputs.end(), request.output) != outputs.end()) return;
    explain(session,
            "the endpoint did not add the output " + request.output + "; a user has eight at most");
}

LinkOutcome succeed(Session &session, const LinkRequest &request, const Holder &before,
                    const Holder &after, bool granted) {
    checkOutput(session, request);
    if (holds(before, request)) return {"output " + request.output + " is linked", after};
    if (!before.linked) return {"linked", after};
    return {(granted ? "granted by " : "taken over from ") + before.user, after};
}

}  // namespace

LinkOutcome connectUser(Session &session, const LinkRequest &request) {
    const Holder before = session.holder();
    const Holder after = session.holderAfter(connectRequest(request), kPatience);
    if (!holds(after, request))
        explain(session, after.linked ? described(after) : "the endpoint did not take the request");
    return succeed(session, request, before, after, false);
}

LinkOutcome applyUser(Session &session, const LinkRequest &request) {
    ReplyEar ear(session.ownAddress());
    const Holder before = session.holder();
    const Holder after = session.holderAfter(applyRequest(request), kPatience);
    const bool asked = before.linked && before.user != request.name;
    const int code = asked && ear.hears() ? ear.reply(session.to()) : ReplyEar::kNone;
    if (holds(after, request))
        return succeed(session, request, before, after, code == LinkMessage::kGranted);
    if (code == LinkMessage::kRefused) explain(session, "refused by " + before.user);
    if (code == LinkMessage::kNotAnswered) explain(session, before.user + " did not answer");
    if (!after.linked) explain(session, "the endpoint did not take the request");
    if (request.output != session.ownAddress())
        explain(session,
                described(after) + "; only " + request.output + " was told why it was not granted");
    if (!ear.hears())
        explain(session, described(after) + "; another program has UDP port " +
                             std::to_string(kConsolePort) +
                             " here, so the "
                             "reason cannot be heard");
    explain(session, described(after) +
                         "; the holder's consoles were asked, and what they answered was no reply");
}

LinkOutcome disconnectUser(Session &session, const LinkRequest &request) {
    const Holder before = session.holder();
    // An endpoint takes the beginning of a name for the whole name.
    if (!before.linked) explain(session, "nobody holds control");
    if (!holds(before, request)) explain(session, described(before));
    const Holder after = session.holderAfter(disconnectRequest(request), kPatience);
    if (after.linked) explain(session, described(after));
    return {before.user + " no longer holds control", after};
}

}  // namespace quillon
