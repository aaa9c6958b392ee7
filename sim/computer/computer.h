// The computer at the end of the chip's USB cable, and its state after the reports it received.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "sim/computer/key_reader.h"

namespace sim {

/// Bits of the lock LEDs, as the keyboard's LED report has them.
enum Led : std::uint8_t { kNumLed = 1, kCapsLed = 2, kScrollLed = 4 };

/// Safe to use from any thread.
class Computer {
  public:
    /// The absolute positions of a report, 0 to 4095, span this screen.
    static constexpr int kScreenWidth = 1920, kScreenHeight = 1080, kSteps = 4096;

    struct State {
        bool attached = false;
        std::uint8_t modifiers = 0;
        std::array<std::uint8_t, 6> keys{};  ///< usages down
        std::string text;                    ///< all that was typed; Backspace removes a character
        std::uint8_t leds = 0;
        int x = 0, y = 0;                    ///< pointer, pixels of the screen
        int absoluteX = -1, absoluteY = -1;  ///< of the last absolute report, 0 to 4095; -1: none
        std::uint8_t buttons = 0;
        int wheel = 0;  ///< sum of all notches
        unsigned reports = 0;
    };

    struct Event {
        enum Kind { kText, kKey, kPointer, kButtons, kWheel, kLeds, kUsb };
        Kind kind;
        std::string what;  ///< in words; for kText the character itself
    };

    /// Reads keys with another layout from now on. Without this, with that of a US keyboard.
    void setLayout(std::unique_ptr<KeyReader> reader);

    State state() const;

    /// Waits until wanted(state) is true; false after timeout.
    bool waitFor(const std::function<bool(const State &)> &wanted,
                 std::chrono::milliseconds timeout) const;

    /// Calls back for every event, from the thread that causes it. The callback must not call this
    /// object.
    void onEvent(std::function<void(const Event &)> callback);

    /// Sets the lock LEDs, as a person does at the computer's own keyboard.
    void setLeds(std::uint8_t leds);

    // Called by the chip.
    void attach();
    /// Every key and button is up afterwards.
    void detach();
    void keyboardReport(const std::uint8_t (&report)[8]);
    void absoluteReport(std::uint8_t buttons, int x, int y, std::int8_t wheel);
    void relativeReport(std::uint8_t buttons, std::int8_t dx, std::int8_t dy, std::int8_t wheel);

  private:
    void keyDown(std::uint8_t usage);
    void keyUp(std::uint8_t usage);
    void setModifiers(std::uint8_t modifiers);
    std::string textOf(std::uint8_t usage);
    void followLocks();
    void mouse(std::uint8_t buttons, bool moved, std::int8_t wheel);
    void tell(Event::Kind kind, const std::string &what);

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    State state_;
    std::function<void(const Event &)> callback_;
    std::unique_ptr<KeyReader> reader_;
};

}  // namespace sim
