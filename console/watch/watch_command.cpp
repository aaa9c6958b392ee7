// The subcommand "watch".

#include <unistd.h>

#include "console/interrupt.h"
#include "console/options.h"
#include "console/watch/watch.h"
#include "protocol/ports.h"
#include <quillon/endpoint.h>

namespace quillon {
namespace {

void startWatch(const Options &options) {
    WatchOptions watching;
    // The address of this machine that the endpoint, or the group of all consoles, sees.
    watching.address =
        Endpoint(options.to.empty() ? kConsoleGroup : options.to, kConsolePort, options.from)
            .ownAddress();
    watching.endpoint = options.to;
    watching.json = options.json;
    if (options.grant)
        watching.consent = WatchOptions::kGrant;
    else if (options.refuse)
        watching.consent = WatchOptions::kRefuse;
    else if (isatty(STDIN_FILENO) != 0)
        watching.consent = WatchOptions::kAsk;
    catchSignals();
    watch(watching, interrupted);
    interrupted = 0;  // a signal is the usual end
}

}  // namespace

void addWatchCommand(CLI::App &app, Options &options) {
    auto *watching = app.add_subcommand(
        "watch", "Keep running: answer heartbeats, show who takes control; needs no --to");
    auto *grant =
        watching->add_flag("--grant", options.grant, "Give control to everybody who asks for it");
    watching
        ->add_flag("--refuse", options.refuse,
                   "Refuse it to everybody; without both, the person at the terminal is asked")
        ->excludes(grant);
    watching->callback([&options] { startWatch(options); });
}

}  // namespace quillon
