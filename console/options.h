// The pieces of the command line, which main.cpp puts together.
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

/// "type", "key" and "mouse".
void addRecordCommands(CLI::App &app, Options &options);
/// Questions and switches.
void addEndpointCommands(CLI::App &app, Options &options);
/// "apply", "connect", "disconnect" and "watch".
void addLinkCommands(CLI::App &app, Options &options);
/// "control".
void addControlCommand(CLI::App &app, Options &options);

}  // namespace quillon
