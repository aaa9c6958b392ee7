#include <quillon/healed_input.h>

#include <algorithm>

namespace quillon {
namespace {

using std::chrono::milliseconds;

const std::vector<milliseconds> kAfterChange{milliseconds(40), milliseconds(200)},
    kAtRest{milliseconds(100)};
constexpr milliseconds kPeriod(1000);
constexpr std::size_t kBacklog = 8;  // records
constexpr int kFarthest = 32767;     // that a movement waits to go

}  // namespace

void Resends::changed(Time now, std::vector<std::chrono::milliseconds> after) {
    changed_ = last_ = now;
    after_ = std::move(after);
    active_ = true;
}

bool Resends::settled() const {
    return std::all_of(after_.begin(), after_.end(),
                       [&](auto offset) { return last_ >= changed_ + offset; });
}

Resends::Time Resends::due(bool held) const {
    if (!active_) return Time::max();
    for (const auto offset : after_)
        if (last_ < changed_ + offset) return changed_ + offset;
    const Time next = last_ + kPeriod;
    return held || next <= changed_ + tail_ ? next : Time::max();
}

void HealedInput::add(Kind kind, Datagram record) {
    if (kind == kKeys || kind == kKeysAgain) ++keysWaiting_;
    queue_.push_back({kind, std::move(record)});
}

void HealedInput::setKeyboard(const Stroke &down, int timesBefore) {
    if (down == keyboard_) return;
    // A key that was down for less time than the resends take must not depend on one record. When
    // keys come faster than the line takes them, they go first.
    const bool backlog = queue_.size() >= kBacklog;
    for (; healing_ && !backlog && keysTimes_ < timesBefore; ++keysTimes_)
        add(kKeysAgain, datagram(keyboardRecord(keyboard_)));
    keyboard_ = down;
    keysTimes_ = 1;
    add(kKeys, datagram(keyboardRecord(keyboard_)));
}

void HealedInput::press(const Stroke &stroke) {
    std::vector<Stroke> states;
    std::uint8_t held = keyboard_.modifiers;
    appendStroke(states, held, stroke);
    if (stroke.usage != 0) states.pop_back();  // it stays down
    for (const Stroke &state : states) setKeyboard(state);
}

Datagram HealedInput::pointerRecord(std::int8_t wheel) const {
    return relative_ ? datagram(relativeRecord(0, 0, button_, wheel))
                     : datagram(absoluteRecord(x_, y_, button_, wheel));
}

void HealedInput::moveTo(std::uint16_t x, std::uint16_t y) {
    x_ = x;
    y_ = y;
    placed_ = true;
    // A position that was not sent yet is replaced.
    if (!queue_.empty() && queue_.back().kind == kPosition) queue_.pop_back();
    add(kPosition, pointerRecord());
}

void HealedInput::moveByDistance(int dx, int dy) {
    if (queue_.empty() || queue_.back().kind != kMovement || queue_.back().button != button_)
        queue_.push_back({kMovement, {}, 0, 0, button_});
    const auto sum = [](int waiting, int more) {
        return std::clamp(waiting + std::clamp(more, -kFarthest, kFarthest), -kFarthest, kFarthest);
    };
    queue_.back().dx = sum(queue_.back().dx, dx);
    queue_.back().dy = sum(queue_.back().dy, dy);
}

void HealedInput::setButton(Button button) {
    if (button == button_) return;
    button_ = button;
    add(kButton, pointerRecord());
}

void HealedInput::turnWheel(std::int8_t notches) {
    add(kOnce, pointerRecord(notches));
}

void HealedInput::releaseAll() {
    setKeyboard({});
    setButton(kNoButton);
    refresh();
}

std::vector<Datagram> HealedInput::released() const {
    std::vector<Datagram> records{datagram(keyboardRecord({}))};
    if (placed_ && !relative_) records.push_back(datagram(absoluteRecord(x_, y_, kNoButton, 0)));
    return records;
}

void HealedInput::refresh() {
    add(kKeys, datagram(keyboardRecord(keyboard_)));
    if (placed_ || relative_) add(kButton, pointerRecord());
}

void HealedInput::noteSent(Kind kind, Time now) {
    free_ = now + pace_;
    if (!healing_) return;
    if (kind == kKeys) keys_.changed(now, kAfterChange);
    if (kind == kButton) pointer_.changed(now, kAfterChange);
    if (kind == kPosition) pointer_.changed(now, kAtRest);
}

void HealedInput::abandon(std::chrono::milliseconds slowest) {
    queue_.clear();
    keysWaiting_ = 0;
    pace_ = std::min(pace_, slowest);
    free_ = {};
}

std::optional<Datagram> HealedInput::resend(Time now) {
    // A pointer that moves all the time must not keep the state of the keys from being resent.
    if (keysWaiting_ == 0 && keys_.due(keysHeld()) <= now) {
        keys_.sent(now);
        ++keysTimes_;
        noteSent(kKeysAgain, now);
        return datagram(keyboardRecord(keyboard_));
    }
    if (!queue_.empty() || pointer_.due(button_ != kNoButton) > now) return std::nullopt;
    pointer_.sent(now);
    noteSent(kOnce, now);
    return pointerRecord();
}

// The next piece of the movement that is first in the queue.
std::optional<Datagram> HealedInput::nextStep() {
    Entry &entry = queue_.front();
    const auto steps = moveBy(entry.dx, entry.dy, entry.button);
    if (steps.empty()) return std::nullopt;  // there and back
    entry.dx -= static_cast<std::int8_t>(steps.front()[4]);
    entry.dy -= static_cast<std::int8_t>(steps.front()[5]);
    return steps.front();
}

std::optional<Datagram> HealedInput::next(Time now) {
    if (now < free_) return std::nullopt;
    if (auto again = resend(now)) return again;
    while (!queue_.empty()) {
        const Kind kind = queue_.front().kind;
        auto record = kind == kMovement ? nextStep() : std::move(queue_.front().record);
        const bool done = kind != kMovement || (queue_.front().dx == 0 && queue_.front().dy == 0);
        if (done) queue_.pop_front();
        if (kind == kKeys || kind == kKeysAgain) --keysWaiting_;
        if (!record) continue;
        noteSent(kind, now);
        return record;
    }
    return std::nullopt;
}

HealedInput::Time HealedInput::due() const {
    if (!queue_.empty()) return free_;
    const Time again = std::min(keys_.due(keysHeld()), pointer_.due(button_ != kNoButton));
    return again == Time::max() ? again : std::max(again, free_);
}

}  // namespace quillon
