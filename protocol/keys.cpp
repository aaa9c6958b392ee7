#include "protocol/keys.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

namespace quillon {
namespace {

struct Key {
    std::uint8_t usage;
    const char *name;  ///< null: the plain character names the key
    char plain;        ///< what it types, 0 for nothing
    char shifted;
};

// Usages of the HID keyboard page. Names that come first are the ones printed.
constexpr Key kKeys[] = {
    {0x28, "enter", '\n', '\n'}, {0x29, "escape", 0, 0},       {0x2A, "backspace", 0, 0},
    {0x2B, "tab", '\t', '\t'},   {0x2C, "space", ' ', ' '},    {0x2D, nullptr, '-', '_'},
    {0x2E, nullptr, '=', '+'},   {0x2F, nullptr, '[', '{'},    {0x30, nullptr, ']', '}'},
    {0x31, nullptr, '\\', '|'},  {0x33, nullptr, ';', ':'},    {0x34, nullptr, '\'', '"'},
    {0x35, nullptr, '`', '~'},   {0x36, nullptr, ',', '<'},    {0x37, nullptr, '.', '>'},
    {0x38, nullptr, '/', '?'},   {0x39, "capslock", 0, 0},     {0x46, "printscreen", 0, 0},
    {0x47, "scrolllock", 0, 0},  {0x48, "pause", 0, 0},        {0x49, "insert", 0, 0},
    {0x4A, "home", 0, 0},        {0x4B, "pageup", 0, 0},       {0x4C, "delete", 0, 0},
    {0x4D, "end", 0, 0},         {0x4E, "pagedown", 0, 0},     {0x4F, "right", 0, 0},
    {0x50, "left", 0, 0},        {0x51, "down", 0, 0},         {0x52, "up", 0, 0},
    {0x53, "numlock", 0, 0},     {0x65, "menu", 0, 0},         {0x27, nullptr, '0', ')'},
    {0x1E, nullptr, '1', '!'},   {0x1F, nullptr, '2', '@'},    {0x20, nullptr, '3', '#'},
    {0x21, nullptr, '4', '$'},   {0x22, nullptr, '5', '%'},    {0x23, nullptr, '6', '^'},
    {0x24, nullptr, '7', '&'},   {0x25, nullptr, '8', '*'},    {0x26, nullptr, '9', '('},
    {0x29, "esc", 0, 0},         {0x28, "return", '\n', '\n'}, {0x4C, "del", 0, 0},
    {0x2D, "minus", '-', '_'},   {0x2E, "equal", '=', '+'},
};

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

constexpr std::uint8_t kUsageA = 0x04, kUsageF1 = 0x3A, kUsageF13 = 0x68;

bool isLetterUsage(std::uint8_t usage) {
    return usage >= kUsageA && usage < kUsageA + 26;
}

const Key *keyOf(std::uint8_t usage) {
    const auto *key = std::find_if(std::begin(kKeys), std::end(kKeys),
                                   [&](const Key &k) { return k.usage == usage; });
    return key == std::end(kKeys) ? nullptr : key;
}

// Usage of "f1" to "f24", 0 for another text.
std::uint8_t functionKey(const std::string &name) {
    int number = 0, end = 0;
    if (sscanf(name.c_str(), "f%2d%n", &number, &end) != 1) return 0;
    if (end != static_cast<int>(name.size()) || number < 1 || number > 24) return 0;
    return static_cast<std::uint8_t>(number <= 12 ? kUsageF1 + number - 1
                                                  : kUsageF13 + number - 13);
}

std::uint8_t usageOfName(const std::string &name) {
    for (const Key &key : kKeys)
        if (key.name != nullptr && name == key.name) return key.usage;
    if (name.size() == 1) {
        const auto stroke = strokeOf(name[0]);
        if (stroke && stroke->modifiers == 0) return stroke->usage;
    }
    return functionKey(name);
}

std::uint8_t modifierOfName(const std::string &name) {
    for (const ModifierName &modifier : kModifiers)
        if (name == modifier.name) return modifier.bit;
    return 0;
}

}  // namespace

std::optional<Stroke> strokeOf(char character) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte == 0) return std::nullopt;
    if (byte < 0x80 && isalpha(byte) != 0) {
        const std::uint8_t modifiers = isupper(byte) != 0 ? kLeftShift : 0;
        return Stroke{modifiers, static_cast<std::uint8_t>(kUsageA + (tolower(byte) - 'a'))};
    }
    for (const Key &key : kKeys) {
        if (key.plain == character) return Stroke{0, key.usage};
        if (key.shifted == character) return Stroke{kLeftShift, key.usage};
    }
    return std::nullopt;
}

char characterOf(std::uint8_t usage, bool shift, bool capsLock) {
    if (isLetterUsage(usage))
        return static_cast<char>((shift != capsLock ? 'A' : 'a') + (usage - kUsageA));
    const Key *key = keyOf(usage);
    if (key == nullptr) return '\0';
    return shift ? key->shifted : key->plain;
}

std::string keyName(std::uint8_t usage) {
    const Key *key = keyOf(usage);
    if (key != nullptr && key->name != nullptr) return key->name;
    const char character = characterOf(usage, false, false);
    if (character != '\0') return std::string(1, character);
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

std::optional<Stroke> parseCombo(const std::string &text, std::string &error) {
    Stroke stroke;
    for (std::size_t start = 0; start <= text.size();) {
        const std::size_t plus = std::min(text.find('+', start), text.size());
        std::string name = text.substr(start, plus - start);
        for (char &c : name)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        start = plus + 1;

        const std::uint8_t modifier = modifierOfName(name);
        const std::uint8_t usage = modifier == 0 ? usageOfName(name) : 0;
        if (modifier == 0 && usage == 0) {
            error = "unknown key \"";
            error.append(name).append("\" in \"").append(text).append("\"");
            return std::nullopt;
        }
        if (usage != 0 && stroke.usage != 0) {
            error =
                "\"" + text + "\" has two keys besides modifiers; only one reaches the computer";
            return std::nullopt;
        }
        stroke.modifiers = static_cast<std::uint8_t>(stroke.modifiers | modifier);
        if (usage != 0) stroke.usage = usage;
    }
    return stroke;
}

}  // namespace quillon
