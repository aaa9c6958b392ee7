// A board to measure on, and what its chip and its daemon's process say.
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

/// One record for the i-th time; each differs from the one before.
quillon::Datagram record(Record kind, int i);

class BenchBoard {
  public:
    /// Starts it with program in the daemon's place and so many consoles. Throws
    /// std::runtime_error when it does not listen within 20 s.
    explicit BenchBoard(const std::string &program, bool paced = false, unsigned consoles = 1);
    ~BenchBoard();
    BenchBoard(const BenchBoard &) = delete;
    BenchBoard &operator=(const BenchBoard &) = delete;

    /// A socket from the i-th console to the data server.
    std::unique_ptr<quillon::Endpoint> console(unsigned i = 0) const;

    /// Keyboard and mouse frames that the chip has had, and when the last one was whole.
    unsigned frames() const;
    Clock::time_point lastFrame() const;
    /// Median time from a frame to the next since the start, which a machine that is taken away
    /// for a while does not change.
    Clock::duration medianGap() const;
    /// Waits for the count-th frame; false when it did not come in time.
    bool waitForFrames(unsigned count, std::chrono::milliseconds timeout) const;
    /// Waits until no frame has come for as long as quiet.
    void waitUntilQuiet(std::chrono::milliseconds quiet) const;

    pid_t pid() const { return board_->daemon()->pid(); }
    long residentKiB() const;
    /// User and system time so far.
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
