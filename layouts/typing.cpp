#include "layouts/typing.h"

#include <xkbcommon/xkbcommon-keysyms.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <utility>

#include "layouts/keyboard.h"
#include "layouts/unicode.h"
#include "protocol/input.h"

namespace quillon {
namespace {

constexpr std::uint8_t kModifierKeys = 8;
constexpr std::uint8_t kKeypadFirst = 0x54, kKeypadLast = 0x63;
constexpr std::uint8_t kLastUsage = 0x94;  // Japanese and Korean keys end here

bool isKeypad(std::uint8_t usage) {
    return usage >= kKeypadFirst && usage <= kKeypadLast;
}

bool isDead(xkb_keysym_t keysym) {
    return keysym >= XKB_KEY_dead_grave && keysym <= XKB_KEY_dead_longsolidusoverlay;
}

// Which kind of level a modifier key chooses; 0 for one that makes a command, or none.
int levelKind(xkb_keysym_t keysym) {
    switch (keysym) {
        case XKB_KEY_Shift_L:
        case XKB_KEY_Shift_R:
        case XKB_KEY_ISO_Level2_Latch:
            return 1;
        case XKB_KEY_ISO_Level3_Shift:
        case XKB_KEY_ISO_Level3_Latch:
            return 2;
        case XKB_KEY_ISO_Level5_Shift:
        case XKB_KEY_ISO_Level5_Latch:
            return 3;
        case XKB_KEY_Mode_switch:
            return 4;
        default:
            return 0;
    }
}

// The sets of modifiers with which keys type, the smaller ones first.
std::vector<std::uint8_t> levelSets(const Keyboard &keyboard) {
    const KeyboardState state(keyboard);
    std::map<int, std::uint8_t> keys;  // one for each kind
    for (std::uint8_t n = 0; n < kModifierKeys; ++n) {
        const auto usage = static_cast<std::uint8_t>(kUsageLeftCtrl + n);
        if (const int kind = levelKind(state.keysym(usage)))
            keys.emplace(kind, static_cast<std::uint8_t>(1U << n));
    }
    std::vector<std::uint8_t> sets{0};
    for (const auto &[kind, bit] : keys)
        for (std::size_t i = sets.size(); i-- > 0;)
            sets.push_back(static_cast<std::uint8_t>(sets[i] | bit));
    std::sort(sets.begin(), sets.end(), [](std::uint8_t a, std::uint8_t b) {
        const int countA = __builtin_popcount(a), countB = __builtin_popcount(b);
        return countA != countB ? countA < countB : a < b;
    });
    return sets;
}

// Presses the keys of a modifier byte, Shift last, as appendStroke() does.
void setModifiers(KeyboardState &state, std::uint8_t modifiers) {
    for (const bool shift : {false, true})
        for (std::uint8_t n = 0; n < kModifierKeys; ++n) {
            const unsigned bit = 1U << n;
            if ((modifiers & bit) != 0 && ((bit & kAnyShift) != 0) == shift)
                state.set(static_cast<std::uint8_t>(kUsageLeftCtrl + n), true);
        }
}

void tap(KeyboardState &state, std::uint8_t usage) {
    state.set(usage, true);
    state.set(usage, false);
}

// One code point that a dead key and another key compose; 0 for nothing, or more.
char32_t composedBy(xkb_compose_state *state, xkb_keysym_t dead, xkb_keysym_t base) {
    xkb_compose_state_reset(state);
    xkb_compose_state_feed(state, dead);
    if (xkb_compose_state_get_status(state) != XKB_COMPOSE_COMPOSING) return 0;
    xkb_compose_state_feed(state, base);
    if (xkb_compose_state_get_status(state) != XKB_COMPOSE_COMPOSED) return 0;
    char bytes[16];
    const int size = xkb_compose_state_get_utf8(state, bytes, sizeof bytes);
    if (size <= 0 || size >= static_cast<int>(sizeof bytes)) return 0;
    const std::u32string result = codePoints(bytes);
    return result.size() == 1 ? result[0] : 0;
}

// Whether the compose file makes something else of this keysym alone, as of Arabic ligatures.
bool changes(xkb_compose_state *state, xkb_keysym_t keysym) {
    xkb_compose_state_reset(state);
    xkb_compose_state_feed(state, keysym);
    return xkb_compose_state_get_status(state) != XKB_COMPOSE_NOTHING;
}

// Do all systems, as far as this one goes, make this of the dead key and the character?
bool agreed(char32_t result, char32_t base, ComputerSystem system) {
    if (base == U' ') return result == U'^' || result == U'`' || result == U'~';
    constexpr char32_t kLastOfLatin1 = 0xFF;
    if (system != ComputerSystem::kX11 && result > kLastOfLatin1) return false;
    // The canonical composition: the character with one accent more.
    const std::u32string whole = decomposed({result}), part = decomposed({base});
    return whole.size() == part.size() + 1 && whole.compare(0, part.size(), part) == 0 &&
           isCombining(whole.back());
}

// Bytes 80 to 9F of code page 1252; 0 where it has none.
constexpr char32_t kCodePage1252[] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

// The number to type behind Alt and a zero; 0 for a character without one.
unsigned windowsNumber(char32_t character) {
    if ((character >= 0x20 && character < 0x7F) || (character >= 0xA0 && character <= 0xFF))
        return character;
    for (unsigned i = 0; i < sizeof kCodePage1252 / sizeof kCodePage1252[0]; ++i)
        if (kCodePage1252[i] == character) return 0x80 + i;
    return 0;
}

// Line feeds, whatever a file or a terminal has at the end of a line.
std::u32string withPlainLineEnds(const std::u32string &text) {
    std::u32string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == U'\n' && i > 0 && text[i - 1] == U'\r') continue;
        plain += text[i] == U'\r' ? U'\n' : text[i];
    }
    return plain;
}

