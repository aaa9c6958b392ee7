#include "healed_input.h"

#include <algorithm>

namespace console {
namespace {

using namespace std::chrono_literals;

const std::vector<std::chrono::milliseconds> kAfterChange{40ms, 200ms}, kAtRest{100ms};
constexpr std::size_t kBacklog = 8;  // records

}  // namespace

void Resends::changed(Time now, std::vector<std::chrono::milliseconds> after) {
    changed_ = last_ = now;
    after_ = std::move(after);
    active_ = true;
}

Resends::Time Resends::due(bool held) const {
    if (!active_) return Time::max();
    for (const auto offset : after_)
        if (last_ < changed_ + offset) return changed_ + offset;
    const Time next = last_ + 1s;
    return held || next <= changed_ + tail_ ? next : Time::max();
}

void HealedInput::setKeyboard(const Stroke &down, int timesBefore) {
    if (down == keyboard_) return;
    // A key that was down shorter than the resends take must not depend on one record. Who types
    // faster than the line comes first.
    const bool backlog = queue_.size() >= kBacklog;
    for (; healing_ && !backlog && keysTimes_ < timesBefore; ++keysTimes_)
        queue_.push_back({kKeysAgain, datagram(keyboardRecord(keyboard_))});
    keyboard_ = down;
    keysTimes_ = 1;
    queue_.push_back({kKeys, datagram(keyboardRecord(keyboard_))});
}

Datagram HealedInput::pointerRecord(std::int8_t wheel) const {
    return relative_ ? datagram(relativeRecord(0, 0, button_, wheel))
                     : datagram(absoluteRecord(x_, y_, button_, wheel));
}

void HealedInput::moveTo(std::uint16_t x, std::uint16_t y) {
    x_ = x;
    y_ = y;
    placed_ = true;
    // A position that nobody has seen yet is of no interest any more.
    if (!queue_.empty() && queue_.back().kind == kPosition) queue_.pop_back();
    queue_.push_back({kPosition, pointerRecord()});
}

void HealedInput::moveByDistance(int dx, int dy) {
    for (Datagram &record : moveBy(dx, dy, button_)) queue_.push_back({kOnce, std::move(record)});
}

void HealedInput::setButton(Button button) {
    if (button == button_) return;
    button_ = button;
    queue_.push_back({kButton, pointerRecord()});
}

void HealedInput::turnWheel(std::int8_t notches) {
    queue_.push_back({kOnce, pointerRecord(notches)});
}

void HealedInput::releaseAll() {
    setKeyboard({});
    setButton(kNoButton);
    refresh();
}

void HealedInput::refresh() {
    queue_.push_back({kKeys, datagram(keyboardRecord(keyboard_))});
    if (placed_ || relative_) queue_.push_back({kButton, pointerRecord()});
}

void HealedInput::noteSent(Kind kind, Time now) {
    free_ = now + pace_;
    if (!healing_) return;
    if (kind == kKeys) keys_.changed(now, kAfterChange);
    if (kind == kButton) pointer_.changed(now, kAfterChange);
    if (kind == kPosition) pointer_.changed(now, kAtRest);
}

std::optional<Datagram> HealedInput::resend(Time now) {
    if (keys_.due(keysHeld()) <= now) {
        keys_.sent(now);
        ++keysTimes_;
        noteSent(kKeysAgain, now);
        return datagram(keyboardRecord(keyboard_));
    }
    if (pointer_.due(button_ != kNoButton) > now) return std::nullopt;
    pointer_.sent(now);
    noteSent(kOnce, now);
    return pointerRecord();
}

std::optional<Datagram> HealedInput::next(Time now) {
    if (now < free_) return std::nullopt;
    if (queue_.empty()) return resend(now);
    const Entry entry = std::move(queue_.front());
    queue_.pop_front();
    noteSent(entry.kind, now);
    return entry.record;
}

HealedInput::Time HealedInput::due() const {
    if (!queue_.empty()) return free_;
    const Time again = std::min(keys_.due(keysHeld()), pointer_.due(button_ != kNoButton));
    return again == Time::max() ? again : std::max(again, free_);
}

}  // namespace console
