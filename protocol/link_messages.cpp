#include "protocol/link_messages.h"

#include <cstdlib>
#include <sstream>
#include <vector>

namespace quillon {
namespace {

struct Shape {
    const char *word;
    std::size_t fields;
};

// In the order of LinkMessage::Kind.
constexpr Shape kShapes[] = {{"connect", 5}, {"disconnect", 5}, {"apply", 3}, {"reply", 3}};

}  // namespace

std::optional<LinkMessage> parseLinkMessage(const std::string &text) {
    std::vector<std::string> fields;
    std::istringstream stream(text.c_str());
    for (std::string field; std::getline(stream, field, '|');) fields.push_back(field);
    for (int kind = LinkMessage::kHeld; kind <= LinkMessage::kReply; ++kind) {
        const Shape &shape = kShapes[kind];
        if (fields.size() != shape.fields || fields[0] != shape.word) continue;
        LinkMessage message;
        message.kind = static_cast<LinkMessage::Kind>(kind);
        message.endpoint = fields[1];
        if (message.kind == LinkMessage::kReply)
            message.code = atoi(fields[2].c_str());
        else
            message.user = fields[shape.fields == 5 ? 3 : 2];
        if (shape.fields == 5) message.level = atoi(fields[4].c_str());
        return message;
    }
    return std::nullopt;
}

std::string inWords(const LinkMessage &message) {
    const std::string level = "level " + std::to_string(message.level);
    switch (message.kind) {
        case LinkMessage::kHeld:
            return message.user + " holds control, " + level;
        case LinkMessage::kDropped:
            return message.user + " no longer holds control, " + level;
        case LinkMessage::kAsked:
            return message.user + " asks for control";
        case LinkMessage::kReply:
            break;
    }
    if (message.code == LinkMessage::kRefused) return "control is refused";
    if (message.code == LinkMessage::kGranted) return "control is granted";
    return "the user who holds control did not answer";
}

std::string endpointWords(const std::string &sender, const LinkMessage &message) {
    return sender + (message.endpoint == sender ? "" : " (calls itself " + message.endpoint + ")");
}

std::string consentAnswer(const std::string &address, const LinkMessage &question, bool granted) {
    return "reply|" + address + "|" + question.user + (granted ? "|1" : "|0");
}

}  // namespace quillon
