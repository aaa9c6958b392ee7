// quillon-console: keyboard, mouse and control of an endpoint, from the command line.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <stdexcept>

#include "console/interrupt.h"
#include "console/options.h"
#include "terminal/printable.h"
#include "terminal/standard_streams.h"

namespace {

using quillon::Options;
using quillon::printable;

constexpr char kProgram[] = "quillon-console";

void addCommands(CLI::App &app, Options &options) {
    app.add_option("--to", options.to, "Address of the endpoint")
        ->type_name("ADDRESS")
        ->check(CLI::ValidIPV4);
    app.add_option("--port", options.port, "UDP port where the endpoint takes records")
        ->type_name("N")
        ->check(CLI::Range(1, 65535).description(""))
        ->capture_default_str();
    app.add_option("--from", options.from, "Address of this machine to send from")
        ->type_name("ADDRESS")
        ->check(CLI::ValidIPV4);
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

    quillon::addTypingCommands(app, options);
    quillon::addMouseCommands(app, options);
    quillon::addQuestionCommands(app, options);
    quillon::addSwitchCommands(app, options);
    quillon::addTakingCommands(app, options);
    quillon::addWatchCommand(app, options);
    quillon::addControlCommand(app, options);
}

}  // namespace

quillon::Session quillon::openSession(const Options &options) {
    if (options.to.empty()) throw CLI::RequiredError("--to");
    return {options.to, options.port, options.from, std::chrono::milliseconds(options.timeoutMs)};
}

namespace {

int run(int argc, char **argv) {
    CLI::App app{"Types, points and asks at the endpoint of a KVM extender", kProgram};
    app.set_version_flag("--version", kProgram + std::string(" " QUILLON_VERSION));
    Options options;
    addCommands(app, options);
    app.failure_message([](const CLI::App *, const CLI::Error &error) {
        return std::string(kProgram) + ": " + printable(error.what()) + " (--help says more)\n";
    });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "%s: %s\n", kProgram, printable(error.what()).c_str());
        return 1;
    }
    return quillon::interrupted != 0 ? 130 : 0;
}

}  // namespace

int main(int argc, char **argv) {
    quillon::holdStandardStreams();
    const int status = run(argc, argv);
    return quillon::finishOutput(kProgram) || status != 0 ? status : 1;
}
