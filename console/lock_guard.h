// Caps Lock and Num Lock of the computer, while something is typed.
#pragma once

#include <optional>

#include <quillon/session.h>

namespace quillon {

/// The lock LEDs, when two answers in a row agree: an endpoint whose chip did not answer says that
/// all are off. Throws std::runtime_error when it does not get them.
LockKeys certainLockKeys(Session &session);

/// Puts the lock keys back at its end as they were at its beginning.
class LockGuard {
  public:
    /// asSoftware: requests are marked as sent by software.
    LockGuard(Session &session, bool asSoftware) : session_(session), asSoftware_(asSoftware) {}
    /// Restores them unless restore() did; a failure is printed.
    ~LockGuard();
    LockGuard(const LockGuard &) = delete;
    LockGuard &operator=(const LockGuard &) = delete;

    /// Asks for the lock LEDs, and when they are not as wanted sets them and sees that they are.
    /// Num Lock is left alone unless it is to be on. Throws std::runtime_error when the computer
    /// does not follow.
    void require(bool caps, bool numOn);
    /// Puts the lock keys back. Throws std::runtime_error when the computer does not follow.
    void restore();

  private:
    Session &session_;
    const bool asSoftware_;
    std::optional<LockKeys> before_;  ///< while they differ from that
};

}  // namespace quillon
