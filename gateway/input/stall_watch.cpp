#include "gateway/input/stall_watch.h"

#include <algorithm>

namespace gateway {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPeriod(1000), kPatience(3000);
// A viewer that wakes reads what its window system kept for it within some milliseconds. A key that
// a person still holds repeats for longer: then the second bound counts.
constexpr milliseconds kQuiet(250), kLongest(1000);

}  // namespace

void StallWatch::setHolding(bool something, Time now) {
    if (state_ == kIdle && something) {
        state_ = kHolding;
        alive_ = now;
    } else if (state_ == kHolding && !something) {
        state_ = kIdle;
    }
}

void StallWatch::wake(Time now) {
    state_ = kWaking;
    busy_ = now;
    answered_ = {};
    first_ = fence_ + 1;
    wants_ = true;
}

void StallWatch::answered(std::uint32_t number, Time now) {
    alive_ = now;
    if (state_ == kStalled)
        wake(now);
    else if (state_ == kWaking && answered_ == Time{} && number >= first_)
        answered_ = now;
}

void StallWatch::acted(bool pressed, Time now) {
    if (state_ == kStalled) wake(now);
    if (state_ == kWaking && pressed) busy_ = now;
}

StallWatch::Action StallWatch::due(Time now) {
    if (state_ == kHolding && now - alive_ >= kPatience) {
        state_ = kStalled;
        wants_ = false;
        return kLetGo;
    }
    if (state_ == kWaking && answered_ != Time{} &&
        (now - busy_ >= kQuiet || now - answered_ >= kLongest))
        state_ = kIdle;
    const bool again = state_ == kHolding && now - fenced_ >= kPeriod;
    if (!wants_ && !again) return kNothing;
    wants_ = false;
    fenced_ = now;
    ++fence_;
    return kSendFence;
}

StallWatch::Time StallWatch::next() const {
    if (wants_) return Time{};
    if (state_ == kHolding) return std::min(fenced_ + kPeriod, alive_ + kPatience);
    if (state_ == kWaking && answered_ != Time{})
        return std::min(busy_ + kQuiet, answered_ + kLongest);
    return Time::max();
}

}  // namespace gateway
