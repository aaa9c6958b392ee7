// Taking control of an endpoint and giving it up, verified: not every rule of an endpoint answers.
#pragma once

#include <string>

#include <quillon/session.h>

namespace quillon {

struct LinkRequest {
    std::string name;  ///< as the endpoint keeps it, see conventionalName
    std::string output;
    int level = 0;
};

/// "192.168.1.20-ann" of "ann": messages to a user go to the address before the first "-".
std::string conventionalName(const std::string &name, const std::string &address);

/// What an endpoint would refuse without a word, in words; empty when it takes the request. A name
/// that it is not to keep may be long and hold "=": it is known already, or only compared.
std::string objection(const LinkRequest &request, bool keepsName = true);

/// "WORD|NAME|OUTPUT|LEVEL", which an endpoint takes for the words connect and apply.
std::string requestText(const std::string &word, const LinkRequest &request);
/// The request to end a user's control.
std::string disconnectText(const LinkRequest &request);

/// How it went, in words, and who controls the endpoint now.
struct LinkOutcome {
    std::string result;
    Holder holder;
};

// Each throws std::runtime_error, in words, when the endpoint did not do it. "apply" takes up to
// 12 s, for the user who has control has 10 s to answer.
LinkOutcome connectUser(Session &session, const LinkRequest &request);
LinkOutcome applyUser(Session &session, const LinkRequest &request);
LinkOutcome disconnectUser(Session &session, const LinkRequest &request);

}  // namespace quillon
