// The keys of a US keyboard: their HID usages (keyboard page), names and characters. The console
// looks characters up to send them, the simulated computer looks usages up to read them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quillon {

/// Bits of the modifier byte of a keyboard report.
enum Modifier : std::uint8_t {
    kLeftCtrl = 0x01,
    kLeftShift = 0x02,
    kLeftAlt = 0x04,
    kLeftGui = 0x08,
    kRightCtrl = 0x10,
    kRightShift = 0x20,
    kRightAlt = 0x40,
    kRightGui = 0x80
};

constexpr std::uint8_t kAnyShift = kLeftShift | kRightShift;

/// Usages that programs of ours speak of by name.
enum Usage : std::uint8_t {
    kUsageEnter = 0x28,
    kUsageEscape = 0x29,
    kUsageBackspace = 0x2A,
    kUsageCapsLock = 0x39,
    kUsageScrollLock = 0x47,
    kUsageNumLock = 0x53,
    kUsageKeypadEnter = 0x58
};

/// A key and the modifiers that go down with it. usage 0: modifiers alone.
struct Stroke {
    std::uint8_t modifiers = 0;
    std::uint8_t usage = 0;
};

inline bool operator==(const Stroke &a, const Stroke &b) {
    return a.modifiers == b.modifiers && a.usage == b.usage;
}

/// The stroke that types an ASCII character (line feed is Enter), with Caps Lock off; none for
/// one that the layout lacks.
std::optional<Stroke> strokeOf(char character);

/// The character that a key types, '\n' for Enter; '\0' for one that types none.
char characterOf(std::uint8_t usage, bool shift, bool capsLock);

/// Name of a key, as parseCombo takes it ("a", "f5", "delete"); "key 0x%02x" for one without.
std::string keyName(std::uint8_t usage);

/// Names of the modifiers in a byte, joined by '+'; empty for none.
std::string modifierNames(std::uint8_t modifiers);

/// Reads "ctrl+alt+delete": any number of modifiers and at most one other key, which is all that
/// reaches the computer. On failure none, and error says why.
std::optional<Stroke> parseCombo(const std::string &text, std::string &error);

}  // namespace quillon
