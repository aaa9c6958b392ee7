#include "sim/computer/plain_computer.h"

#include <utility>

#include "protocol/keys.h"
#include "protocol/us_layout.h"

namespace sim {
namespace {

std::uint8_t ledOf(std::uint8_t usage) {
    switch (usage) {
        case quillon::kUsageNumLock:
            return kNumLed;
        case quillon::kUsageCapsLock:
            return kCapsLed;
        case quillon::kUsageScrollLock:
            return kScrollLed;
        default:
            return 0;
    }
}

}  // namespace

PlainComputer::PlainComputer(std::unique_ptr<KeyReader> reader) : reader_(std::move(reader)) {}

void PlainComputer::setLeds(std::uint8_t leds) {
    const Lock lock(mutex_);
    if (reader_) {
        const auto tap = [&](std::uint8_t usage) {
            reader_->press(usage);
            reader_->release(usage);
        };
        if (((leds & kCapsLed) != 0) != reader_->capsLock()) tap(quillon::kUsageCapsLock);
        if (((leds & kNumLed) != 0) != reader_->numLock()) tap(quillon::kUsageNumLock);
    }
    setLedState(leds);
}

void PlainComputer::attach(UsbFace face) {
    const Lock lock(mutex_);
    face_ = face;
    setAttached(true);
}

void PlainComputer::detach() {
    const Lock lock(mutex_);
    setAttached(false);
}

// What the key types; lock keys take effect.
std::string PlainComputer::textOf(std::uint8_t usage) {
    if (reader_) return reader_->press(usage);
    const bool shift = (state_.modifiers & quillon::kAnyShift) != 0;
    const bool commanding = (state_.modifiers & ~quillon::kAnyShift) != 0;
    const char character =
        commanding ? '\0' : quillon::characterOf(usage, shift, (state_.leds & kCapsLed) != 0);
    return character == '\0' ? "" : std::string(1, character);
}

// Which key locks what is a matter of the layout, but for Scroll Lock.
void PlainComputer::followLocks() {
    if (!reader_) return;
    const int leds = (state_.leds & kScrollLed) | (reader_->numLock() ? kNumLed : 0) |
                     (reader_->capsLock() ? kCapsLed : 0);
    if (leds != state_.leds) setLedState(static_cast<std::uint8_t>(leds));
}

void PlainComputer::keyDown(std::uint8_t usage) {
    if (usage >= quillon::kUsageLeftCtrl) {
        if (reader_) reader_->press(usage);
        return;
    }
    const std::uint8_t led = ledOf(usage), before = state_.leds;
    const std::string text = textOf(usage);
    followLocks();
    if (led != 0 && (!reader_ || led == kScrollLed))
        setLedState(static_cast<std::uint8_t>(state_.leds ^ led));
    // A lock ends with the release of its key, which is no key of its own.
    if (state_.leds != before || (led & state_.leds) != 0) return;
    if (!text.empty()) {
        state_.text += text;
        tell(Event::kText, text);
        return;
    }
    const bool commanding = (state_.modifiers & ~quillon::kAnyShift) != 0;
    if (usage == quillon::kUsageBackspace && !commanding) {
        const auto isPart = [](char byte) { return (byte & 0xC0) == 0x80; };  // of UTF-8
        while (!state_.text.empty() && isPart(state_.text.back())) state_.text.pop_back();
        if (!state_.text.empty()) state_.text.pop_back();
    }
    Computer::keyDown(usage);
}

void PlainComputer::keyUp(std::uint8_t usage) {
    if (!reader_) return;
    reader_->release(usage);
    followLocks();  // a lock ends with the release of its key
}

void PlainComputer::keyboardReport(const std::uint8_t (&report)[8]) {
    const Lock lock(mutex_);
    if (state_.attached) readKeyboard(report);
}

void PlainComputer::absoluteReport(std::uint8_t buttons, int x, int y, std::int8_t wheel) {
    const Lock lock(mutex_);
    if (state_.attached) readAbsolute(face_, buttons, x, y, wheel);
}

void PlainComputer::relativeReport(std::uint8_t buttons, std::int8_t dx, std::int8_t dy,
                                   std::int8_t wheel) {
    const Lock lock(mutex_);
    if (state_.attached) readRelative(buttons, dx, dy, wheel);
}

}  // namespace sim
