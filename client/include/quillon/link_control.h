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

// Each asks the endpoint first, and waits up to 12 s for it to carry the request out, because the
// holder may have 10 s to answer; each question has the session's time-out besides. Each throws
// std::runtime_error, with a sentence for a person, when the endpoint did not do it. The name has
// to be as conventionalName() makes it, and the request one that objection() does not object to.

/// Takes control at once, or links one more output of the user who holds it. It also throws when
/// control was taken but the output is not linked.
LinkOutcome connectUser(Session &session, const LinkRequest &request);
/// Asks for control. When the output is this machine, it hears why control was not granted, at UDP
/// port 2333 or through the program of the same user that has the port; other messages that come
/// there meanwhile are lost.
LinkOutcome applyUser(Session &session, const LinkRequest &request);
/// Gives control up.
LinkOutcome disconnectUser(Session &session, const LinkRequest &request);

}  // namespace quillon
