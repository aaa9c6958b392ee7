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

}  // namespace service