std::uint8_t keypadUsage(char digit) {
    constexpr std::uint8_t kKeypad1 = 0x59, kKeypad0 = 0x62;
    return digit == '0' ? kKeypad0 : static_cast<std::uint8_t>(kKeypad1 + (digit - '1'));
}

}  // namespace

const std::map<std::string, ComputerSystem> kSystemNames{{"x11", ComputerSystem::kX11},
                                                         {"console", ComputerSystem::kConsole},
                                                         {"windows", ComputerSystem::kWindows}};

struct Typist::Table {
    struct Entry {
        std::vector<Stroke> strokes;
        bool needsNumLock = false;
    };
    struct Key {
        xkb_keysym_t keysym;
        Stroke stroke;
        bool needsNumLock;
    };

    explicit Table(const LayoutChoice &wanted)
        : choice(wanted), keyboard(wanted.layout, wanted.variant) {}

    std::vector<Key> keysUnder(bool caps, bool num) const;
    void addKeys(const std::vector<Key> &keys);
    void addDeadKeys(const std::vector<Key> &keys);
    bool appendUnicode(UnicodeInput unicode, char32_t character, std::uint8_t &held,
                       TypedText &typed) const;
    bool append(char32_t character, std::uint8_t &held, TypedText &typed) const;
    bool appendAll(const std::u32string &characters, std::uint8_t &held, TypedText &typed) const;
    bool typable(const std::u32string &characters) const;

    LayoutChoice choice;
    Keyboard keyboard;
    std::map<char32_t, Entry> entries;
};

// What the keys give, the best stroke for a keysym first.
std::vector<Typist::Table::Key> Typist::Table::keysUnder(bool caps, bool num) const {
    std::vector<Key> keys;
    const auto sets = levelSets(keyboard);
    for (const bool keypad : {false, true})
        for (const std::uint8_t modifiers : sets) {
            // A new one for each: a modifier key that latches acts on the key after its release.
            KeyboardState state(keyboard);
            if (caps) tap(state, kUsageCapsLock);
            if (num) tap(state, kUsageNumLock);
            setModifiers(state, modifiers);
            for (std::uint8_t usage = kUsageA; usage <= kLastUsage; ++usage) {
                if (isKeypad(usage) != keypad) continue;
                const xkb_keysym_t keysym = state.keysym(usage);
                if (keysym != XKB_KEY_NoSymbol) keys.push_back({keysym, {modifiers, usage}, num});
            }
        }
    return keys;
}

void Typist::Table::addKeys(const std::vector<Key> &keys) {
    const auto state = composeStateOf(keyboard);
    for (const Key &key : keys) {
        const char32_t character = characterOfKeysym(key.keysym);
        if (character != 0 && !(state && changes(state.get(), key.keysym)))
            entries.emplace(character, Entry{{key.stroke}, key.needsNumLock});
    }
}

