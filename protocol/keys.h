// The keys of a keyboard: their HID usages (keyboard page) and names. A key is a position: which
// character it types is a matter of the computer's layout, see us_layout.h.
#pragma once

#include <cstdint>
#include <functional>
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

/// Usages of the HID keyboard page that the programs name.
enum Usage : std::uint8_t {
    kUsageA = 0x04,  ///< "a" to "z" follow each other
    kUsageEnter = 0x28,
    kUsageEscape = 0x29,
    kUsageBackspace = 0x2A,
    kUsageTab = 0x2B,
    kUsageSpace = 0x2C,
    kUsageCapsLock = 0x39,
    kUsageF1 = 0x3A,  ///< to F12
    kUsageScrollLock = 0x47,
    kUsageNumLock = 0x53,
    kUsageKeypadEnter = 0x58,
    kUsageF13 = 0x68,      ///< to F24
    kUsageLeftCtrl = 0xE0  ///< kUsageLeftCtrl + n is the key of bit n of the modifier byte
};

/// A key and the modifiers that go down with it. usage 0: modifiers alone.
struct Stroke {
    std::uint8_t modifiers = 0;
    std::uint8_t usage = 0;
};

inline bool operator==(const Stroke &a, const Stroke &b) {
    return a.modifiers == b.modifiers && a.usage == b.usage;
}

/// The character by which a key is called: what a US keyboard has printed on it, without Shift.
/// '\0' for a key with a longer name, or none.
char positionCharacter(std::uint8_t usage);

/// Name of a key, as parseCombo() takes it ("a", "f5", "delete"); "key 0x%02x" for one without.
std::string keyName(std::uint8_t usage);

/// Names of the modifiers in a byte, joined by '+'; empty for none.
std::string modifierNames(std::uint8_t modifiers);

/// "ctrl+a"; "all keys up" for a stroke without modifiers and key.
std::string strokeName(const Stroke &stroke);

/// Reads "ctrl+alt+delete": any number of modifiers and at most one other key, because an endpoint
/// passes one key at a time. On failure none, and error says why.
std::optional<Stroke> parseCombo(const std::string &text, std::string &error);

/// The key for a name of one character, with the modifiers that it needs; none for another name.
using KeyOfCharacter = std::function<std::optional<Stroke>(const std::string &name)>;

/// The same, where a name of one character is the key that keyOf says. "usage:0x14" is the key with
/// that HID usage, whatever its name.
std::optional<Stroke> parseCombo(const std::string &text, std::string &error,
                                 const KeyOfCharacter &keyOf);

}  // namespace quillon
