#include "sim/computer/computer.h"

#include <algorithm>
#include <cstring>

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
    state_.leds = leds;
    tell(Event::kLeds, ledNames(leds));
    changed_.notify_all();
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
    state_.modifiers = state_.buttons = 0;
    state_.keys.fill(0);
    tell(Event::kUsb, "keyboard and mouse gone");
    changed_.notify_all();
}

void Computer::keyDown(std::uint8_t usage) {
    if (const std::uint8_t led = ledOf(usage)) {
        state_.leds ^= led;
        tell(Event::kLeds, ledNames(state_.leds));
        return;
    }
    const bool shift = (state_.modifiers & quillon::kAnyShift) != 0;
    const bool commanding = (state_.modifiers & ~quillon::kAnyShift) != 0;
    const char character =
        commanding ? '\0' : quillon::characterOf(usage, shift, (state_.leds & kCapsLed) != 0);
    if (character != '\0') {
        state_.text += character;
        tell(Event::kText, std::string(1, character));
        return;
    }
    if (usage == quillon::kUsageBackspace && !commanding && !state_.text.empty())
        state_.text.pop_back();
    tell(Event::kKey, quillon::strokeName({state_.modifiers, usage}));
}

void Computer::keyboardReport(const std::uint8_t (&report)[8]) {
    const Lock lock(mutex_);
    if (!state_.attached) return;
    std::array<std::uint8_t, 6> keys;
    std::copy(report + 2, report + 8, keys.begin());
    const auto before = state_.keys;
    state_.modifiers = report[0];
    state_.keys = keys;
    ++state_.reports;
    for (const std::uint8_t usage : keys)
        if (usage != 0 && std::find(before.begin(), before.end(), usage) == before.end())
            keyDown(usage);
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
