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

// What an endpoint says to one address: heard there, or through the watch that has the port.
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

    // The code of the reply that came from an endpoint, kNone if none did. Its address counts, not
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
    return holder.user + " controls it, level " + std::to_string(holder.level);
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

// An endpoint says nothing when who controls it adds an output, or has eight already.
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
        explain(session, after.linked ? described(after) : "the endpoint did not take it");
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
    if (!after.linked) explain(session, "the endpoint did not take it");
    if (request.output != session.ownAddress())
        explain(session, described(after) + "; why it was not granted was told to " +
                             request.output + " alone");
    if (!ear.hears())
        explain(session, described(after) +
                             "; another program has UDP port 2333 here, so why it "
                             "was not granted cannot be told");
    explain(session, described(after) + "; he was asked, and his console's answer was none");
}

LinkOutcome disconnectUser(Session &session, const LinkRequest &request) {
    const Holder before = session.holder();
    // An endpoint takes the beginning of a name for the whole.
    if (!before.linked) explain(session, "nobody controls it");
    if (!holds(before, request)) explain(session, described(before));
    const Holder after = session.holderAfter(disconnectRequest(request), kPatience);
    if (after.linked) explain(session, described(after));
    return {before.user + " is disconnected", after};
}

}  // namespace quillon
