// Lines for a person or a log, from a program that must not wait for who reads them.
#pragma once

#include <chrono>
#include <string>

namespace gateway {

/// Writes to standard output. A line that nobody takes is counted instead of written; the next one
/// that is written says how many. An object is for one thread.
class Reporter {
  public:
    /// What a person waits for. line: foreign text may be in it.
    void tell(const std::string &line);
    /// What others cause: 20 lines in a second at most.
    void operator()(const std::string &line);

  private:
    using Clock = std::chrono::steady_clock;

    bool write(const std::string &line);

    Clock::time_point second_{};
    unsigned inSecond_ = 0, lost_ = 0;
};

}  // namespace gateway
