#include "protocol/input.h"

#include <algorithm>

namespace quillon {
namespace {

constexpr int kLargestStep = 127;

std::int8_t stepTowards(int distance) {
    return static_cast<std::int8_t>(std::clamp(distance, -kLargestStep, kLargestStep));
}

}  // namespace

void appendStroke(std::vector<Stroke> &states, std::uint8_t &held, const Stroke &stroke) {
    // AltGr in a state before Shift: a computer takes the keys of one report in another order.
    const auto first = static_cast<std::uint8_t>(stroke.modifiers & ~kAnyShift);
    if (stroke.modifiers != held) {
        if (first != 0 && first != stroke.modifiers && first != held) states.push_back({first, 0});
        states.push_back({stroke.modifiers, 0});
    }
    held = stroke.modifiers;
    if (stroke.usage == 0) return;
    states.push_back(stroke);
    states.push_back({held, 0});
}

std::vector<Datagram> recordsOf(const std::vector<Stroke> &states) {
    std::vector<Datagram> records;
    records.reserve(states.size());
    for (const Stroke &state : states) records.push_back(datagram(keyboardRecord(state)));
    return records;
}

std::vector<Datagram> strokeKey(const Stroke &stroke) {
    std::vector<Stroke> states;
    std::uint8_t held = 0;
    appendStroke(states, held, stroke);
    // The key and its modifiers go up together.
    if (stroke.usage != 0) states.pop_back();
    states.push_back({});
    return recordsOf(states);
}

std::vector<Datagram> moveBy(int dx, int dy, Button button) {
    std::vector<Datagram> records;
    while (dx != 0 || dy != 0) {
        const std::int8_t stepX = stepTowards(dx), stepY = stepTowards(dy);
        records.push_back(datagram(relativeRecord(stepX, stepY, button, 0)));
        dx -= stepX;
        dy -= stepY;
    }
    return records;
}

std::vector<Datagram> clickAt(std::uint16_t x, std::uint16_t y, Button button) {
    return {datagram(absoluteRecord(x, y, kNoButton, 0)), datagram(absoluteRecord(x, y, button, 0)),
            datagram(absoluteRecord(x, y, kNoButton, 0))};
}

std::vector<Datagram> wheelAt(std::uint16_t x, std::uint16_t y, int notches) {
    std::vector<Datagram> records{datagram(absoluteRecord(x, y, kNoButton, 0))};
    while (notches != 0) {
        const std::int8_t step = stepTowards(notches);
        records.push_back(datagram(absoluteRecord(x, y, kNoButton, step)));
        notches -= step;
    }
    return records;
}

Datagram released(const Datagram &record) {
    if (record.size() == KeyboardRecord().size()) return datagram(keyboardRecord({}));
    if (record.size() == RelativeRecord().size())
        return datagram(relativeRecord(0, 0, kNoButton, 0));
    const auto word = [&](std::size_t at) {
        return static_cast<std::uint16_t>(record[at] | record[at + 1] << 8);
    };
    return datagram(absoluteRecord(word(5), word(7), kNoButton, 0));
}

}  // namespace quillon
