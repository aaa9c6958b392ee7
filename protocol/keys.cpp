#include "protocol/keys.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace quillon {
namespace {

struct NamedKey {
    std::uint8_t usage;
    const char *name;
};

// Where a key has several names, the first is the one that is printed.
constexpr NamedKey kNames[] = {
    {kUsageEnter, "enter"},
    {kUsageEscape, "escape"},
    {kUsageBackspace, "backspace"},
    {kUsageTab, "tab"},
    {kUsageSpace, "space"},
    {kUsageCapsLock, "capslock"},
    {0x46, "printscreen"},
    {kUsageScrollLock, "scrolllock"},
    {0x48, "pause"},
    {0x49, "insert"},
    {0x4A, "home"},
    {0x4B, "pageup"},
    {0x4C, "delete"},
    {0x4D, "end"},
    {0x4E, "pagedown"},
    {0x4F, "right"},
    {0x50, "left"},
    {0x51, "down"},
    {0x52, "up"},
    {kUsageNumLock, "numlock"},
    {0x65, "menu"},
    {kUsageEscape, "esc"},
    {kUsageEnter, "return"},
    {0x4C, "del"},
};

// The same for keys that are printed by their character.
constexpr NamedKey kOtherNames[] = {{0x2D, "minus"}, {0x2E, "equal"}};

// From kUsageA on; '\0' for keys with a name of their own and for 0x32, which a US keyboard lacks.
constexpr char kCharacters[] = "abcdefghijklmnopqrstuvwxyz1234567890\0\0\0\0\0-=[]\\\0;'`,./";

struct ModifierName {
    const char *name;
    std::uint8_t bit;
};

constexpr ModifierName kModifiers[] = {
    {"ctrl", kLeftCtrl},    {"shift", kLeftShift},   {"alt", kLeftAlt},    {"gui", kLeftGui},
    {"rctrl", kRightCtrl},  {"rshift", kRightShift}, {"altgr", kRightAlt}, {"rgui", kRightGui},
    {"control", kLeftCtrl}, {"win", kLeftGui},       {"super", kLeftGui},  {"meta", kLeftGui},
    {"ralt", kRightAlt},
};
constexpr int kModifierBits = 8;  // the first names above, one for each bit

// Usage of "f1" to "f24", 0 for another text.
std::uint8_t functionKey(const std::string &name) {
    int number = 0, end = 0;
    if (sscanf(name.c_str(), "f%2d%n", &number, &end) != 1) return 0;
    if (end != static_cast<int>(name.size()) || number < 1 || number > 24) return 0;
    return static_cast<std::uint8_t>(number <= 12 ? kUsageF1 + number - 1
                                                  : kUsageF13 + number - 13);
}

std::uint8_t usageOfName(const std::string &name) {
    constexpr char kPosition[] = "usage:0x";
    constexpr std::size_t kDigitsAt = sizeof kPosition - 1;
    if (name.rfind(kPosition, 0) == 0 && name.size() == kDigitsAt + 2 &&
        name.find_first_not_of("0123456789abcdef", kDigitsAt) == std::string::npos) {
        const auto usage =
            static_cast<std::uint8_t>(strtoul(name.c_str() + kDigitsAt, nullptr, 16));
        return usage >= kUsageA && usage < kUsageLeftCtrl ? usage : std::uint8_t{0};
    }
    for (const NamedKey &key : kNames)
        if (name == key.name) return key.usage;
    for (const NamedKey &key : kOtherNames)
        if (name == key.name) return key.usage;
    for (std::size_t i = 0; name.size() == 1 && i + 1 < sizeof kCharacters; ++i)
        if (name[0] == kCharacters[i]) return static_cast<std::uint8_t>(kUsageA + i);
    return functionKey(name);
}

std::uint8_t modifierOfName(const std::string &name) {
    for (const ModifierName &modifier : kModifiers)
        if (name == modifier.name) return modifier.bit;
    return 0;
}

}  // namespace

char positionCharacter(std::uint8_t usage) {
    const bool known = usage >= kUsageA && usage - kUsageA + 1U < sizeof kCharacters;
    return known ? kCharacters[usage - kUsageA] : '\0';
}

std::string keyName(std::uint8_t usage) {
    for (const NamedKey &key : kNames)
        if (key.usage == usage) return key.name;
    if (const char character = positionCharacter(usage)) return std::string(1, character);
    const bool upper = usage >= kUsageF13;
    const int number = upper ? usage - kUsageF13 + 13 : usage - kUsageF1 + 1;
    char text[16];
    if (number >= 1 && number <= (upper ? 24 : 12))
        snprintf(text, sizeof text, "f%d", number);
    else
        snprintf(text, sizeof text, "key 0x%02x", usage);
    return text;
}

std::string modifierNames(std::uint8_t modifiers) {
    std::string names;
    for (int i = 0; i < kModifierBits; ++i) {
        if ((modifiers & kModifiers[i].bit) == 0) continue;
        if (!names.empty()) names += '+';
        names += kModifiers[i].name;
    }
    return names;
}

std::string strokeName(const Stroke &stroke) {
    const std::string modifiers = modifierNames(stroke.modifiers);
    if (stroke.usage == 0) return modifiers.empty() ? "all keys up" : modifiers;
    return (modifiers.empty() ? "" : modifiers + "+") + keyName(stroke.usage);
}

std::optional<Stroke> parseCombo(const std::string &text, std::string &error) {
    return parseCombo(text, error, nullptr);
}

std::optional<Stroke> parseCombo(const std::string &text, std::string &error,
                                 const KeyOfCharacter &keyOf) {
    Stroke stroke;
    for (std::size_t start = 0; start <= text.size();) {
        const std::size_t plus = std::min(text.find('+', start), text.size());
        std::string name = text.substr(start, plus - start);
        for (char &c : name)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        start = plus + 1;

        Stroke key{modifierOfName(name), 0};
        const bool character = name.size() == 1 || (!name.empty() && (name[0] & 0x80) != 0);
        if (key.modifiers == 0 && keyOf && character)
            key = keyOf(name).value_or(Stroke{});
        else if (key.modifiers == 0)
            key.usage = usageOfName(name);
        if (key.modifiers == 0 && key.usage == 0) {
            error = "unknown key \"";
            error.append(name).append("\" in \"").append(text).append("\"");
            return std::nullopt;
        }
        if (key.usage != 0 && stroke.usage != 0) {
            error =
                "\"" + text + "\" has two keys besides modifiers; only one reaches the computer";
            return std::nullopt;
        }
        stroke.modifiers = static_cast<std::uint8_t>(stroke.modifiers | key.modifiers);
        if (key.usage != 0) stroke.usage = key.usage;
    }
    return stroke;
}

}  // namespace quillon
