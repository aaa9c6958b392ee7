// One QEMU process, confined: as a user of its own when root starts it, and else as the same one;
// without capabilities, network and the files of users, but for the descriptors that it is given.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "sim/host/descriptor.h"
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
/// Throws std::runtime_error when it cannot be opened.
Descriptor openState(const PcOptions &options);
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
    /// It ended by itself, because something did not suit it.
    bool failed() const { return failed_; }

    // Sockets and a pipe to poll; the first one is given away.
    Descriptor takeUsb() { return std::move(usb_); }
    int output() const { return output_.get(); }
    int serial(std::size_t line) const { return serial_[line].get(); }

  private:
    std::atomic<pid_t> pid_{0};
    std::optional<Qmp> qmp_;
    Descriptor usb_, output_, serial_[kSerialLines];
    bool failed_ = false;
};

}  // namespace sim
