// How many lines of a flood are shown.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <utility>

namespace quillon {

/// Admits ten lines a second from each sender; the rest of a flood is counted.
class Throttle {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// preferred: an address that has its ten lines however many other senders there are.
    explicit Throttle(std::string preferred) : preferred_(std::move(preferred)) {}

    bool admits(const std::string &sender, Time now) {
        constexpr unsigned kMostLines = 10;
        constexpr std::size_t kMostSenders = 64;
        constexpr std::chrono::seconds kPeriod(1);
        if (now - begin_ >= kPeriod) {
            begin_ = now;
            lines_.clear();
        }
        const bool known = lines_.size() < kMostSenders || sender == preferred_;
        if ((known || lines_.count(sender) != 0) && ++lines_[sender] <= kMostLines) return true;
        ++surplus_;
        return false;
    }
    /// How many were not admitted since the last call.
    unsigned takeSurplus() { return std::exchange(surplus_, 0); }

  private:
    const std::string preferred_;
    Time begin_{};
    std::map<std::string, unsigned> lines_;
    unsigned surplus_ = 0;
};

}  // namespace quillon
