// What is known of the computer's lock keys. A viewer that is told a wrong state presses the lock
// key to mend it, so only what is certain is told.
#pragma once

#include <chrono>
#include <optional>

#include "protocol/answers.h"

namespace gateway {

class LockState {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// A lock key with this HID usage goes out; other keys do not count.
    void pressed(std::uint8_t usage, Time now);
    /// The endpoint answered a question that was asked at this time. True when it is to be asked
    /// once more: an endpoint whose chip does not answer says that all are off, so two answers have
    /// to agree. After some that do not it is given up: each question stops records for 190 ms.
    bool answered(const quillon::LockKeys &locks, Time asked);
    /// The endpoint was away, and what was known may have changed.
    void forget();

    /// What two answers said, both to questions after the last lock key; none until then.
    const std::optional<quillon::LockKeys> &certain() const { return certain_; }
    /// What the computer has when every lock key that went out has arrived.
    const quillon::LockKeys &expected() const { return expected_; }

  private:
    quillon::LockKeys expected_;
    std::optional<quillon::LockKeys> certain_, last_;
    Time pressed_{}, asked_{};
    int asks_ = 0;  ///< for two answers that agree
};

}  // namespace gateway
