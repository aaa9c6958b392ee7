// Signals with which a person, or the system, asks the program to end.
#pragma once

#include <csignal>

namespace quillon {

/// How many signals asked the program to end, after catchSignals().
extern volatile std::sig_atomic_t interrupted;

/// For a program that has keys or buttons to let go at its end. From now on SIGINT, SIGTERM, SIGHUP
/// (not under nohup) and SIGQUIT are counted in interrupted, and end a wait. SIGPIPE and the stop
/// signals of a terminal are ignored, because a program that is dead or stopped lets nothing go.
/// Before this call, signals end the program at once.
void catchSignals();

}  // namespace quillon
