// Taking control of an endpoint and giving it up. An endpoint does not answer every request, so
// each function asks afterwards who holds control.
#pragma once

#include <string>

#include <quillon/session.h>

#include "protocol/requests.h"

namespace quillon {

struct LinkOutcome {
    std::string result;  ///< what happened, for a person; foreign names in it as they came
    Holder holder;       ///< who holds control now
};

// Each throws std::runtime_error, with a sentence for a person, when the endpoint did not do it.
// They wait for the endpoint, applyUser() for up to 12 s: the user who holds control has 10 s to
// answer.
/// Takes control at once, or links one more output of the user who holds it.
LinkOutcome connectUser(Session &session, const LinkRequest &request);
/// Asks for control. Why it was not granted is heard at UDP port 2333 of the own address, or
/// through the program of the same user that has that port; when another program has it, the
/// sentence says so.
LinkOutcome applyUser(Session &session, const LinkRequest &request);
/// Gives control up.
LinkOutcome disconnectUser(Session &session, const LinkRequest &request);

}  // namespace quillon
