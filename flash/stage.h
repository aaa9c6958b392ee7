// The upload itself, in a process of its own: what it logs tells how far it is, and it can be
// ended at any time.
#pragma once

#include <sys/types.h>

#include <string>

namespace flash {

class Stage {
  public:
    /// Starts to upload file through the serial port of ./quillon.ini; the result goes to the
    /// queue c_netmsgid. Throws std::system_error when the process cannot be started.
    explicit Stage(const std::string &file);
    /// Ends it if it still runs.
    ~Stage();
    Stage(const Stage &) = delete;
    Stage &operator=(const Stage &) = delete;

    /// Where its log comes from; what ends when it ends.
    int log() const { return log_; }

    /// Waits for its end: "status 1" or "signal 9".
    std::string end();

  private:
    pid_t pid_ = -1;
    int log_ = -1;
};

}  // namespace flash
