#include "console/lock_guard.h"

#include <cstdio>
#include <stdexcept>
#include <string>

#include "console/interrupt.h"
#include "terminal/printable.h"

namespace quillon {

LockKeys certainLockKeys(Session &session) {
    constexpr int kTries = 4;
    std::optional<LockKeys> last;
    for (int i = 0; i < kTries; ++i) {
        std::optional<LockKeys> now;
        try {
            now = session.lockKeys();
        } catch (const std::runtime_error &) {
            if (i + 1 == kTries) throw;
        }
        if (last && now && last->caps == now->caps && last->num == now->num) return *now;
        last = now;
    }
    throw std::runtime_error("the endpoint does not say clearly which lock keys are on");
}

LockGuard::~LockGuard() {
    try {
        restore();
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "quillon-console: %s\n", printable(error.what()).c_str());
    }
}

void LockGuard::restore() {
    if (!before_) return;
    const LockKeys before = *before_;
    before_.reset();
    try {
        session_.setLockKeys(before, asSoftware_);
    } catch (const std::runtime_error &error) {
        throw std::runtime_error(std::string("the lock keys are not as they were: ") +
                                 error.what());
    }
}

void LockGuard::require(bool caps, bool numOn) {
    const LockKeys now = certainLockKeys(session_);
    const LockKeys wanted{caps, now.num || numOn};
    if (wanted.caps == now.caps && wanted.num == now.num) return;
    catchSignals();
    before_ = now;
    session_.setLockKeys(wanted, asSoftware_);
}

}  // namespace quillon
