#include <quillon/link_control.h>

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "client/watch_relay.h"
#include "protocol/link_messages.h"
#include "terminal/printable.h"
#include <quillon/datagram_socket.h>

namespace quillon {
namespace {

constexpr std::chrono::seconds kPatience(12);
constexpr std::size_t kLongestName = 31, kLongestAddress = 15;

// What an endpoint says to one address: heard there, or through the watch that has the port.
class ReplyEar {
  public:
    explicit ReplyEar(const std::string &address) {
        try {
            socket_ = std::make_unique<DatagramSocket>(address, kLinkPort, address,
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

std::string conventionalName(const std::string &name, const std::string &address) {
    in_addr parsed{};
    const std::size_t dash = name.find('-');
    const bool complete =
        dash != std::string::npos && inet_pton(AF_INET, name.substr(0, dash).c_str(), &parsed) == 1;
    return complete ? name : address + "-" + name;
}

std::string objection(const LinkRequest &request, bool keepsName) {
    const auto wrong = [](const std::string &text, bool kept) {
        return std::any_of(text.begin(), text.end(), [&](unsigned char c) {
            return (kept && c == '=') || c == '|' || isspace(c) != 0 || iscntrl(c) != 0;
        });
    };
    for (const auto &[text, kept] : {std::pair{request.name, keepsName}, {request.output, true}})
        if (wrong(text, kept))
            return "\"" + printable(text) + "\" holds a blank, \"=\", \"|\" or control character";
    if (keepsName && request.name.size() > kLongestName)
        return request.name + " has more than " + std::to_string(kLongestName) + " characters";
    if (request.output.size() > kLongestAddress) return request.output + " is no address";
    return "";
}

std::string requestText(const std::string &word, const LinkRequest &request) {
    return word + "|" + request.name + "|" + request.output + "|" + std::to_string(request.level);
}

std::string disconnectText(const LinkRequest &request) {
    return "disconnect|" + request.name + "|" + std::to_string(request.level);
}

LinkOutcome connectUser(Session &session, const LinkRequest &request) {
    const Holder before = session.holder();
    const Holder after = session.holderAfter(requestText("connect", request), kPatience);
    if (!holds(after, request))
        explain(session, after.linked ? described(after) : "the endpoint did not take it");
    return succeed(session, request, before, after, false);
}

LinkOutcome applyUser(Session &session, const LinkRequest &request) {
    ReplyEar ear(session.ownAddress());
    const Holder before = session.holder();
    const Holder after = session.holderAfter(requestText("apply", request), kPatience);
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
    const Holder after = session.holderAfter(disconnectText(request), kPatience);
    if (after.linked) explain(session, described(after));
    return {before.user + " is disconnected", after};
}

}  // namespace quillon
