// The command line: its options, and the subcommands that main.cpp puts together.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "console/preferences.h"
#include "protocol/ports.h"
#include <quillon/session.h>

namespace quillon {

struct Options {
    std::string to, from;
    std::uint16_t port = kRecordPort;
    unsigned intervalMs = 8;
    unsigned timeoutMs = 2000;
    bool json = false, asSoftware = false, viaGroup = false;

    // Of single commands.
    std::string text;
    std::vector<std::string> combos;
    unsigned repeat = 1;
    std::vector<std::uint16_t> position;
    std::vector<int> distance;
    std::string button;
    int notches = 0;
    std::vector<std::string> leds;
    std::string mode;
    std::string user, output;
    std::optional<int> level;
    std::string layout, variant, system, unicode;
    bool keepLocks = false;
    bool grant = false, refuse = false;
    bool apply = false;
    std::string escape = "ctrl+]";
};

/// What the person prefers for the endpoint of these options, by the file alone. Throws like
/// readPreferences().
Preferences preferencesOf(const Options &options);
/// The layout of the computer, see layoutOf().
LayoutChoice layoutOf(const Options &options);
/// Adds --layout, --variant and --system to a subcommand.
void addLayoutOptions(CLI::App &command, Options &options);
/// Prints the layouts of the database when --layout says "list"; false otherwise.
bool listLayouts(const Options &options);

/// Adds all options and subcommands to the parser, which writes the values to options.
void describe(CLI::App &app, Options &options);

/// Throws CLI::RequiredError without an address to talk to.
Session openSession(const Options &options);

// Each adds subcommands; the file of that name says which.
void addTypingCommands(CLI::App &app, Options &options);
void addMouseCommands(CLI::App &app, Options &options);
void addQuestionCommands(CLI::App &app, Options &options);
void addSwitchCommands(CLI::App &app, Options &options);
void addTakingCommands(CLI::App &app, Options &options);
void addWatchCommand(CLI::App &app, Options &options);
void addControlCommand(CLI::App &app, Options &options);

}  // namespace quillon
