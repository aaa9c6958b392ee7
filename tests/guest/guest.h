// A Debian with systemd in a virtual machine, and a shell of root in it.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <thread>

#include "sim/host/descriptor.h"
#include "sim/pc/qmp.h"

namespace test {

class Guest {
  public:
    /// Boots the system that scripts/guest has put into a folder. What it writes is gone with it.
    /// Throws std::runtime_error when QEMU does not start, or the shell does not come in time.
    explicit Guest(const std::string &folder);
    ~Guest();
    Guest(const Guest &) = delete;
    Guest &operator=(const Guest &) = delete;

    struct Outcome {
        int status = -1;  ///< -1: the command took too long
        std::string said;
    };
    /// Runs a line of bash. What it says on both outputs comes without the last line feed.
    Outcome run(const std::string &line, std::chrono::seconds patience = std::chrono::seconds(120));

    /// Stops the machine, copies its disk for settings as it is now, and lets it go on: what would
    /// be on the disk after a power cut at this moment.
    void copySettingsDisk(const std::string &to);

    std::string folder() const { return folder_; }

  private:
    std::string readUntil(const std::string &end, std::chrono::seconds patience);

    const std::string folder_;
    pid_t pid_ = 0;
    sim::Descriptor shell_;
    std::optional<sim::Qmp> qmp_;
    std::thread reader_;
    unsigned commands_ = 0;
};

}  // namespace test
