#include "console/interrupt.h"

#include <initializer_list>

namespace quillon {

volatile std::sig_atomic_t interrupted = 0;

void catchSignals() {
    struct sigaction stop {
    }, before{};
    stop.sa_handler = [](int) { interrupted = interrupted + 1; };
    for (const int sig : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        sigaction(sig, nullptr, &before);
        if (sig != SIGHUP || before.sa_handler != SIG_IGN) sigaction(sig, &stop, nullptr);
    }
    signal(SIGPIPE, SIG_IGN);
    for (const int sig : {SIGTSTP, SIGTTIN, SIGTTOU}) signal(sig, SIG_IGN);
}

}  // namespace quillon
