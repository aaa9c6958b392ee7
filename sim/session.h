// One run of a board, from its start until a person, a signal, the command or the daemon ends it.
#pragma once

#include "sim/options.h"

namespace sim {

/// Runs a board and returns the exit status. Call it on a private host and before any thread is
/// started, because it blocks signals. Throws std::runtime_error when the system refuses something.
int runSession(const Options &options);

}  // namespace sim
