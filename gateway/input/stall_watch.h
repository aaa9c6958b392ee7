// Finds out that a viewer does not react any more while it holds a key or a button.
#pragma once

#include <chrono>
#include <cstdint>

namespace gateway {

/// Knows no socket and no clock. For viewers that answer fences; an object for each.
class StallWatch {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// Whether something is down now.
    void setHolding(bool something, Time now);
    /// A fence was answered, the one with this number.
    void answered(std::uint32_t number, Time now);
    /// The viewer did something: pressed a key, say, or let one go. While input is dropped, presses
    /// show that it still sends what waited.
    void acted(bool pressed, Time now);

    enum Action { kNothing, kSendFence, kLetGo };
    /// What is to be done now; call it until it says kNothing.
    Action due(Time now);
    /// The number of the fence to send.
    std::uint32_t fence() const { return fence_; }
    /// When to call due() again; Time::max() for never.
    Time next() const;

    /// After a stall the viewer sends what waited meanwhile, all of it stale. It counts again when
    /// it has answered a fence that was sent since it woke up, and has been quiet for a moment.
    bool dropping() const { return state_ == kStalled || state_ == kWaking; }

  private:
    enum State { kIdle, kHolding, kStalled, kWaking };
    void wake(Time now);

    State state_ = kIdle;
    Time alive_{};     ///< since when no answer came
    Time fenced_{};    ///< when the last fence was sent
    Time busy_{};      ///< when it last pressed something, waking
    Time answered_{};  ///< when it answered a fence that was sent after it woke up; or not yet
    std::uint32_t fence_ = 0, first_ = 0;  ///< the last one, and the first one after it woke up
    bool wants_ = false;
};

}  // namespace gateway
