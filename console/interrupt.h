// The wish of a person, or of the system, that the program ends.
#pragma once

#include <csignal>

namespace quillon {

/// How many signals asked the program to end, after catchSignals().
extern volatile std::sig_atomic_t interrupted;

/// For a program that has something to let go: from now on SIGINT, SIGTERM, SIGHUP and SIGQUIT
/// count in interrupted, and end a wait; SIGHUP not under nohup. A reader that goes away, Ctrl-Z
/// and the claims of a terminal on a background program are ignored, for neither dead nor stopped
/// could it let go. Before that, signals end the program at once.
void catchSignals();

}  // namespace quillon
