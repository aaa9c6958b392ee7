// What quillon-board does with a board that another process runs: "ctl" and "enter".
#pragma once

#include "sim/options.h"

namespace sim {

/// Sends the request in options to the running board and prints the answer. With enter, runs the
/// command in options, or else a shell, on the board's private host. Returns the exit status.
/// Throws std::runtime_error when no board of that name runs.
int speakToRunningBoard(bool enter, const Options &options);

}  // namespace sim
