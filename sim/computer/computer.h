// The computer at the end of the chip's USB cable, and its state after the reports it took.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// Bits of the lock LEDs, as the keyboard's LED report has them.
enum Led : std::uint8_t { kNumLed = 1, kCapsLed = 2, kScrollLed = 4 };

/// What the computer sees at the end of the chip's cable; each is a keyboard and a mouse.
enum class UsbFace {
    kCh9329,          ///< relative and absolute mouse, 4096 steps
    kCh9350Absolute,  ///< absolute mouse, 1024 steps
    kCh9350Relative
};

/// Absolute positions go from 0 to this, less one.
constexpr int stepsOf(UsbFace face) {
    return face == UsbFace::kCh9329 ? 4096 : 1024;
}

/// How long ago that was, as "0.3 s".
std::string secondsSince(std::chrono::steady_clock::time_point since);

/// The power switch and the screen of a computer that has them. Safe to use from any thread; a
/// call may wait some seconds.
class Machine {
  public:
    virtual ~Machine() = default;

    struct Screen {
        std::vector<std::string> lines;  ///< of a text screen, UTF-8; none for a graphics mode
        int cursorRow = -1, cursorColumn = -1;  ///< -1: hidden
        int width = 0, height = 0;              ///< of the picture, pixels
    };

    /// These throw std::runtime_error, in words for a person, when the computer is off or does not
    /// answer.
    virtual Screen screen() = 0;
    virtual std::string screenshot() = 0;  ///< a PNG file
    virtual void reset() = 0;

    /// Starts to switch it on; it may take a minute. False when it is on.
    virtual bool switchOn() = 0;
    virtual void switchOff() = 0;
    /// In words, what it is and what is the matter with it.
    virtual std::string condition() const = 0;
    /// Path of the socket with its picture (RFB); empty for none.
    virtual std::string picture() const = 0;
};

/// Safe to use from any thread.
class Computer {
  public:
    /// Positions of a report span this screen.
    static constexpr int kScreenWidth = 1920, kScreenHeight = 1080, kSteps = 4096;

    struct State {
        bool attached = false;  ///< keyboard and mouse are plugged in and configured
        std::uint8_t modifiers = 0;
        std::array<std::uint8_t, 6> keys{};  ///< usages down
        std::string text;                    ///< all that was typed; Backspace removes a character
        std::uint8_t leds = 0;
        int x = 0, y = 0;                    ///< pointer, pixels of the screen
        int absoluteX = -1, absoluteY = -1;  ///< of the last absolute report, 0 to 4095; -1: none
        std::uint8_t buttons = 0;
        int wheel = 0;         ///< sum of all notches
        unsigned reports = 0;  ///< that the computer took
        /// Of a computer that fetches reports: how many wait for it, how many were replaced by a
        /// newer one or were lost without a computer, when it took the last one, and since when
        /// one has been on its way.
        std::size_t waiting = 0;
        unsigned replaced = 0, lost = 0;
        std::optional<std::chrono::steady_clock::time_point> taken, waitingSince;
    };

    struct Event {
        enum Kind { kText, kKey, kPointer, kButtons, kWheel, kLeds, kUsb, kPower };
        Kind kind;
        std::string what;  ///< in words; for kText the character itself
    };

    virtual ~Computer() = default;

    State state() const;

    /// Waits until wanted(state) is true; false after timeout.
    bool waitFor(const std::function<bool(const State &)> &wanted,
                 std::chrono::milliseconds timeout) const;

    /// Calls back for every event, from the thread that causes it. The callback must not call this
    /// object.
    void onEvent(std::function<void(const Event &)> callback);

    /// Null for a computer without a power switch and a screen.
    virtual Machine *machine() { return nullptr; }

    // Called by the chip; none of them waits for the computer.
    virtual void attach(UsbFace face) = 0;
    /// Every key and button is up afterwards.
    virtual void detach() = 0;
    virtual void keyboardReport(const std::uint8_t (&report)[8]) = 0;
    /// Positions in the steps of the face.
    virtual void absoluteReport(std::uint8_t buttons, int x, int y, std::int8_t wheel) = 0;
    virtual void relativeReport(std::uint8_t buttons, std::int8_t dx, std::int8_t dy,
                                std::int8_t wheel) = 0;

  protected:
    using Lock = std::lock_guard<std::mutex>;

    // What reports do to the state, and the events that follow; with mutex_ held.
    void readKeyboard(const std::uint8_t (&report)[8]);
    void readAbsolute(UsbFace face, std::uint8_t buttons, int x, int y, std::int8_t wheel);
    void readRelative(std::uint8_t buttons, std::int8_t dx, std::int8_t dy, std::int8_t wheel);
    void letAllGo();
    void setLedState(std::uint8_t leds);
    void setAttached(bool attached);
    void tell(Event::Kind kind, const std::string &what);

    // A key or modifier key, with mutex_ held. The state's keys are those after the report.
    virtual void keyDown(std::uint8_t usage);
    virtual void keyUp(std::uint8_t) {}

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    State state_;

  private:
    void setModifiers(std::uint8_t modifiers);
    void mouse(std::uint8_t buttons, bool moved, std::int8_t wheel);

    std::function<void(const Event &)> callback_;
};

}  // namespace sim
