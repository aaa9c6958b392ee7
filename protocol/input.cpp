#include "protocol/input.h"

#include <algorithm>
#include <cstdio>

namespace quillon {
namespace {

constexpr int kLargestStep = 127;

std::int8_t stepTowards(int distance) {
    return static_cast<std::int8_t>(std::clamp(distance, -kLargestStep, kLargestStep));
}

std::string describe(unsigned char byte) {
    char text[32];
    snprintf(text, sizeof text, byte > 0x20 && byte < 0x7F ? "'%c'" : "byte 0x%02x", byte);
    return text;
}

}  // namespace

bool typeStrokes(const std::string &text, std::vector<Stroke> &states, std::string &error) {
    std::uint8_t held = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto stroke = strokeOf(text[i]);
        if (!stroke) {
            error = "the US layout has no key for " +
                    describe(static_cast<unsigned char>(text[i])) + ", character " +
                    std::to_string(i + 1) + " of the text";
            return false;
        }
        if (stroke->modifiers != held) {
            held = stroke->modifiers;
            states.push_back({held, 0});
        }
        states.push_back(*stroke);
        states.push_back({held, 0});
    }
    if (held != 0) states.push_back({});
    return true;
}

bool typeText(const std::string &text, std::vector<Datagram> &records, std::string &error) {
    std::vector<Stroke> states;
    const bool ok = typeStrokes(text, states, error);
    for (const Stroke &state : states) records.push_back(datagram(keyboardRecord(state)));
    return ok;
}

std::vector<Datagram> strokeKey(const Stroke &stroke) {
    std::vector<Datagram> records;
    if (stroke.modifiers != 0) records.push_back(datagram(keyboardRecord({stroke.modifiers, 0})));
    if (stroke.usage != 0) records.push_back(datagram(keyboardRecord(stroke)));
    records.push_back(datagram(keyboardRecord({})));
    return records;
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