void Typist::Table::addDeadKeys(const std::vector<Key> &keys) {
    const auto state = composeStateOf(keyboard);
    if (!state) return;
    std::map<xkb_keysym_t, const Key *> dead, bases;
    for (const Key &key : keys) {
        if (isDead(key.keysym))
            dead.emplace(key.keysym, &key);
        else if (characterOfKeysym(key.keysym) >= 0x20)
            bases.emplace(key.keysym, &key);
    }
    for (const auto &[deadSym, first] : dead)
        for (const auto &[baseSym, second] : bases) {
            const char32_t result = composedBy(state.get(), deadSym, baseSym);
            if (result == 0 || !agreed(result, characterOfKeysym(baseSym), choice.system)) continue;
            entries.emplace(result, Entry{{first->stroke, second->stroke},
                                          first->needsNumLock || second->needsNumLock});
        }
}

bool Typist::Table::append(char32_t character, std::uint8_t &held, TypedText &typed) const {
    const auto found = entries.find(character);
    if (found == entries.end()) return false;
    for (const Stroke &stroke : found->second.strokes) appendStroke(typed.states, held, stroke);
    typed.needsNumLock = typed.needsNumLock || found->second.needsNumLock;
    return true;
}

bool Typist::Table::typable(const std::u32string &characters) const {
    return std::all_of(characters.begin(), characters.end(),
                       [&](char32_t character) { return entries.count(character) != 0; });
}

bool Typist::Table::appendAll(const std::u32string &characters, std::uint8_t &held,
                              TypedText &typed) const {
    if (!typable(characters)) return false;
    for (const char32_t character : characters) append(character, held, typed);
    return true;
}

bool Typist::Table::appendUnicode(UnicodeInput unicode, char32_t character, std::uint8_t &held,
                                  TypedText &typed) const {
    if (character < 0x20 || (character >= 0x7F && character < 0xA0)) return false;
    if (unicode == UnicodeInput::kWindows) {
        const unsigned number = windowsNumber(character);
        if (number == 0) return false;
        for (const char digit : "0" + std::to_string(number))
            appendStroke(typed.states, held, {kLeftAlt, keypadUsage(digit)});
        appendStroke(typed.states, held, {});
        typed.needsNumLock = true;
        return true;
    }
    if (unicode != UnicodeInput::kLinux) return false;
    char digits[16];
    snprintf(digits, sizeof digits, "%x ", static_cast<unsigned>(character));
    const std::u32string all = codePoints(digits);
    const auto u = entries.find(U'u');
    if (!typable(all) || u == entries.end()) return false;
    appendStroke(typed.states, held, {kLeftCtrl | kLeftShift, u->second.strokes.front().usage});
    appendStroke(typed.states, held, {});
    return appendAll(all, held, typed);
}

Typist::Typist(const LayoutChoice &choice, const std::optional<LockKeys> &locks)
    : table_(std::make_unique<Table>(choice)) {
    const bool caps = locks && locks->caps;
    std::vector<Table::Key> keys = table_->keysUnder(caps, locks && locks->num);
    if (locks) {
        for (Table::Key &key : keys) key.needsNumLock = false;
    } else {
        // A stroke that counts whatever Num Lock is, before one that needs it.
        const auto withNum = table_->keysUnder(caps, true);
        std::map<std::pair<std::uint8_t, std::uint8_t>, xkb_keysym_t> byStroke;
        for (const Table::Key &key : withNum)
            byStroke[{key.stroke.modifiers, key.stroke.usage}] = key.keysym;
        std::vector<Table::Key> always;
        for (const Table::Key &key : keys)
            if (byStroke[{key.stroke.modifiers, key.stroke.usage}] == key.keysym)
                always.push_back(key);
        keys = std::move(always);
        keys.insert(keys.end(), withNum.begin(), withNum.end());
    }
    table_->addKeys(keys);
    table_->addDeadKeys(keys);
}

Typist::~Typist() = default;
Typist::Typist(Typist &&) noexcept = default;

std::vector<Stroke> Typist::strokesOf(char32_t character) const {
    const auto found = table_->entries.find(character);
    return found == table_->entries.end() ? std::vector<Stroke>{} : found->second.strokes;
}

