// What endpoints tell consoles about who controls them.
#pragma once

#include <optional>
#include <string>

namespace quillon {

struct LinkMessage {
    enum Kind {
        kHeld,     ///< "connect|ENDPOINT|1|USER|LEVEL"
        kDropped,  ///< "disconnect|ENDPOINT|0|USER|LEVEL"
        kAsked,    ///< "apply|ENDPOINT|USER", to the outputs of who holds it
        kReply     ///< "reply|ENDPOINT|CODE", to who applied
    };
    enum Code { kRefused = 0, kGranted = 1, kNotAnswered = 2 };

    Kind kind = kHeld;
    std::string endpoint;  ///< its address, as it calls itself
    std::string user;      ///< empty in a reply
    int level = 0;         ///< of kHeld and kDropped
    int code = 0;          ///< of kReply
};

/// Zero bytes behind the text are passed over; none for any other text.
std::optional<LinkMessage> parseLinkMessage(const std::string &text);

/// For a person, without the endpoint.
std::string inWords(const LinkMessage &message);

/// The endpoint for a person: the address that a message came from, and the name in it where that
/// is another. The address is what counts; an endpoint without its address file has no right name.
std::string endpointWords(const std::string &sender, const LinkMessage &message);

/// The answer of a console to kAsked.
std::string consentAnswer(const std::string &address, const LinkMessage &question, bool granted);

}  // namespace quillon
