// The command line of quillon-board.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "sim/board.h"

namespace sim {

constexpr char kProgram[] = "quillon-board";

struct Options {
    BoardOptions board;
    std::string chip = "ch9329", configFile, keepDir;
    std::string layout = "us", variant, system = "x11";  ///< of the computer
    std::string computer, computerFiles;                 ///< a virtual PC, and what it needs
    std::string chipBuffer = "queue";
    bool wantsPicture = false;
    int pictureSocket = -1;  ///< see host/picture_socket.h
    std::string picturePath;
    bool log = false, lines = false, quiet = false;
    std::string traceFile;
    FILE *trace = nullptr;
    bool screen = false;  ///< shows the board live on the whole terminal
    double lossPercent = 0;
    std::vector<std::string> command;
    std::optional<std::uint16_t> listenPort;  ///< of the PC, for the command
    int listenSocket = -1;                    ///< see host/outer_socket.h
    std::string name = "default";
    int control = -1;  ///< listening socket for requests, see host/control_socket.h
};

/// Adds the options to the parser, which writes the values to options.
void describe(CLI::App &app, Options &options);

/// Completes the parsed options of a board that is to run, and opens the files that they name.
/// Throws std::runtime_error for options that are not possible.
void complete(CLI::App &app, Options &options);

}  // namespace sim
