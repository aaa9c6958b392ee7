// What quillon-board does with a board that another process runs: "ctl" and "enter".
#pragma once

#include "sim/options.h"

namespace sim {

/// Sends the request of the options to the running board and prints its answer, or with enter runs
/// the command of the options, or else a shell, on its private host. The exit status. Throws
/// std::runtime_error when no board of that name runs.
int speakToRunningBoard(bool enter, const Options &options);

}  // namespace sim
