#include "protocol/requests.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <utility>

namespace quillon {
namespace {

// What an endpoint has room for.
constexpr std::size_t kLongestName = 31, kLongestAddress = 15;

std::string onOff(bool on) {
    return on ? "on" : "off";
}

std::string linkText(const char *word, const LinkRequest &request) {
    return std::string(word) + "|" + request.name + "|" + request.output + "|" +
           std::to_string(request.level);
}

}  // namespace

std::string settingsViaGroupRequest(const std::string &endpoint) {
    return kSettingsQuestion + (":" + endpoint);
}

std::string usbQuestion(const std::string &endpoint) {
    return "[seq]\n[controlled]=" + endpoint + "\n[answer]=0.0.0.0000000:0\nusb_is_link_pc";
}

std::string mouseModeRequest(bool relative) {
    return relative ? "chip=rel" : "chip=abs";
}

std::string lockKeysRequest(bool caps, bool num) {
    return "out=" + onOff(caps) + "&num=" + onOff(num);
}

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
            return "\"" + text + "\" holds a blank, \"=\", \"|\" or a control character";
    if (keepsName && request.name.size() > kLongestName)
        return request.name + " has more than " + std::to_string(kLongestName) + " characters";
    if (request.output.size() > kLongestAddress) return request.output + " is not an address";
    return "";
}

std::string connectRequest(const LinkRequest &request) {
    return linkText("connect", request);
}

std::string applyRequest(const LinkRequest &request) {
    return linkText("apply", request);
}

std::string disconnectRequest(const LinkRequest &request) {
    return "disconnect|" + request.name + "|" + std::to_string(request.level);
}

}  // namespace quillon
