#include "console/lock_guard.h"

#include <cstdio>
#include <stdexcept>

#include "terminal/printable.h"

namespace quillon {

LockGuard::~LockGuard() {
    if (!before_) return;
    try {
        session_.setLockKeys(*before_, asSoftware_);
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "quillon-console: the lock keys are not as they were: %s\n",
                printable(error.what()).c_str());
    }
}

void LockGuard::require(bool caps, bool numOn) {
    const LockKeys now = session_.lockKeys();
    const LockKeys wanted{caps, now.num || numOn};
    if (wanted.caps == now.caps && wanted.num == now.num) return;
    before_ = now;
    session_.setLockKeys(wanted, asSoftware_);
}

}  // namespace quillon
