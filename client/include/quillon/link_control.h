// Taking control of an endpoint and giving it up, verified: not every rule of an endpoint answers.
#pragma once

#include <string>

#include <quillon/session.h>

#include "protocol/requests.h"

namespace quillon {

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
