#include "sim/computer/computer.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "protocol/keys.h"

namespace sim {
namespace {

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

}  // namespace

std::string secondsSince(std::chrono::steady_clock::time_point since) {
    const std::chrono::duration<double> ago = std::chrono::steady_clock::now() - since;
    char text[32];
    snprintf(text, sizeof text, "%.1f s", ago.count());
    return text;
}

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

void Computer::setLedState(std::uint8_t leds) {
    state_.leds = leds;
    tell(Event::kLeds, ledNames(leds));
    changed_.notify_all();
}

void Computer::setAttached(bool attached) {
    if (state_.attached == attached) return;
    state_.attached = attached;
    if (!attached) letAllGo();
    tell(Event::kUsb, attached ? "keyboard and mouse attached" : "keyboard and mouse gone");
    changed_.notify_all();
}

void Computer::letAllGo() {
    for (const std::uint8_t usage : state_.keys)
        if (usage != 0) keyUp(usage);
    setModifiers(0);
    state_.buttons = 0;
    state_.keys.fill(0);
}

// A computer takes the modifier keys of one report from the lowest bit up.
void Computer::setModifiers(std::uint8_t modifiers) {
    constexpr int kBits = 8;
    for (int n = 0; n < kBits; ++n) {
        const unsigned bit = 1U << n;
        const auto usage = static_cast<std::uint8_t>(quillon::kUsageLeftCtrl + n);
        if ((state_.modifiers & bit) != 0 && (modifiers & bit) == 0) keyUp(usage);
        if ((state_.modifiers & bit) == 0 && (modifiers & bit) != 0) keyDown(usage);
    }
    state_.modifiers = modifiers;
}

void Computer::keyDown(std::uint8_t usage) {
    if (usage < quillon::kUsageLeftCtrl)
        tell(Event::kKey, quillon::strokeName({state_.modifiers, usage}));
}

void Computer::readKeyboard(const std::uint8_t (&report)[8]) {
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

void Computer::readAbsolute(UsbFace face, std::uint8_t buttons, int x, int y, std::int8_t wheel) {
    const int scale = kSteps / stepsOf(face);
    const bool moved = x * scale != state_.absoluteX || y * scale != state_.absoluteY;
    state_.absoluteX = x * scale;
    state_.absoluteY = y * scale;
    state_.x = std::min(state_.absoluteX, kSteps - 1) * kScreenWidth / kSteps;
    state_.y = std::min(state_.absoluteY, kSteps - 1) * kScreenHeight / kSteps;
    mouse(buttons, moved, wheel);
}

void Computer::readRelative(std::uint8_t buttons, std::int8_t dx, std::int8_t dy,
                            std::int8_t wheel) {
    state_.x = std::clamp(state_.x + dx, 0, kScreenWidth - 1);
    state_.y = std::clamp(state_.y + dy, 0, kScreenHeight - 1);
    mouse(buttons, dx != 0 || dy != 0, wheel);
}

}  // namespace sim
