#include "layouts/reading.h"

#include <xkbcommon/xkbcommon-keysyms.h>

#include <utility>

#include "layouts/keyboard.h"
#include "layouts/unicode.h"

namespace quillon {
namespace {

// What a dead key stands for by itself: the keysym of the same name without "dead_".
char32_t spacing(xkb_keysym_t dead) {
    char name[64] = "";
    xkb_keysym_get_name(dead, name, sizeof name);
    const std::string text(name), prefix = "dead_";
    if (text.rfind(prefix, 0) != 0) return 0;
    std::string plain = text.substr(prefix.size());
    if (plain == "circumflex") plain = "asciicircum";
    if (plain == "tilde") plain = "asciitilde";
    return xkb_keysym_to_utf32(xkb_keysym_from_name(plain.c_str(), XKB_KEYSYM_NO_FLAGS));
}

std::string plainText(xkb_keysym_t keysym) {
    const char32_t character = characterOfKeysym(keysym);
    return character == 0 ? "" : utf8(character);
}

}  // namespace

struct ReportReader::State {
    explicit State(const LayoutChoice &wanted)
        : choice(wanted),
          keyboard(wanted.layout, wanted.variant),
          keys(keyboard),
          compose(composeStateOf(keyboard)) {}

    std::string feed(xkb_keysym_t keysym);
    std::string withoutX(xkb_keysym_t keysym, const std::string &composed);

    LayoutChoice choice;
    Keyboard keyboard;
    KeyboardState keys;
    ComposeState compose;
    xkb_keysym_t dead = XKB_KEY_NoSymbol;  ///< pressed, and not completed yet
    unsigned commanding = 0;               ///< bits of the modifier byte that make commands
};

// Other systems compose only the characters of Latin-1, and else type accent and character.
std::string ReportReader::State::withoutX(xkb_keysym_t keysym, const std::string &composed) {
    const std::u32string result = codePoints(composed);
    const xkb_keysym_t accent = std::exchange(dead, XKB_KEY_NoSymbol);
    const bool space = keysym == XKB_KEY_space;
    if (result.size() == 1 && result[0] <= 0xFF &&
        !(space && choice.system == ComputerSystem::kWindows))
        return composed;
    const char32_t alone = spacing(accent);
    return (alone != 0 ? utf8(alone) : "") + (space ? "" : plainText(keysym));
}

std::string ReportReader::State::feed(xkb_keysym_t keysym) {
    if (!compose) return plainText(keysym);
    xkb_compose_state_feed(compose.get(), keysym);
    switch (xkb_compose_state_get_status(compose.get())) {
        case XKB_COMPOSE_COMPOSING:
            dead = keysym;
            return "";
        case XKB_COMPOSE_COMPOSED: {
            char bytes[64];
            xkb_compose_state_get_utf8(compose.get(), bytes, sizeof bytes);
            xkb_compose_state_reset(compose.get());
            if (choice.system != ComputerSystem::kX11 && dead != XKB_KEY_NoSymbol)
                return withoutX(keysym, bytes);
            dead = XKB_KEY_NoSymbol;
            return bytes;
        }
        case XKB_COMPOSE_CANCELLED:
            xkb_compose_state_reset(compose.get());
            if (choice.system != ComputerSystem::kX11) return withoutX(keysym, "");
            dead = XKB_KEY_NoSymbol;
            return "";
        default:
            return plainText(keysym);
    }
}

ReportReader::ReportReader(const LayoutChoice &choice) : state_(std::make_unique<State>(choice)) {}
ReportReader::~ReportReader() = default;
ReportReader::ReportReader(ReportReader &&) noexcept = default;

std::string ReportReader::press(std::uint8_t usage) {
    const xkb_keysym_t keysym = state_->keys.keysym(usage);
    std::string text;
    if (usage >= kUsageLeftCtrl) {
        const unsigned bit = 1U << (usage - kUsageLeftCtrl);
        const bool command = keysym == XKB_KEY_Control_L || keysym == XKB_KEY_Control_R ||
                             keysym == XKB_KEY_Alt_L || keysym == XKB_KEY_Alt_R ||
                             keysym == XKB_KEY_Meta_L || keysym == XKB_KEY_Meta_R ||
                             keysym == XKB_KEY_Super_L || keysym == XKB_KEY_Super_R;
        if (command) state_->commanding |= bit;
    } else if (state_->commanding == 0) {
        text = state_->feed(keysym);
    }
    state_->keys.set(usage, true);
    return text;
}

void ReportReader::release(std::uint8_t usage) {
    if (usage >= kUsageLeftCtrl) state_->commanding &= ~(1U << (usage - kUsageLeftCtrl));
    state_->keys.set(usage, false);
}

bool ReportReader::capsLock() const {
    return state_->keys.capsLock();
}

bool ReportReader::numLock() const {
    return state_->keys.numLock();
}

}  // namespace quillon
