// The computer at the end of the chip's USB cable: what it makes of the reports it gets.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

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
        std::string text;                    ///< all that was typed; Backspace takes back
        std::uint8_t leds = 0;
        int x = 0, y = 0;                    ///< pointer, pixels of the screen
        int absoluteX = -1, absoluteY = -1;  ///< last absolute report as it came
        std::uint8_t buttons = 0;
        int wheel = 0;  ///< sum of all notches
        unsigned reports = 0;
    };

    struct Event {
        enum Kind { kText, kKey, kPointer, kButtons, kWheel, kLeds, kUsb };
        Kind kind;
        std::string what;  ///< in words; the characters themselves for kText
    };

    State state() const;

    /// Waits until the state is as the caller wants it; false when it was not in time.
    bool waitFor(const std::function<bool(const State &)> &wanted,
                 std::chrono::milliseconds timeout) const;

    /// Calls back for everything that arrives, from the chip's thread.
    void onEvent(std::function<void(const Event &)> callback);

    /// A person at the computer's own keyboard sets the lock keys.
    void setLeds(std::uint8_t leds);

    // What the chip does to it.
    void attach();
    /// Every key and button is up afterwards.
    void detach();
    void keyboardReport(const std::uint8_t (&report)[8]);
    void absoluteReport(std::uint8_t buttons, int x, int y, std::int8_t wheel);
    void relativeReport(std::uint8_t buttons, std::int8_t dx, std::int8_t dy, std::int8_t wheel);

  private:
    void keyDown(std::uint8_t usage);
    void mouse(std::uint8_t buttons, bool moved, std::int8_t wheel);
    void tell(Event::Kind kind, const std::string &what);

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    State state_;
    std::function<void(const Event &)> callback_;
};

}  // namespace sim
