#include "terminal/terminal_input.h"

#include <algorithm>
#include <array>
#include <optional>

namespace quillon {
namespace {

constexpr char kEscape = '\x1b';
constexpr char kPasteEnd[] = "\x1b[201~";
constexpr std::size_t kLongestSequence = 64, kLongestPaste = 1 << 20;

struct Named {
    int code;
    int key;
};

// CSI ... letter, and SS3 letter.
constexpr Named kLetters[] = {{'A', kKeyUp},     {'B', kKeyDown},   {'C', kKeyRight},
                              {'D', kKeyLeft},   {'E', kKeyBegin},  {'F', kKeyEnd},
                              {'H', kKeyHome},   {'P', kKeyF1},     {'Q', kKeyF1 + 1},
                              {'R', kKeyF1 + 2}, {'S', kKeyF1 + 3}, {'Z', kKeyTab}};

// CSI number ~.
constexpr Named kNumbers[] = {
    {1, kKeyHome},     {2, kKeyInsert},   {3, kKeyDelete},   {4, kKeyEnd},      {5, kKeyPageUp},
    {6, kKeyPageDown}, {7, kKeyHome},     {8, kKeyEnd},      {11, kKeyF1},      {12, kKeyF1 + 1},
    {13, kKeyF1 + 2},  {14, kKeyF1 + 3},  {15, kKeyF1 + 4},  {17, kKeyF1 + 5},  {18, kKeyF1 + 6},
    {19, kKeyF1 + 7},  {20, kKeyF1 + 8},  {21, kKeyF1 + 9},  {23, kKeyF1 + 10}, {24, kKeyF1 + 11},
    {25, kKeyF1 + 12}, {26, kKeyF1 + 13}, {28, kKeyF1 + 14}, {29, kKeyF1 + 15}, {31, kKeyF1 + 16},
    {32, kKeyF1 + 17}, {33, kKeyF1 + 18}, {34, kKeyF1 + 19}};

template <std::size_t N>
int find(const Named (&table)[N], int code) {
    const auto *named = std::find_if(std::begin(table), std::end(table),
                                     [&](const Named &n) { return n.code == code; });
    return named == std::end(table) ? 0 : named->key;
}

// The modifiers of a sequence: 1 plus the bits. Bits of other modifiers are ignored.
unsigned modifiersOf(int parameter) {
    constexpr unsigned kKnown = kTerminalShift | kTerminalAlt | kTerminalCtrl | kTerminalSuper;
    return static_cast<unsigned>(std::max(parameter, 1) - 1) & kKnown;
}

TerminalEvent keyEvent(TerminalEvent::Kind kind, unsigned modifiers, int key) {
    TerminalEvent event;
    event.kind = key == 0 ? TerminalEvent::kUnknown : kind;
    event.modifiers = modifiers;
    event.key = key;
    return event;
}

TerminalEvent textEvent(TerminalEvent::Kind kind, std::string text) {
    TerminalEvent event;
    event.kind = kind;
    event.text = std::move(text);
    return event;
}

TerminalEvent flagEvent(TerminalEvent::Kind kind, bool on) {
    TerminalEvent event;
    event.kind = kind;
    event.on = on;
    return event;
}

struct KeyWithModifiers {
    unsigned modifiers;
    int key;
};

// The key that sends this byte without an escape before it; none for a byte beyond ASCII.
std::optional<KeyWithModifiers> keyOfByte(char byte) {
    switch (byte) {
        case '\r':
            return KeyWithModifiers{0, kKeyEnter};
        case '\t':
            return KeyWithModifiers{0, kKeyTab};
        case '\b':
        case '\x7f':
            return KeyWithModifiers{0, kKeyBackspace};
        case kEscape:
            return KeyWithModifiers{0, kKeyEscape};
        case '\0':
            return KeyWithModifiers{kTerminalCtrl, ' '};
        default:
            break;
    }
    const auto value = static_cast<unsigned char>(byte);
    if (value >= 0x80) return std::nullopt;
    if (value >= 0x20) return KeyWithModifiers{0, value};
    // Ctrl takes the upper bits from a character: letters, and [ \ ] 6 / for what follows them.
    constexpr char kBehindLetters[] = "[\\]6/";
    const char plain =
        value <= 26 ? static_cast<char>('a' + value - 1) : kBehindLetters[value - 27];
    return KeyWithModifiers{kTerminalCtrl, plain};
}

// The character of a code, 0 for one that stands for a key without a character.
char32_t characterOf(int code) {
    constexpr int kPrivateUse = 0xE000, kPrivateUseEnd = 0xF900;
    const bool key = code < 0x20 || code == 0x7F || (code >= kPrivateUse && code < kPrivateUseEnd);
    return key ? 0 : static_cast<char32_t>(code);
}

// The code point of a whole UTF-8 sequence; none for one that is too long for its value.
std::optional<int> codePointOf(const std::string &bytes) {
    constexpr int kFirst[] = {0, 0, 0x80, 0x800, 0x10000};
    const std::size_t size = bytes.size();
    int code = static_cast<unsigned char>(bytes[0]) & (0xFF >> (size + 1));
    for (std::size_t i = 1; i < size; ++i) code = code << 6 | (bytes[i] & 0x3F);
    if (size < 2 || code < kFirst[size] || code > 0x10FFFF) return std::nullopt;
    if (code >= 0xD800 && code < 0xE000) return std::nullopt;
    return code;
}

std::size_t utf8Size(unsigned char first) {
    if (first >= 0xF0) return 4;
    if (first >= 0xE0) return 3;
    return first >= 0xC0 ? 2 : 1;
}

// The parameters of a control sequence, each with its parts behind colons; 0 where one is empty.
using Parameters = std::array<std::array<int, 3>, 4>;

Parameters parametersOf(const std::string &text) {
    constexpr long kLargest = 0x10FFFF;
    Parameters parameters{};
    std::size_t parameter = 0, part = 0;
    for (std::size_t i = 0; i <= text.size() && parameter < parameters.size(); ++i) {
        const char c = i < text.size() ? text[i] : ';';
        if (c >= '0' && c <= '9' && part < 3) {
            int &value = parameters[parameter][part];
            value = static_cast<int>(std::min(10L * value + (c - '0'), kLargest));
        }
        if (c == ':') ++part;
        if (c == ';') {
            ++parameter;
            part = 0;
        }
    }
    return parameters;
}

TerminalEvent mouseEvent(const Parameters &parameters, bool up) {
    constexpr int kMotion = 32, kWheelBit = 64, kExtraButtons = 128;
    const int code = parameters[0][0];
    TerminalEvent event;
    event.kind = TerminalEvent::kMouse;
    event.column = parameters[1][0] - 1;
    event.row = parameters[2][0] - 1;
    if ((code & kWheelBit) != 0) {
        event.action = TerminalEvent::kWheel;
        event.button = (code & 3) == 0 ? 1 : (code & 3) == 1 ? -1 : 0;
        return event;
    }
    event.button = (code & 3) + 1 + ((code & kExtraButtons) != 0 ? 7 : 0);
    event.action = (code & kMotion) != 0 ? TerminalEvent::kMove
                   : up                  ? TerminalEvent::kUp
                                         : TerminalEvent::kDown;
    return event;
}

// A key that is reported with modifiers, or by the kitty protocol with what happened to it.
TerminalEvent reportedKey(const Parameters &parameters, int key, bool reports) {
    constexpr TerminalEvent::Kind kKinds[] = {TerminalEvent::kPress, TerminalEvent::kPress,
                                              TerminalEvent::kRepeat, TerminalEvent::kRelease};
    const int type = std::min(parameters[1][1], 3);
    const auto kind = reports || type != 0 ? kKinds[type] : TerminalEvent::kTap;
    return keyEvent(kind, modifiersOf(parameters[1][0]), key);
}

}  // namespace

std::vector<TerminalEvent> TerminalInput::take(const std::string &bytes) {
    std::vector<TerminalEvent> events;
    pending_ += bytes;
    while (!pending_.empty()) {
        if (pasting_) {
            readPaste(events);
            if (pasting_) break;
            continue;
        }
        const std::size_t used = readOne(events);
        if (used == 0) break;
        pending_.erase(0, used);
    }
    return events;
}

std::chrono::milliseconds TerminalInput::patience() const {
    // Behind an escape a key's bytes come at once; a longer sequence may be cut by a network.
    constexpr std::chrono::milliseconds kEscapeKey(40), kSequence(1000), kPaste(3000);
    if (pasting_) return kPaste;
    return pending_.size() <= 2 ? kEscapeKey : kSequence;
}

std::vector<TerminalEvent> TerminalInput::flush() {
    std::vector<TerminalEvent> events;
    if (pasting_) {
        takePaste(pending_.size(), events);
    } else if (!pending_.empty() && pending_[0] == kEscape && pending_.size() <= 2) {
        events.push_back(keyEvent(TerminalEvent::kTap, 0, kKeyEscape));
        if (pending_.size() == 2) {  // Alt and a key that sequences begin with
            const auto key = keyOfByte(pending_[1]);
            events.back() = keyEvent(TerminalEvent::kTap, key->modifiers | kTerminalAlt, key->key);
        }
    }
    pending_.clear();
    return events;
}

std::size_t TerminalInput::readOne(std::vector<TerminalEvent> &events) {
    if (pending_[0] == kEscape) return readEscape(events);
    const std::size_t size = utf8Size(static_cast<unsigned char>(pending_[0]));
    for (std::size_t i = 1; i < size; ++i) {
        if (i == pending_.size()) return 0;
        if ((pending_[i] & 0xC0) != 0x80) return i;  // no character at all
    }
    const auto key = size == 1 ? keyOfByte(pending_[0]) : std::nullopt;
    if (key) {
        events.push_back(keyEvent(TerminalEvent::kTap, key->modifiers, key->key));
        events.back().character = characterOf(static_cast<unsigned char>(pending_[0]));
        events.back().typed = events.back().character != 0;
    } else if (const auto code = codePointOf(pending_.substr(0, size));
               code && characterOf(*code) != 0) {
        events.push_back(keyEvent(TerminalEvent::kTap, 0, *code));
        events.back().character = characterOf(*code);
        events.back().typed = true;
    } else {
        events.push_back(textEvent(TerminalEvent::kUnknown, pending_.substr(0, size)));
    }
    return size;
}

std::size_t TerminalInput::readEscape(std::vector<TerminalEvent> &events) {
    if (pending_.size() < 2) return 0;
    if (pending_[1] == '[') return readControlSequence(events);
    if (pending_[1] == 'O') {
        if (pending_.size() < 3) return 0;
        const int key = pending_[2] == 'M' ? int{kKeyKeypadEnter} : find(kLetters, pending_[2]);
        if (key != 0) {
            events.push_back(keyEvent(TerminalEvent::kTap, 0, key));
            return 3;
        }
    }
    // Alt puts an escape before what the key sends.
    const auto key = keyOfByte(pending_[1]);
    if (!key || pending_[1] == kEscape) {
        events.push_back(keyEvent(TerminalEvent::kTap, 0, kKeyEscape));
        return 1;
    }
    events.push_back(keyEvent(TerminalEvent::kTap, key->modifiers | kTerminalAlt, key->key));
    return 2;
}

std::size_t TerminalInput::readControlSequence(std::vector<TerminalEvent> &events) {
    constexpr std::size_t kStart = 2;
    // The Linux console has a second bracket in F1 to F5.
    if (pending_.size() > kStart && pending_[kStart] == '[') {
        if (pending_.size() == kStart + 1) return 0;
        const int number = pending_[kStart + 1] - 'A';
        const bool known = number >= 0 && number < 5;
        events.push_back(keyEvent(TerminalEvent::kTap, 0, known ? kKeyF1 + number : 0));
        return kStart + 2;
    }
    std::size_t end = kStart;
    while (end < pending_.size() && pending_[end] != kEscape &&
           (pending_[end] < '@' || pending_[end] > '~'))
        ++end;
    if (end == pending_.size()) return end < kLongestSequence ? 0 : end;
    if (pending_[end] == kEscape) return end;      // cut off by the next one
    constexpr std::size_t kOldMouse = kStart + 4;  // 'M', and three bytes instead of numbers
    if (end == kStart && pending_[end] == 'M') return pending_.size() < kOldMouse ? 0 : kOldMouse;
    const std::string body = pending_.substr(kStart, end - kStart);
    takeControlSequence(body, pending_[end], events);
    return end + 1;
}

void TerminalInput::takeControlSequence(const std::string &body, char last,
                                        std::vector<TerminalEvent> &events) {
    const Parameters parameters = parametersOf(body);
    const auto [code, shifted, base] = parameters[0];
    const char first = body.empty() ? '\0' : body[0];
    if (first == '<' && (last == 'M' || last == 'm')) {
        if (parameters[1][0] < 1 || parameters[2][0] < 1) return;  // cells count from 1
        events.push_back(mouseEvent(parameters, last == 'm'));
    } else if (first == '?' && last == 'u') {
        reports_ = (code & 2) != 0;
        events.push_back(flagEvent(TerminalEvent::kKeyReports, reports_));
    } else if (first >= '<' && first <= '?') {
        return;  // an answer that nobody asked for
    } else if (body.empty() && (last == 'I' || last == 'O')) {
        events.push_back(flagEvent(TerminalEvent::kFocus, last == 'I'));
    } else if (last == '~' && code == 200) {
        pasting_ = true;
    } else if (last == '~') {
        events.push_back(reportedKey(parameters, find(kNumbers, code), reports_));
    } else if (last == 'u') {  // base: the key of a US layout at the same place
        const int text = parameters[2][0];
        events.push_back(reportedKey(parameters, code != 0 ? code : text, reports_));
        events.back().base = base;
        const bool shift = (events.back().modifiers & kTerminalShift) != 0;
        events.back().character = characterOf(text != 0               ? text
                                              : shift && shifted != 0 ? shifted
                                                                      : code);
        events.back().typed = text != 0 && events.back().character != 0;
    } else {
        events.push_back(reportedKey(parameters, find(kLetters, last), reports_));
        if (last == 'Z') events.back().modifiers |= kTerminalShift;
    }
}

void TerminalInput::readPaste(std::vector<TerminalEvent> &events) {
    constexpr std::size_t kEndSize = sizeof kPasteEnd - 1;
    const std::size_t end = pending_.find(kPasteEnd, searched_);
    if (end == std::string::npos) {
        searched_ = pending_.size() < kEndSize ? 0 : pending_.size() - kEndSize + 1;
        if (pending_.size() > kLongestPaste) takePaste(pending_.size(), events);
        return;
    }
    takePaste(end, events);
    pending_.erase(0, std::min(kEndSize, pending_.size()));
}

// So many bytes are the text; they go.
void TerminalInput::takePaste(std::size_t size, std::vector<TerminalEvent> &events) {
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {  // terminals send the Enter key at the end of a line
        if (pending_[i] == '\n' && i > 0 && pending_[i - 1] == '\r') continue;
        text += pending_[i] == '\r' ? '\n' : pending_[i];
    }
    events.push_back(textEvent(TerminalEvent::kPaste, text));
    pending_.erase(0, size);
    searched_ = 0;
    pasting_ = false;
}

}  // namespace quillon
