#include "protocol/us_layout.h"

#include <cstdio>

namespace quillon {
namespace {

constexpr std::uint8_t kFirst = kUsageA, kLast = 0x38;  // the keys that type something

// With Shift, from kFirst on.
constexpr char kShifted[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ!@#$%^&*()\n\0\0\t _+{}|\0:\"~<>?";
static_assert(sizeof kShifted == kLast - kFirst + 2, "one character for each key");

char plainOf(std::uint8_t usage) {
    switch (usage) {
        case kUsageEnter:
            return '\n';
        case kUsageTab:
            return '\t';
        case kUsageSpace:
            return ' ';
        default:
            return positionCharacter(usage);
    }
}

std::string describe(unsigned char byte) {
    char text[32];
    snprintf(text, sizeof text, byte > 0x20 && byte < 0x7F ? "'%c'" : "byte 0x%02x", byte);
    return text;
}

}  // namespace

std::optional<Stroke> strokeOf(char character) {
    if (character == '\0') return std::nullopt;
    for (std::uint8_t usage = kFirst; usage <= kLast; ++usage) {
        if (plainOf(usage) == character) return Stroke{0, usage};
        if (kShifted[usage - kFirst] == character) return Stroke{kLeftShift, usage};
    }
    return std::nullopt;
}

char characterOf(std::uint8_t usage, bool shift, bool capsLock) {
    if (usage < kFirst || usage > kLast) return '\0';
    const char plain = plainOf(usage);
    const bool letter = plain >= 'a' && plain <= 'z';
    return shift != (letter && capsLock) ? kShifted[usage - kFirst] : plain;
}

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

}  // namespace quillon
