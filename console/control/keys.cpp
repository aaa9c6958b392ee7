#include "console/control/keys.h"

#include "protocol/us_layout.h"

namespace quillon {
namespace {

struct Row {
    int key;
    std::uint8_t usage;
};

// HID usages of the keyboard page.
constexpr Row kRows[] = {{kKeyEnter, kUsageEnter},
                         {kKeyEscape, kUsageEscape},
                         {kKeyBackspace, kUsageBackspace},
                         {kKeyTab, kUsageTab},
                         {kKeyCapsLock, kUsageCapsLock},
                         {kKeyPrintScreen, 0x46},
                         {kKeyScrollLock, kUsageScrollLock},
                         {kKeyPause, 0x48},
                         {kKeyInsert, 0x49},
                         {kKeyHome, 0x4A},
                         {kKeyPageUp, 0x4B},
                         {kKeyDelete, 0x4C},
                         {kKeyEnd, 0x4D},
                         {kKeyPageDown, 0x4E},
                         {kKeyRight, 0x4F},
                         {kKeyLeft, 0x50},
                         {kKeyDown, 0x51},
                         {kKeyUp, 0x52},
                         {kKeyNumLock, kUsageNumLock},
                         {kKeyMenu, 0x65},
                         {kKeyKeypadDivide, 0x54},
                         {kKeyKeypadMultiply, 0x55},
                         {kKeyKeypadSubtract, 0x56},
                         {kKeyKeypadAdd, 0x57},
                         {kKeyKeypadEnter, kUsageKeypadEnter},
                         {kKeyKeypad0, 0x62},
                         {kKeyKeypadDecimal, 0x63},
                         {kKeyKeypadEqual, 0x67},
                         {kKeyKeypadEnd, 0x59},
                         {kKeyKeypadDown, 0x5A},
                         {kKeyKeypadPageDown, 0x5B},
                         {kKeyKeypadLeft, 0x5C},
                         {kKeyBegin, 0x5D},
                         {kKeyKeypadRight, 0x5E},
                         {kKeyKeypadHome, 0x5F},
                         {kKeyKeypadUp, 0x60},
                         {kKeyKeypadPageUp, 0x61},
                         {kKeyKeypadInsert, 0x62},
                         {kKeyKeypadDelete, 0x63},
                         {kKeyLeftCtrl, kUsageLeftCtrl},
                         {kKeyLeftShift, 0xE1},
                         {kKeyLeftAlt, 0xE2},
                         {kKeyLeftSuper, 0xE3},
                         {kKeyRightCtrl, 0xE4},
                         {kKeyRightShift, 0xE5},
                         {kKeyRightAlt, 0xE6},
                         {kKeyLevel3Shift, 0xE6},
                         {kKeyRightSuper, 0xE7}};

// The usage of key number n of those that begin with first and follow each other on both sides.
std::uint8_t follower(int key, int first, std::uint8_t usage) {
    return static_cast<std::uint8_t>(usage + (key - first));
}

// Keys without a character of their own.
std::optional<Stroke> strokeOfNamedKey(int key) {
    for (const Row &row : kRows)
        if (row.key == key) return Stroke{0, row.usage};
    if (key >= kKeyF1 && key < kKeyF1 + 12) return Stroke{0, follower(key, kKeyF1, kUsageF1)};
    if (key >= kKeyF1 + 12 && key < kKeyF1 + 24)
        return Stroke{0, follower(key, kKeyF1 + 12, kUsageF13)};
    constexpr std::uint8_t kKeypad1 = 0x59;
    if (key > kKeyKeypad0 && key < kKeyKeypad0 + 10)
        return Stroke{0, follower(key, kKeyKeypad0 + 1, kKeypad1)};
    return std::nullopt;
}

std::optional<Stroke> positionOfCharacter(int key) {
    if (key < 0x20 || key > 0x7E) return std::nullopt;
    return strokeOf(static_cast<char>(key));
}

Stroke withModifiers(Stroke stroke, unsigned reported) {
    constexpr struct {
        unsigned reported;
        Modifier bit;
    } kModifiers[] = {{kTerminalShift, kLeftShift},
                      {kTerminalAlt, kLeftAlt},
                      {kTerminalCtrl, kLeftCtrl},
                      {kTerminalSuper, kLeftGui}};
    for (const auto &modifier : kModifiers)
        if ((reported & modifier.reported) != 0)
            stroke.modifiers = static_cast<std::uint8_t>(stroke.modifiers | modifier.bit);
    return stroke;
}

}  // namespace

bool typesCharacter(const TerminalEvent &event) {
    constexpr unsigned kCommands = kTerminalAlt | kTerminalCtrl | kTerminalSuper;
    return event.typed && (event.modifiers & kCommands) == 0;
}

std::optional<Stroke> positionOf(const TerminalEvent &event) {
    auto stroke = strokeOfNamedKey(event.key);
    if (!stroke) stroke = positionOfCharacter(event.base != 0 ? event.base : event.key);
    if (!stroke) return std::nullopt;
    return withModifiers(*stroke, event.modifiers);
}

std::vector<Stroke> strokesOf(const TerminalEvent &event, const Typist &typist) {
    if (typesCharacter(event)) return typist.strokesOf(event.character);
    auto stroke = strokeOfNamedKey(event.key);
    if (!stroke) stroke = typist.keyFor(static_cast<char32_t>(event.key));
    if (!stroke) stroke = positionOfCharacter(event.base);
    if (!stroke) return {};
    return {withModifiers(*stroke, event.modifiers)};
}

}  // namespace quillon
