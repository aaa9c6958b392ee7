#include "terminal/program.h"

#include <cstdio>
#include <stdexcept>
#include <string>

#include "terminal/printable.h"
#include "terminal/standard_streams.h"

namespace quillon {

int runProgram(CLI::App &app, int argc, char **argv, const std::function<int()> &run) {
    holdStandardStreams();
    const std::string name = app.get_name();
    app.set_version_flag("--version", name + " " QUILLON_VERSION);
    app.failure_message([&name](const CLI::App *, const CLI::Error &error) {
        return name + ": " + printable(error.what()) + " (--help says more)\n";
    });
    int status = 0;
    try {
        app.parse(argc, argv);
        status = run();
    } catch (const CLI::ParseError &error) {
        status = app.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception &error) {
        fprintf(stderr, "%s: %s\n", name.c_str(), printableLines(error.what()).c_str());
        status = 1;
    }
    return finishOutput(name.c_str()) || status != 0 ? status : 1;
}

}  // namespace quillon
