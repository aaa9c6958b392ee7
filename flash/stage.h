// Runs the upload in a process of its own, so that its log shows the progress and it can be ended
// at any time.
#pragma once

#include <sys/types.h>

#include <string>

namespace flash {

class Stage {
  public:
    /// Starts to upload file through the serial port of ./quillon.ini; the result goes to the
    /// queue c_netmsgid. Throws std::system_error when the process cannot be started.
    explicit Stage(const std::string &file);
    /// Kills the process if it still runs.
    ~Stage();
    Stage(const Stage &) = delete;
    Stage &operator=(const Stage &) = delete;

    /// Descriptor of its log, a pipe that ends with the process.
    int log() const { return log_; }

    /// Waits until the process ends: "status 1" or "signal 9", empty after an earlier wait.
    std::string end();

  private:
    pid_t pid_ = -1;
    int log_ = -1;
};

}  // namespace flash
