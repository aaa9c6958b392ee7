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

int run(int argc, char **argv) {
    CLI::App app{"", kProgram};
    app.set_version_flag("--version", kProgram + std::string(" " QUILLON_VERSION));
    Options options;
    quillon::describe(app, options);
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
