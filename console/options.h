// The command line: its options, and the subcommands that main.cpp puts together.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include <quillon/session.h>

namespace quillon {

struct Options {
    std::string to, from;
    std::uint16_t port = 80;
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
    int level = 0;
    bool grant = false, refuse = false;
    bool apply = false;
    std::string escape = "ctrl+]";
};

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
