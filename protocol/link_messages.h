// What endpoints tell consoles about who holds control. Names in a message are foreign text: make
// them printable before a terminal or a page gets them.
#pragma once

#include <optional>
#include <string>

namespace quillon {

struct LinkMessage {
    enum Kind {
        kHeld,     ///< "connect|ENDPOINT|1|USER|LEVEL"
        kDropped,  ///< "disconnect|ENDPOINT|0|USER|LEVEL"
        kAsked,    ///< "apply|ENDPOINT|USER", to the outputs of the holder
        kReply     ///< "reply|ENDPOINT|CODE", to the console that applied
    };
    enum Code { kRefused = 0, kGranted = 1, kNotAnswered = 2 };

    Kind kind = kHeld;
    std::string endpoint;  ///< its address, as it calls itself
    std::string user;      ///< empty in a reply
    int level = 0;         ///< of kHeld and kDropped
    int code = 0;          ///< of kReply
};

/// None for a text that is no such message. Zero bytes behind a message are ignored.
std::optional<LinkMessage> parseLinkMessage(const std::string &text);

/// The message for a person, without the endpoint.
std::string inWords(const LinkMessage &message);

/// The endpoint for a person: the address that a message came from, and the name in it where that
/// differs. The address counts; an endpoint without its address file does not know its name.
std::string endpointWords(const std::string &sender, const LinkMessage &message);

/// The answer of a console to kAsked.
std::string consentAnswer(const std::string &address, const LinkMessage &question, bool granted);

}  // namespace quillon
