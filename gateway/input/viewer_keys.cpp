#include "gateway/input/viewer_keys.h"

#include <algorithm>

#include "gateway/input/scan_codes.h"
#include "layouts/keysyms.h"
#include "layouts/unicode.h"
#include "protocol/keys.h"

namespace gateway {
namespace {

using quillon::Stroke;

constexpr std::size_t kMostDown = 32;      // keys; people have ten fingers
constexpr std::size_t kMostWaiting = 200;  // records; 1.6 s, at one in 8 ms

bool isLockKey(std::uint8_t usage) {
    return usage == quillon::kUsageCapsLock || usage == quillon::kUsageNumLock;
}

bool isLetter(char32_t character) {
    constexpr char32_t kLastOfAscii = 0x7F, kToLower = 0x20;
    const char32_t lower = character | kToLower;
    return character > kLastOfAscii || (lower >= U'a' && lower <= U'z');
}

std::uint8_t bitOf(std::uint8_t usage) {
    return usage < quillon::kUsageLeftCtrl
               ? std::uint8_t{0}
               : static_cast<std::uint8_t>(1U << (usage - quillon::kUsageLeftCtrl));
}

}  // namespace

std::uint8_t ViewerKeys::Down::modifiers() const {
    return counts ? bitOf(usage) : std::uint8_t{0};
}

std::vector<ViewerKeys::Down>::iterator ViewerKeys::find(const ViewerKey &key) {
    return std::find_if(down_.begin(), down_.end(),
                        [&](const Down &down) { return down.key == key; });
}

std::uint8_t ViewerKeys::held() const {
    unsigned all = 0;
    for (const Down &down : down_) all |= down.modifiers();
    return static_cast<std::uint8_t>(all);
}

std::uint8_t ViewerKeys::takeLockKey() {
    const std::uint8_t key = lockKey_;
    lockKey_ = 0;
    return key;
}

bool ViewerKeys::holding() const {
    return std::any_of(down_.begin(), down_.end(), [](const Down &down) { return down.counts; });
}

void ViewerKeys::send(const Stroke &stroke) {
    input_.press(stroke);
    if (isLockKey(stroke.usage)) lockKey_ = stroke.usage;
}

std::string ViewerKeys::press(const ViewerKey &key) {
    if (find(key) != down_.end()) return "";  // a repeat
    if (down_.size() >= kMostDown) return "too many keys are down at once";
    if (input_.waiting() > kMostWaiting) return "keys come faster than the endpoint takes them";
    if (key.kind == ViewerKey::kScanCode) {
        const std::uint8_t usage = usageOfScanCode(key.number);
        return usage != 0 ? pressUsage(key, usage) : "the computer's keyboard has no such key";
    }
    if (const std::uint8_t usage = quillon::usageOfKeysym(key.number))
        return pressUsage(key, usage);
    if (const char32_t character = quillon::characterOf(key.number))
        return pressCharacter(key, character);
    return "the computer's keyboard has no such key";
}

std::string ViewerKeys::pressUsage(const ViewerKey &key, std::uint8_t usage) {
    down_.push_back({key, usage, true});
    if (const std::uint8_t bit = bitOf(usage)) {
        Stroke state = input_.keyboard();
        state.modifiers = static_cast<std::uint8_t>(state.modifiers | bit);
        input_.setKeyboard(state);
        return "";
    }
    newest_ = key;
    send({held(), usage});
    return "";
}

std::string ViewerKeys::pressCharacter(const ViewerKey &key, char32_t character) {
    const quillon::Typist &typist = typist_();
    const std::uint8_t modifiers = held();
    constexpr unsigned kCtrl = quillon::kLeftCtrl | quillon::kRightCtrl;
    constexpr unsigned kCommands =
        kCtrl | quillon::kLeftAlt | quillon::kLeftGui | quillon::kRightGui;
    const std::vector<Stroke> strokes = typist.strokesOf(character);
    // Some systems send AltGr as Ctrl and Alt: then it belongs to the character.
    const bool byAltGr = strokes.size() == 1 && (strokes[0].modifiers & quillon::kRightAlt) != 0 &&
                         (modifiers & quillon::kRightAlt) != 0;
    const bool command = (modifiers & kCommands) != 0 && !byAltGr;
    const bool right = (modifiers & quillon::kRightAlt) != 0 && !byAltGr && strokes.size() == 1;
    if (command || right) {
        const auto position = typist.keyFor(character);
        if (!position) return "there is no key for " + quillon::codePointName(character);
        down_.push_back({key, position->usage, true});
        newest_ = key;
        // A letter comes as a capital where Caps Lock is on; Shift is what the person holds.
        const unsigned own = position->modifiers & ~(isLetter(character) ? quillon::kAnyShift : 0U);
        send({static_cast<std::uint8_t>(modifiers | own), position->usage});
        return "";
    }
    if (strokes.empty())
        return "cannot type " + quillon::codePointName(character) + ": " +
               typist.reasonFor(character);
    const bool single = strokes.size() == 1;
    down_.push_back({key, single ? strokes[0].usage : std::uint8_t{0}, true});
    newest_ = key;
    if (single) {
        send(strokes[0]);
        return "";
    }
    for (const Stroke &stroke : strokes) {
        send(stroke);
        input_.setKeyboard({});
    }
    input_.setKeyboard({modifiers, 0});
    return "";
}

void ViewerKeys::release(const ViewerKey &key) {
    auto released = find(key);
    if (released == down_.end() && key.kind == ViewerKey::kKeysym) {
        // The same key may have another name when Shift went up before it.
        const char32_t character = quillon::characterOf(key.number);
        const auto strokes = typist_().strokesOf(character);
        if (character == 0 || strokes.size() != 1) return;
        released = std::find_if(down_.begin(), down_.end(), [&](const Down &down) {
            return down.key.kind == ViewerKey::kKeysym && down.usage == strokes[0].usage;
        });
    }
    if (released == down_.end()) return;
    const Down up = *released;
    down_.erase(released);
    if (!up.counts) return;
    if (const std::uint8_t bit = bitOf(up.usage)) {
        Stroke state = input_.keyboard();
        if ((held() & bit) == 0)
            state.modifiers = static_cast<std::uint8_t>(state.modifiers & ~bit);
        input_.setKeyboard(state);
    } else if (newest_ == up.key) {
        newest_.reset();
        input_.setKeyboard({held(), 0});
    }
}

void ViewerKeys::ignore(const ViewerKey &key) {
    if (find(key) == down_.end() && down_.size() < kMostDown) down_.push_back({key, 0, false});
}

void ViewerKeys::letGo() {
    for (Down &down : down_) down.counts = false;
    newest_.reset();
}

}  // namespace gateway
