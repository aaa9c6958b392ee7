// One run of a board: from its start to the end that a person, a signal, the command or the daemon
// gives it.
#pragma once

#include "sim/options.h"

namespace sim {

/// Runs a board, on a private host; the exit status. Blocks the signals that end it, so call it
/// before any thread is started. Throws std::runtime_error when the system refuses something.
int runSession(const Options &options);

}  // namespace sim
