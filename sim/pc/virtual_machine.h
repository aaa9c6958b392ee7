// One QEMU process, confined: no network, no rights, nothing of the system that it could write to.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "sim/pc/qmp.h"

namespace sim {

/// What boots. kDisk and kIso are a file of the user's.
enum class Boot { kBios, kGrub, kLinux, kDisk, kIso };

struct PcOptions {
    Boot boot = Boot::kBios;
    std::string image;   ///< for kDisk and kIso: the file, raw or qcow2
    std::string folder;  ///< where scripts/computer put what kGrub and kLinux need
};

/// What of QEMU and of the files is missing, in words with the way out; empty: nothing.
std::string missingFor(const PcOptions &options);

/// The saved state of a Linux guest that waits at its prompt.
std::string stateFile(const PcOptions &options);
/// Whether there is one that is newer than what it was made from.
bool hasState(const PcOptions &options);

class VirtualMachine {
  public:
    static constexpr std::size_t kSerialLines = 2;

    /// Starts QEMU, with the computer stopped; with state a descriptor of a saved state, which it
    /// reads first. Throws std::runtime_error when that cannot be started.
    VirtualMachine(const PcOptions &options, int state);
    /// Kills it if it still runs.
    ~VirtualMachine();
    VirtualMachine(const VirtualMachine &) = delete;
    VirtualMachine &operator=(const VirtualMachine &) = delete;

    Qmp &qmp() { return *qmp_; }
    pid_t process() const { return pid_; }
    void kill() const;
    /// Waits for its end, and kills it after some seconds. Why it ended, in words.
    std::string awaitEnd();

    // Sockets and a pipe to poll; the first one is given away, its taker closes it.
    int takeUsb();
    int output() const { return output_; }
    int serial(std::size_t line) const { return serial_[line]; }

  private:
    std::atomic<pid_t> pid_{0};
    std::optional<Qmp> qmp_;
    int usb_ = -1, output_ = -1, serial_[kSerialLines] = {-1, -1};
};

}  // namespace sim
