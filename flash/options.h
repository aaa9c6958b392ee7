// The command line of quillon-flash.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace flash {

/// Where the settings are when the current folder has none.
constexpr char kUsualFolder[] = "/data/quillon";

struct Options {
    std::string file, folder;
    bool yes = false;
};

/// Adds the options to the parser, which writes the values to options.
void describe(CLI::App &app, Options &options);

}  // namespace flash
