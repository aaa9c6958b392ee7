// The command lines of the programs that stand beside the daemon.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace service {

constexpr char kStateFolder[] = "/var/lib/quillon";

struct GuardOptions {
    std::string folder = kStateFolder;
};
void describeGuard(CLI::App &app, GuardOptions &options);

struct HealthOptions {
    std::string folder = kStateFolder;
    unsigned patience = 25;  ///< seconds
};
void describeHealth(CLI::App &app, HealthOptions &options);

struct DoctorOptions {
    std::string folder = kStateFolder, user;
    bool keepChipAlone = false, withoutMemory = false;
};
void describeDoctor(CLI::App &app, DoctorOptions &options);

struct FenceOptions {
    std::string file = "/etc/quillon/fence.toml";
    bool keep = false;
};
void describeFence(CLI::App &app, FenceOptions &options);

/// Parses the command line and runs a program, with the messages and the exit status of all our
/// programs: 2 for a wrong command line, 1 with the words of an exception, else what run returns.
int runProgram(CLI::App &app, int argc, char **argv, const std::function<int()> &run);

}  // namespace service
