// How a program of ours begins and ends.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace quillon {

/// Parses the command line and runs a program, with the messages and the exit status of all our
/// programs: 2 for a wrong command line, 1 with the words of an exception, else what run returns.
int runProgram(CLI::App &app, int argc, char **argv, const std::function<int()> &run);

}  // namespace quillon
