#include "terminal/terminal_input.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>

namespace quillon {
namespace {

constexpr char kEscape = '\x1b';
constexpr char kPasteEnd[] = "\x1b[201~";
constexpr std::size_t kLongestSequence = 64, kLongestPaste = 1 << 20;

struct Named {
    int code;
    std::uint8_t usage;
};

// CSI ... letter, and SS3 letter.
constexpr Named kLetters[] = {{'A', 0x52}, {'B', 0x51}, {'C', 0x4F}, {'D', 0x50},
                              {'E', 0x5D}, {'F', 0x4D}, {'H', 0x4A}, {'P', 0x3A},
                              {'Q', 0x3B}, {'R', 0x3C}, {'S', 0x3D}, {'Z', 0x2B}};

// CSI number ~.
constexpr Named kNumbers[] = {
    {1, 0x4A},  {2, 0x49},  {3, 0x4C},  {4, 0x4D},  {5, 0x4B},  {6, 0x4E},  {7, 0x4A},
    {8, 0x4D},  {11, 0x3A}, {12, 0x3B}, {13, 0x3C}, {14, 0x3D}, {15, 0x3E}, {17, 0x3F},
    {18, 0x40}, {19, 0x41}, {20, 0x42}, {21, 0x43}, {23, 0x44}, {24, 0x45}, {25, 0x68},
    {26, 0x69}, {28, 0x6A}, {29, 0x6B}, {31, 0x6C}, {32, 0x6D}, {33, 0x6E}, {34, 0x6F}};

// Codes of the kitty protocol for keys without a character.
constexpr Named kPrivateUse[] = {
    {27, 0x29},    {13, 0x28},    {9, 0x2B},     {127, 0x2A},   {57358, 0x39}, {57359, 0x47},
    {57360, 0x53}, {57361, 0x46}, {57362, 0x48}, {57363, 0x65}, {57409, 0x63}, {57410, 0x54},
    {57411, 0x55}, {57412, 0x56}, {57413, 0x57}, {57414, 0x58}, {57415, 0x67}, {57417, 0x5C},
    {57418, 0x5E}, {57419, 0x60}, {57420, 0x5A}, {57421, 0x61}, {57422, 0x5B}, {57423, 0x5F},
    {57424, 0x59}, {57425, 0x62}, {57426, 0x63}, {57427, 0x5D}, {57441, 0xE1}, {57442, 0xE0},
    {57443, 0xE2}, {57444, 0xE3}, {57447, 0xE5}, {57448, 0xE4}, {57449, 0xE6}, {57450, 0xE7},
    {57453, 0xE6}};

template <std::size_t N>
std::uint8_t find(const Named (&table)[N], int code) {
    const auto *named = std::find_if(std::begin(table), std::end(table),
                                     [&](const Named &n) { return n.code == code; });
    return named == std::end(table) ? std::uint8_t{0} : named->usage;
}

std::uint8_t usageOfKittyCode(int code) {
    if (const std::uint8_t usage = find(kPrivateUse, code)) return usage;
    if (code >= 57376 && code <= 57387)  // F13 to F24
        return static_cast<std::uint8_t>(0x68 + code - 57376);
    if (code >= 57399 && code <= 57408)  // keypad, 0 behind 9 on the usage page
        return static_cast<std::uint8_t>(code == 57399 ? 0x62 : 0x59 + code - 57400);
    if (code < 0x20 || code > 0x7E) return 0;
    const auto stroke = strokeOf(static_cast<char>(code));
    return stroke ? stroke->usage : std::uint8_t{0};
}

// The modifiers of a sequence: 1 and the bits shift, alt, ctrl, super.
std::uint8_t modifiersOf(int parameter) {
    const int bits = std::max(parameter, 1) - 1;
    return static_cast<std::uint8_t>(
        ((bits & 1) != 0 ? kLeftShift : 0) | ((bits & 2) != 0 ? kLeftAlt : 0) |
        ((bits & 4) != 0 ? kLeftCtrl : 0) | ((bits & 8) != 0 ? kLeftGui : 0));
}

TerminalEvent keyEvent(TerminalEvent::Kind kind, std::uint8_t modifiers, std::uint8_t usage) {
    TerminalEvent event;
    event.kind = usage == 0 ? TerminalEvent::kUnknown : kind;
    event.stroke = {modifiers, usage};
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

// What one byte without an escape before it stands for.
std::optional<Stroke> strokeOfByte(char byte) {
    switch (byte) {
        case '\r':
            return Stroke{0, kUsageEnter};
        case '\t':
            return strokeOf('\t');
        case '\b':
        case '\x7f':
            return Stroke{0, kUsageBackspace};
        case kEscape:
            return Stroke{0, kUsageEscape};
        case '\0':
            return Stroke{kLeftCtrl, strokeOf(' ')->usage};
        default:
            break;
    }
    const auto value = static_cast<unsigned char>(byte);
    if (value >= 0x20) return strokeOf(byte);
    // Ctrl takes the upper bits from a character: letters, and [ \ ] 6 / for what follows them.
    constexpr char kBehindLetters[] = "[\\]6/";
    const char plain =
        value <= 26 ? static_cast<char>('a' + value - 1) : kBehindLetters[value - 27];
    const std::uint8_t usage = strokeOf(plain)->usage;
    return Stroke{kLeftCtrl, usage};
}

char printableOrNone(int code) {
    return code >= ' ' && code <= '~' ? static_cast<char>(code) : '\0';
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

// A key of which the kitty protocol, or a terminal's own modifiers, tell.
TerminalEvent reportedKey(const Parameters &parameters, std::uint8_t usage, bool reports) {
    constexpr TerminalEvent::Kind kKinds[] = {TerminalEvent::kPress, TerminalEvent::kPress,
                                              TerminalEvent::kRepeat, TerminalEvent::kRelease};
    const int type = std::min(parameters[1][1], 3);
    const auto kind = reports || type != 0 ? kKinds[type] : TerminalEvent::kTap;
    return keyEvent(kind, modifiersOf(parameters[1][0]), usage);
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
        events.push_back(keyEvent(TerminalEvent::kTap, 0, strokeOfByte(kEscape)->usage));
        if (pending_.size() == 2) {  // Alt and a key that sequences begin with
            const auto stroke = strokeOfByte(pending_[1]);
            events.back().stroke = {static_cast<std::uint8_t>(stroke->modifiers | kLeftAlt),
                                    stroke->usage};
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
    const auto stroke = size == 1 ? strokeOfByte(pending_[0]) : std::nullopt;
    if (stroke) {
        events.push_back(keyEvent(TerminalEvent::kTap, stroke->modifiers, stroke->usage));
        events.back().character = printableOrNone(static_cast<unsigned char>(pending_[0]));
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
        std::uint8_t usage = find(kLetters, pending_[2]);
        if (pending_[2] == 'M') usage = kUsageKeypadEnter;
        if (usage != 0) {
            events.push_back(keyEvent(TerminalEvent::kTap, 0, usage));
            return 3;
        }
    }
    // Alt puts an escape before what the key sends.
    const auto stroke = strokeOfByte(pending_[1]);
    if (!stroke || pending_[1] == kEscape) {
        events.push_back(keyEvent(TerminalEvent::kTap, 0, strokeOfByte(kEscape)->usage));
        return 1;
    }
    const auto modifiers = static_cast<std::uint8_t>(stroke->modifiers | kLeftAlt);
    events.push_back(keyEvent(TerminalEvent::kTap, modifiers, stroke->usage));
    return 2;
}

std::size_t TerminalInput::readControlSequence(std::vector<TerminalEvent> &events) {
    constexpr std::size_t kStart = 2;
    // The Linux console has a second bracket in F1 to F5.
    if (pending_.size() > kStart && pending_[kStart] == '[') {
        if (pending_.size() == kStart + 1) return 0;
        const auto usage = static_cast<std::uint8_t>(0x3A + pending_[kStart + 1] - 'A');
        const bool known = pending_[kStart + 1] >= 'A' && pending_[kStart + 1] <= 'E';
        events.push_back(keyEvent(TerminalEvent::kTap, 0, known ? usage : std::uint8_t{0}));
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
        events.push_back(
            reportedKey(parameters, usageOfKittyCode(base != 0 ? base : code), reports_));
        const bool shift = (events.back().stroke.modifiers & kLeftShift) != 0;
        events.back().character = printableOrNone(shift && shifted != 0 ? shifted : code);
    } else {
        events.push_back(reportedKey(parameters, find(kLetters, last), reports_));
        if (last == 'Z') events.back().stroke.modifiers |= kLeftShift;
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
    for (std::size_t i = 0; i < size; ++i) {  // terminals say the Enter key for a line's end
        if (pending_[i] == '\n' && i > 0 && pending_[i - 1] == '\r') continue;
        text += pending_[i] == '\r' ? '\n' : pending_[i];
    }
    events.push_back(textEvent(TerminalEvent::kPaste, text));
    pending_.erase(0, size);
    searched_ = 0;
    pasting_ = false;
}

}  // namespace quillon
