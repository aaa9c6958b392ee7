// A board for measurements: what reaches its chip, and what its daemon's process uses.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "protocol/input.h"
#include "protocol/records.h"
#include "sim/board.h"
#include <quillon/endpoint.h>

namespace bench {

using sim::Clock;

enum class Record { kKeyboard, kPosition };

/// The i-th record of a kind; it differs from the one before.
quillon::Datagram record(Record kind, int i);

class BenchBoard {
  public:
    /// Starts a board with program as its daemon. Throws std::runtime_error when that does not
    /// listen within 20 s, or the system refuses.
    explicit BenchBoard(const std::string &program, bool paced = false, unsigned consoles = 1);
    ~BenchBoard();
    BenchBoard(const BenchBoard &) = delete;
    BenchBoard &operator=(const BenchBoard &) = delete;

    /// A socket from the i-th console to the data server.
    std::unique_ptr<quillon::Endpoint> console(unsigned i = 0) const;

    /// Keyboard and absolute mouse frames that the chip received, and when the last was complete.
    unsigned frames() const;
    Clock::time_point lastFrame() const;
    /// Median time from one frame to the next since the start; a pause of the machine does not
    /// change it. Zero unless the board is paced.
    Clock::duration medianGap() const;
    /// Waits for the count-th frame; false when it did not come in time.
    bool waitForFrames(unsigned count, std::chrono::milliseconds timeout) const;
    /// Waits until no frame has come for the time quiet.
    void waitUntilQuiet(std::chrono::milliseconds quiet) const;

    pid_t pid() const { return board_->daemon()->pid(); }
    long residentKiB() const;
    /// User and system time of the daemon's threads so far.
    double cpuSeconds() const;

  private:
    std::unique_ptr<sim::Board> board_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    unsigned frames_ = 0;
    Clock::time_point last_{};
    std::vector<Clock::duration> gaps_;
};

}  // namespace bench
