// Keyboard and mouse of one endpoint, as records that are sent more than once: neither the network
// nor the chip's line repeats what it loses, and a lost release would leave a key down.
#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include "protocol/input.h"

namespace quillon {

/// Says when a state is to be sent again.
class Resends {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// tail: for how long after a change a state is sent every second when nothing is down.
    explicit Resends(std::chrono::milliseconds tail) : tail_(tail) {}

    /// A new state was sent at this time, and is to be sent again after each of these durations.
    void changed(Time now, std::vector<std::chrono::milliseconds> after);
    /// The state was sent again.
    void sent(Time now) { last_ = now; }
    /// False while the state is so new that it is due to be sent again soon.
    bool settled() const;
    /// When to send it again; Time::max() for never. held: something is down.
    Time due(bool held) const;

  private:
    const std::chrono::milliseconds tail_;
    std::vector<std::chrono::milliseconds> after_;
    Time changed_{}, last_{};
    bool active_ = false;
};

/// Knows no socket and no clock: the caller sends what next() returns, at the time of due(). A
/// record is the whole state of the keyboard, or of the pointer in absolute mode, so sending it
/// again does no harm; movements of relative mode are returned once. An object is for one thread at
/// a time.
class HealedInput {
  public:
    using Time = Resends::Time;

    /// pace: least time between two records, for the slow line of the chip. Without healing every
    /// record is sent once.
    explicit HealedInput(std::chrono::milliseconds pace, bool healing = true)
        : pace_(pace), healing_(healing) {}

    /// The new state of the keyboard. The state before it is sent timesBefore times at least,
    /// however short it was, unless eight records wait already. Four times, because then one state
    /// in a million is lost when one record in 33 is.
    void setKeyboard(const Stroke &down, int timesBefore = 4);
    const Stroke &keyboard() const { return keyboard_; }
    /// Presses a key with its modifiers, which go down before it; what else is down goes up. The
    /// key stays down.
    void press(const Stroke &stroke);

    /// Whether the endpoint takes movements, or else positions. Buttons stay as they are.
    void setRelative(bool relative) { relative_ = relative; }
    bool relative() const { return relative_; }
    /// A position, in pixels of the endpoint's picture. It replaces one that waits at the end.
    void moveTo(std::uint16_t x, std::uint16_t y);
    /// The last position; none before the first one.
    std::optional<std::pair<std::uint16_t, std::uint16_t>> position() const {
        return placed_ ? std::make_optional(std::make_pair(x_, y_)) : std::nullopt;
    }
    /// A movement in the chip's own units. What waits to be sent ends at 32767 to each side.
    void moveByDistance(int dx, int dy);
    /// The button that is down, or none: an endpoint passes one at a time.
    void setButton(Button button);
    Button button() const { return button_; }
    /// Positive is away from the user.
    void turnWheel(std::int8_t notches);

    /// The records that let keys go, and buttons where a position is known, of the kinds that
    /// software can send too.
    std::vector<Datagram> released() const;
    /// Lets everything go, also when nothing is down.
    void releaseAll();
    /// Sends the present state again, because the endpoint may have lost it.
    void refresh();
    /// Forgets what waits to be sent. From now on the pace is slowest at most.
    void abandon(std::chrono::milliseconds slowest);

    /// The record to send at this time; none when nothing is due.
    std::optional<Datagram> next(Time now);
    /// When to call next(), which may still return none; Time::max() for never.
    Time due() const;
    /// No key is down, and that has been sent as often as a change is.
    bool keysAtRest() const { return !keysHeld() && keysWaiting_ == 0 && keys_.settled(); }
    /// Nothing that a person did waits to be sent.
    bool idle() const { return queue_.empty(); }
    /// Records that wait.
    std::size_t waiting() const { return queue_.size(); }

  private:
    enum Kind { kKeys, kKeysAgain, kPosition, kButton, kMovement, kOnce };
    struct Entry {
        Kind kind;
        Datagram record;  ///< not of a movement, which is cut into records as it goes
        int dx = 0, dy = 0;
        Button button = kNoButton;
    };

    Datagram pointerRecord(std::int8_t wheel = 0) const;
    std::optional<Datagram> resend(Time now);
    void noteSent(Kind kind, Time now);
    void add(Kind kind, Datagram record);
    std::optional<Datagram> nextStep();
    bool keysHeld() const { return !(keyboard_ == Stroke{}); }

    std::chrono::milliseconds pace_;
    const bool healing_;
    Stroke keyboard_;
    bool relative_ = false;
    std::uint16_t x_ = 0, y_ = 0;
    bool placed_ = false;  ///< a position is known
    Button button_ = kNoButton;

    std::deque<Entry> queue_;
    Resends keys_{std::chrono::seconds(5)}, pointer_{std::chrono::seconds(0)};
    int keysWaiting_ = 0;  ///< entries of the queue that are keys
    int keysTimes_ = 4;    ///< how often the present state of the keyboard went out, or will
    Time free_{};          ///< from when on the next record may go
};

}  // namespace quillon
