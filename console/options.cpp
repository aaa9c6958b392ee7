// The whole command line of quillon-console.

#include "console/options.h"

namespace quillon {

void describe(CLI::App &app, Options &options) {
    app.description("Types, points and asks at the endpoint of a KVM extender");
    app.add_option("--to", options.to, "Address of the endpoint")
        ->type_name("ADDRESS")
        ->check(CLI::ValidIPV4.description(""));
    app.add_option("--port", options.port, "UDP port where the endpoint takes records")
        ->type_name("N")
        ->check(CLI::Range(1, 65535).description(""))
        ->capture_default_str();
    app.add_option("--from", options.from, "Address of this machine to send from")
        ->type_name("ADDRESS")
        ->check(CLI::ValidIPV4.description(""));
    app.add_option("--interval", options.intervalMs, "Milliseconds between two records")
        ->type_name("N")
        ->check(CLI::Range(0, 10000).description(""))
        ->capture_default_str();
    app.add_option("--timeout", options.timeoutMs, "Milliseconds to wait for an answer")
        ->type_name("N")
        ->check(CLI::Range(1, 600000).description(""))
        ->capture_default_str();
    app.add_flag("--json", options.json, "Print answers as JSON, one object on each line");
    app.add_flag("--as-software", options.asSoftware,
                 "Mark records as sent by software: an endpoint takes them from everybody");
    app.require_subcommand(1);
    app.fallthrough();  // these may also stand behind the command

    addTypingCommands(app, options);
    addMouseCommands(app, options);
    addQuestionCommands(app, options);
    addSwitchCommands(app, options);
    addTakingCommands(app, options);
    addWatchCommand(app, options);
    addControlCommand(app, options);
}

Session openSession(const Options &options) {
    if (options.to.empty()) throw CLI::RequiredError("--to");
    return {options.to, options.port, options.from, std::chrono::milliseconds(options.timeoutMs)};
}

}  // namespace quillon