std::string Typist::reasonFor(char32_t character) const {
    if (character >= kNoCharacter) return "it is not UTF-8";
    if (character < 0x20 || character == 0x7F) return "it is a control character";
    const LayoutChoice &choice = table_->choice;
    const std::string name =
        choice.layout + (choice.variant.empty() ? "" : "(" + choice.variant + ")");
    xkb_keymap *keymap = table_->keyboard.keymap();
    const xkb_keycode_t last = xkb_keymap_max_keycode(keymap);
    const auto compose = composeStateOf(table_->keyboard);
    bool hasKey = false, hasUsage = false;
    for (xkb_keycode_t key = xkb_keymap_min_keycode(keymap); key <= last; ++key)
        for (xkb_level_index_t level = 0; level < xkb_keymap_num_levels_for_key(keymap, key, 0);
             ++level) {
            const xkb_keysym_t *syms = nullptr;
            if (xkb_keymap_key_get_syms_by_level(keymap, key, 0, level, &syms) != 1 ||
                characterOfKeysym(syms[0]) != character)
                continue;
            if (compose && changes(compose.get(), syms[0]))
                return "a computer makes other characters of it";
            hasKey = true;
            for (unsigned usage = kUsageA; usage <= kLastUsage; ++usage)
                hasUsage = hasUsage || keycodeOf(static_cast<std::uint8_t>(usage)) == key;
        }
    if (hasUsage)
        return "in the layout " + name + " it is behind a key that an endpoint cannot hold";
    if (hasKey) return "in the layout " + name + " it is on a key that an endpoint cannot press";
    return "the layout " + name + " has no key for it";
}

std::optional<TypedText> Typist::type(const std::string &text, UnicodeInput unicode,
                                      std::string &error) const {
    TypedText typed;
    std::uint8_t held = 0;
    constexpr std::size_t kMostAccents = 32;
    const std::u32string characters = withPlainLineEnds(codePoints(text));
    for (std::size_t i = 0; i < characters.size();) {
        // A character and the accents that combine with it.
        std::size_t end = i + 1;
        while (end < characters.size() && end - i <= kMostAccents && characters[i] < kNoCharacter &&
               characters[end] < kNoCharacter && isCombining(characters[end]))
            ++end;
        const std::u32string cluster = characters.substr(i, end - i);
        const bool plain = cluster[0] < kNoCharacter;
        if (table_->appendAll(cluster, held, typed) ||
            (plain && table_->appendAll(composed(cluster), held, typed))) {
            i = end;
            continue;
        }
        for (; i < end; ++i) {
            const char32_t character = characters[i];
            if (table_->append(character, held, typed) ||
                (plain && table_->appendUnicode(unicode, character, held, typed)))
                continue;
            const std::string what =
                "character " + std::to_string(i + 1) +
                (character < kNoCharacter ? " (" + codePointName(character) + ")" : "") + ": " +
                reasonFor(character);
            if (unicode != UnicodeInput::kSkip) {
                error = "cannot type " + what;
                return std::nullopt;
            }
            typed.skipped.push_back(what);
        }
    }
    appendStroke(typed.states, held, {});
    return typed;
}

bool Typist::needsNumLock(char32_t character) const {
    const auto found = table_->entries.find(character);
    return found != table_->entries.end() && found->second.needsNumLock;
}

std::optional<Stroke> Typist::keyFor(char32_t character) const {
    const auto strokes = strokesOf(character);
    if (strokes.size() == 1 && !needsNumLock(character)) return strokes.front();
    const bool latin = !strokesOf(U'a').empty() || !strokesOf(U'A').empty();
    if (latin) return std::nullopt;
    for (std::uint8_t usage = kUsageA; character != 0 && usage <= kLastUsage; ++usage)
        if (static_cast<char32_t>(positionCharacter(usage)) == character) return Stroke{0, usage};
    return std::nullopt;
}

KeyOfCharacter keyOf(const Typist &typist) {
    return [&typist](const std::string &name) -> std::optional<Stroke> {
        const std::u32string characters = codePoints(name);
        if (characters.size() != 1 || characters[0] >= kNoCharacter) return std::nullopt;
        return typist.keyFor(characters[0]);
    };
}

std::u32string Typist::characters() const {
    std::u32string all;
    for (const auto &[character, entry] : table_->entries) all += character;
    return all;
}

}  // namespace quillon
