#include "sim/computer/computer.h"

#include <algorithm>
#include <utility>

#include "protocol/keys.h"
#include "protocol/us_layout.h"

namespace sim {
namespace {

using Lock = std::lock_guard<std::mutex>;

std::string ledNames(std::uint8_t leds) {
    const auto state = [&](Led led) { return (leds & led) != 0 ? "on" : "off"; };
    return std::string("Num ") + state(kNumLed) + ", Caps " + state(kCapsLed) + ", Scroll " +
           state(kScrollLed);
}

std::string buttonNames(std::uint8_t buttons) {
    std::string names;
    if ((buttons & 1) != 0) names += "left ";
    if ((buttons & 2) != 0) names += "right ";
    if ((buttons & 4) != 0) names += "middle ";
    return names.empty() ? "none down" : names + "down";
}

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

Computer::State Computer::state() const {
    const Lock lock(mutex_);
    return state_;
}

bool Computer::waitFor(const std::function<bool(const State &)> &wanted,
                       std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return wanted(state_); });
}

void Computer::onEvent(std::function<void(const Event &)> callback) {
    const Lock lock(mutex_);
    callback_ = std::move(callback);
}

void Computer::tell(Event::Kind kind, const std::string &what) {
    if (callback_) callback_({kind, what});
}

void Computer::setLeds(std::uint8_t leds) {
    const Lock lock(mutex_);
    if (reader_) {
        const auto tap = [&](std::uint8_t usage) {
            reader_->press(usage);
            reader_->release(usage);
        };
        if (((leds & kCapsLed) != 0) != reader_->capsLock()) tap(quillon::kUsageCapsLock);
        if (((leds & kNumLed) != 0) != reader_->numLock()) tap(quillon::kUsageNumLock);
    }
    state_.leds = leds;
    tell(Event::kLeds, ledNames(leds));
    changed_.notify_all();
}

void Computer::setLayout(std::unique_ptr<KeyReader> reader) {
    const Lock lock(mutex_);
    reader_ = std::move(reader);
}

void Computer::attach() {
    const Lock lock(mutex_);
    if (state_.attached) return;
    state_.attached = true;
    tell(Event::kUsb, "keyboard and mouse attached");
    changed_.notify_all();
}

void Computer::detach() {
    const Lock lock(mutex_);
    if (!state_.attached) return;
    state_.attached = false;
    for (const std::uint8_t usage : state_.keys)
        if (usage != 0) keyUp(usage);
    setModifiers(0);
    state_.buttons = 0;
    state_.keys.fill(0);
    tell(Event::kUsb, "keyboard and mouse gone");
    changed_.notify_all();
}

// What the key types; lock keys take effect.
std::string Computer::textOf(std::uint8_t usage) {
    if (reader_) return reader_->press(usage);
    const bool shift = (state_.modifiers & quillon::kAnyShift) != 0;
    const bool commanding = (state_.modifiers & ~quillon::kAnyShift) != 0;
    const char character =
        commanding ? '\0' : quillon::characterOf(usage, shift, (state_.leds & kCapsLed) != 0);
    return character == '\0' ? "" : std::string(1, character);
}

// Which key locks what is a matter of the layout, but for Scroll Lock.
void Computer::followLocks() {
    if (!reader_) return;
    const int leds = (state_.leds & kScrollLed) | (reader_->numLock() ? kNumLed : 0) |
                     (reader_->capsLock() ? kCapsLed : 0);
    if (leds == state_.leds) return;
    state_.leds = static_cast<std::uint8_t>(leds);
    tell(Event::kLeds, ledNames(state_.leds));
}

void Computer::keyDown(std::uint8_t usage) {
    const std::uint8_t led = ledOf(usage), before = state_.leds;
    const std::string text = textOf(usage);
    followLocks();
    if (led != 0 && (!reader_ || led == kScrollLed)) {
        state_.leds ^= led;
        tell(Event::kLeds, ledNames(state_.leds));
    }
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
    tell(Event::kKey, quillon::strokeName({state_.modifiers, usage}));
}

void Computer::keyUp(std::uint8_t usage) {
    if (!reader_) return;
    reader_->release(usage);
    followLocks();  // a lock ends with the release of its key
}

// A computer takes the modifier keys of one report from the lowest bit up.
void Computer::setModifiers(std::uint8_t modifiers) {
    constexpr int kBits = 8;
    for (int n = 0; n < kBits; ++n) {
        const unsigned bit = 1U << n;
        const auto usage = static_cast<std::uint8_t>(quillon::kUsageLeftCtrl + n);
        if ((state_.modifiers & bit) != 0 && (modifiers & bit) == 0) keyUp(usage);
        if ((state_.modifiers & bit) == 0 && (modifiers & bit) != 0 && reader_)
            reader_->press(usage);
    }
    state_.modifiers = modifiers;
}

void Computer::keyboardReport(const std::uint8_t (&report)[8]) {
    const Lock lock(mutex_);
    if (!state_.attached) return;
    std::array<std::uint8_t, 6> keys;
    std::copy(report + 2, report + 8, keys.begin());
    const auto before = state_.keys;
    const auto holds = [](const auto &all, std::uint8_t usage) {
        return std::find(all.begin(), all.end(), usage) != all.end();
    };
    setModifiers(report[0]);
    state_.keys = keys;
    ++state_.reports;
    for (const std::uint8_t usage : before)
        if (usage != 0 && !holds(keys, usage)) keyUp(usage);
    for (const std::uint8_t usage : keys)
        if (usage != 0 && !holds(before, usage)) keyDown(usage);
    changed_.notify_all();
}

void Computer::mouse(std::uint8_t buttons, bool moved, std::int8_t wheel) {
    const std::string place = std::to_string(state_.x) + "," + std::to_string(state_.y);
    if (moved) tell(Event::kPointer, "at " + place);
    if (buttons != state_.buttons) tell(Event::kButtons, buttonNames(buttons) + " at " + place);
    if (wheel != 0) tell(Event::kWheel, "turned by " + std::to_string(wheel) + " at " + place);
    state_.buttons = buttons;
    state_.wheel += wheel;
    ++state_.reports;
    changed_.notify_all();
}

void Computer::absoluteReport(std::uint8_t buttons, int x, int y, std::int8_t wheel) {
    const Lock lock(mutex_);
    if (!state_.attached) return;
    const bool moved = x != state_.absoluteX || y != state_.absoluteY;
    state_.absoluteX = x;
    state_.absoluteY = y;
    state_.x = std::min(x, kSteps - 1) * kScreenWidth / kSteps;
    state_.y = std::min(y, kSteps - 1) * kScreenHeight / kSteps;
    mouse(buttons, moved, wheel);
}

void Computer::relativeReport(std::uint8_t buttons, std::int8_t dx, std::int8_t dy,
                              std::int8_t wheel) {
    const Lock lock(mutex_);
    if (!state_.attached) return;
    state_.x = std::clamp(state_.x + dx, 0, kScreenWidth - 1);
    state_.y = std::clamp(state_.y + dy, 0, kScreenHeight - 1);
    mouse(buttons, dx != 0 || dy != 0, wheel);
}

}  // namespace sim
