// The command line of quillon-board.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>
#include <vector>

#include "sim/board.h"

namespace sim {

constexpr char kProgram[] = "quillon-board";

struct Options {
    BoardOptions board;
    std::string chip = "ch9329", configFile, keepDir;
    bool log = false, lines = false, quiet = false;
    std::string traceFile;
    FILE *trace = nullptr;
    bool screen = false;  ///< the board is shown live on a whole terminal
    double lossPercent = 0;
    std::vector<std::string> command;
    std::string name = "default";
    int control = -1;  ///< listening socket for requests, see host/control_socket.h
};

/// Makes the options known to the parser.
void describe(CLI::App &app, Options &options);

/// What follows from the options together, after they were parsed, for a board that is to run.
/// Opens the files that they name. Throws std::runtime_error for what cannot be.
void complete(CLI::App &app, Options &options);

}  // namespace sim
