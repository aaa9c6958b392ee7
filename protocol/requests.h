// The short texts that consoles send to an endpoint; answers.h reads what comes back.
#pragma once

#include <string>

namespace quillon {

/// Questions at the record port: picture size and mouse mode, and the state of the lock keys.
constexpr char kLinkQuestion[] = "link", kLockKeysQuestion[] = "syncled";
/// Questions at the operator port: who holds control, and the settings file.
constexpr char kHolderQuestion[] = "query", kSettingsQuestion[] = "getKvmInfo";
/// Put before a record, it makes an endpoint take a keyboard or position record from everybody.
constexpr char kSoftwareTag[] = "software=";
/// What an endpoint asks a console from time to time, and the answer.
constexpr char kHeartbeat[] = "heart", kHeartbeatAnswer[] = "ackheart";

/// Asks the endpoint with this address to send its settings to the group of all endpoints.
std::string settingsViaGroupRequest(const std::string &endpoint);

/// Asks an endpoint whether a computer is on its USB cable. The question names no address to
/// answer to, so the answer comes back to the sender.
std::string usbQuestion(const std::string &endpoint);

/// Sets the mouse mode: relative sends movements, absolute sends positions. It has no answer.
std::string mouseModeRequest(bool relative);
/// Sets the computer's lock keys. It has no answer.
std::string lockKeysRequest(bool caps, bool num);

/// A request for control of an endpoint.
struct LinkRequest {
    std::string name;    ///< the user, as the endpoint keeps the name; see conventionalName()
    std::string output;  ///< address of the console that is linked, and may send from then on
    int level = 0;       ///< permission level; a larger one is stronger
};

/// "192.168.1.20-ann" for "ann" at that address, because an endpoint sends messages for a user to
/// the address before the first "-". A name that has an address already stays as it is.
std::string conventionalName(const std::string &name, const std::string &address);

/// Why an endpoint would refuse the request without an answer; empty when it takes it. With
/// keepsName false the endpoint only compares the name, which may then be long and hold "=". The
/// text may hold control characters that the request holds.
std::string objection(const LinkRequest &request, bool keepsName = true);

/// Takes control from everybody who is not stronger, or links one more output of the same user.
std::string connectRequest(const LinkRequest &request);
/// Asks for control: an equal or stronger holder is asked for consent.
std::string applyRequest(const LinkRequest &request);
/// Ends the control of every user whose name begins with the name in the request.
std::string disconnectRequest(const LinkRequest &request);

}  // namespace quillon
