#include <quillon/session.h>

#include <stdexcept>

#include "protocol/ports.h"
#include "protocol/records.h"
#include "protocol/requests.h"
#include <quillon/datagram_socket.h>

namespace quillon {
namespace {

template <class T>
T understood(const std::optional<T> &parsed, const std::string &answer) {
    if (!parsed) throw std::runtime_error("the endpoint answered \"" + answer + "\"");
    return *parsed;
}

}  // namespace

Session::Session(const std::string &to, std::uint16_t dataPort, const std::string &from,
                 std::chrono::milliseconds timeout)
    : to_(to),
      from_(from),
      timeout_(timeout),
      data_(to, dataPort, from),
      operators_(to, kOperatorPort, from) {}

std::string Session::ask(Endpoint &endpoint, const std::string &request) {
    const auto answer = endpoint.ask(request, timeout_);
    if (!answer) throw std::runtime_error("no answer from " + endpoint.name());
    return *answer;
}

Link Session::link() {
    const std::string answer = ask(data_, kLinkQuestion);
    return understood(parseLink(answer), answer);
}

LockKeys Session::lockKeys() {
    const std::string answer = ask(data_, kLockKeysQuestion);
    return understood(parseLockKeys(answer), answer);
}

Holder Session::holder() {
    const std::string answer = ask(operators_, kHolderQuestion);
    return understood(parseHolder(answer), answer);
}

Holder Session::holderAfter(const std::string &command, std::chrono::milliseconds patience) {
    operators_.send(command.data(), command.size());
    // An endpoint takes its commands one after the other. The question is asked again, for it may
    // get lost; answers that come late are lost with their socket.
    Endpoint asking(to_, kOperatorPort, from_);
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (std::chrono::steady_clock::now() < deadline) {
        const auto answer = asking.ask(kHolderQuestion, timeout_);
        if (answer) return understood(parseHolder(*answer), *answer);
    }
    throw std::runtime_error("no answer from " + operators_.name());
}

Settings Session::settings() {
    return parseSettings(ask(operators_, kSettingsQuestion));
}

Settings Session::settingsViaGroup() {
    DatagramSocket group(kEndpointGroup, kSettingsPort, ownAddress());
    const std::string command = settingsViaGroupRequest(to_);
    operators_.send(command.data(), command.size());
    // Anybody on the network can send to the group.
    const auto deadline = std::chrono::steady_clock::now() + timeout_;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            throw std::runtime_error("no settings came from " + to_ + " on " + kEndpointGroup);
        const auto datagram = group.receive(left);
        if (datagram && datagram->sender == to_) return parseSettings(datagram->text);
    }
}

bool Session::usbLinked() {
    const std::string answer = ask(operators_, usbQuestion(to_));
    return understood(parseUsbLinked(answer), answer);
}

void Session::setLockKeys(LockKeys wanted, bool asSoftware) {
    const auto word = [](bool on) { return std::string(on ? "on" : "off"); };
    const std::string tag = asSoftware ? kSoftwareTag : "";
    const std::string request = tag + lockKeysRequest(wanted.caps, wanted.num);
    data_.send(request.data(), request.size());
    // An endpoint with a CH9350 leaves the Num Lock key down; these records let it go.
    const KeyboardRecord up = keyboardRecord({});
    const std::string release = tag + std::string(up.begin(), up.end());
    for (int times = 0; times < 2; ++times) data_.send(release.data(), release.size());
    const LockKeys now = lockKeys();
    if (now.caps != wanted.caps || now.num != wanted.num)
        throw std::runtime_error("the lock keys are now caps " + word(now.caps) + ", num " +
                                 word(now.num) +
                                 "; is a computer attached, and may this address control it?");
}

void Session::setMouseMode(bool relative) {
    const std::string command = mouseModeRequest(relative);
    operators_.send(command.data(), command.size());
    // An endpoint takes its commands one after the other: when the next one is answered, this one
    // is done.
    holder();
    if (link().relative != relative)
        throw std::runtime_error("the endpoint did not change its mouse mode");
}

void Session::setVerified(const std::string &command, const std::string &key, bool on) {
    const std::string text = command + (on ? "=1" : "=0");
    operators_.send(text.data(), text.size());
    if (settings()[key] != (on ? "1" : "0"))
        throw std::runtime_error("the endpoint did not take " + text);
}

void Session::setPermissions(bool on) {
    setVerified("per_enable", "per_enable", on);
}

void Session::setUsbPower(bool on) {
    setVerified("kUsbPower", "usb_power", on);
}

}  // namespace quillon
