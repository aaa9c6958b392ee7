#include "gateway/input/lock_keys.h"

#include "protocol/keys.h"

namespace gateway {

void LockState::pressed(std::uint8_t usage, Time now) {
    if (usage == quillon::kUsageCapsLock)
        expected_.caps = !expected_.caps;
    else if (usage == quillon::kUsageNumLock)
        expected_.num = !expected_.num;
    else
        return;
    forget();
    pressed_ = now;
}

void LockState::forget() {
    certain_.reset();
    last_.reset();
    asks_ = 0;
}

bool LockState::answered(const quillon::LockKeys &locks, Time asked) {
    if (asked <= pressed_ || asked == asked_) return false;
    asked_ = asked;
    const bool agrees = last_ && last_->caps == locks.caps && last_->num == locks.num;
    last_ = locks;
    constexpr int kMostAsks = 5;
    if (!agrees) return ++asks_ < kMostAsks;
    certain_ = expected_ = locks;
    asks_ = 0;
    return false;
}

}  // namespace gateway
