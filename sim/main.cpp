// quillon-board: runs the daemon on a simulated board.

#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <stdexcept>

#include "sim/host/control_socket.h"
#include "sim/host/outer_socket.h"
#include "sim/host/picture_socket.h"
#include "sim/host/private_host.h"
#include "sim/options.h"
#include "sim/running_board.h"
#include "sim/session.h"
#include "terminal/printable.h"
#include "terminal/standard_streams.h"
#include "terminal/terminal.h"

namespace sim {
namespace {

int complain(const std::exception &error, int status) {
    fprintf(stderr, "%s: %s\n", kProgram, quillon::printableLines(error.what()).c_str());
    return status;
}

int runBoard(const Options &options) {
    const auto restoreTerminal = quillon::Terminal::restorer();
    const auto run = [&] {
        int ended = 1;
        try {
            ended = runSession(options);
        } catch (const std::runtime_error &error) {
            return complain(error, 1);
        }
        return quillon::finishOutput(kProgram) || ended != 0 ? ended : 1;
    };
    // Devices for a daemon elsewhere are made where that daemon can find them.
    if (!options.board.devices.empty()) return run();
    const int status = runOnPrivateHost(run);
    // A process that was killed could not restore the terminal.
    if (options.screen && status > 128) restoreTerminal();
    return status;
}

int run(int argc, char **argv) {
    CLI::App app{"", kProgram};
    app.set_version_flag("--version", kProgram + std::string(" " QUILLON_VERSION));
    Options options;
    describe(app, options);
    app.failure_message([](const CLI::App *, const CLI::Error &error) {
        return kProgram + (": " + quillon::printable(error.what())) + " (--help says more)\n";
    });
    try {
        app.parse(argc, argv);
        if (!app.get_subcommands().empty())
            return speakToRunningBoard(app.got_subcommand("enter"), options);
        complete(app, options);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::runtime_error &error) {
        return complain(error, app.get_subcommands().empty() ? 2 : 1);
    }
    try {
        options.control = listenForControl(options.name);
        if (options.listenPort) options.listenSocket = listenOnLoopback(*options.listenPort);
        if (options.wantsPicture)
            options.pictureSocket = listenForViewers(options.name, options.picturePath);
    } catch (const std::runtime_error &error) {
        return complain(error, 1);
    }
    const int status = runBoard(options);
    if (!options.picturePath.empty()) unlink(options.picturePath.c_str());
    return status;
}

}  // namespace
}  // namespace sim

int main(int argc, char **argv) {
    setlocale(LC_CTYPE, "");
    quillon::holdStandardStreams();
    const int status = sim::run(argc, argv);
    return quillon::finishOutput(sim::kProgram) || status != 0 ? status : 1;
}
