#include "layouts/keyboard.h"

#include <cstdio>
#include <stdexcept>

namespace quillon {
namespace {

constexpr char kDatabase[] = "/usr/share/X11/xkb";
constexpr char kComposeFile[] = "/usr/share/X11/locale/en_US.UTF-8/Compose";

// Linux' event codes by HID usage, as its HID driver assigns them; 0 for keys without one.
constexpr unsigned char kEventCodes[] = {
    0,   0,   0,   0,   30,  48,  46,  32,  18,  33,  34,  35,  23,  36,  37,  38,   // 00
    50,  49,  24,  25,  16,  19,  31,  20,  22,  47,  17,  45,  21,  44,  2,   3,    // 10
    4,   5,   6,   7,   8,   9,   10,  11,  28,  1,   14,  15,  57,  12,  13,  26,   // 20
    27,  43,  43,  39,  40,  41,  51,  52,  53,  58,  59,  60,  61,  62,  63,  64,   // 30
    65,  66,  67,  68,  87,  88,  99,  70,  119, 110, 102, 104, 111, 107, 109, 106,  // 40
    105, 108, 103, 69,  98,  55,  74,  78,  96,  79,  80,  81,  75,  76,  77,  71,   // 50
    72,  73,  82,  83,  86,  127, 116, 117, 183, 184, 185, 186, 187, 188, 189, 190,  // 60
    191, 192, 193, 194, 134, 138, 130, 132, 128, 129, 131, 137, 133, 135, 136, 113,  // 70
    115, 114, 0,   0,   0,   121, 0,   89,  93,  124, 92,  94,  95,  0,   0,   0,    // 80
    122, 123, 90,  91,  85,                                                          // 90
};
constexpr unsigned char kModifierCodes[] = {29, 42, 56, 125, 97, 54, 100, 126};  // E0
constexpr std::uint8_t kFirstModifier = 0xE0;
constexpr xkb_keycode_t kOffset = 8;  // from event codes to key codes

}  // namespace

xkb_keycode_t keycodeOf(std::uint8_t usage) {
    unsigned char code = 0;
    if (usage < sizeof kEventCodes) code = kEventCodes[usage];
    if (usage >= kFirstModifier && usage < kFirstModifier + sizeof kModifierCodes)
        code = kModifierCodes[usage - kFirstModifier];
    return code == 0 ? 0 : code + kOffset;
}

Keyboard::Keyboard(const std::string &layout, const std::string &variant)
    : context_(xkb_context_new(static_cast<xkb_context_flags>(XKB_CONTEXT_NO_DEFAULT_INCLUDES |
                                                              XKB_CONTEXT_NO_ENVIRONMENT_NAMES))) {
    if (!context_) throw std::runtime_error("libxkbcommon does not start");
    xkb_context_set_log_fn(context_.get(), [](xkb_context *, xkb_log_level, const char *, va_list) {
        // The caller says which layout it was.
    });
    if (xkb_context_include_path_append(context_.get(), kDatabase) == 0)
        throw std::runtime_error(std::string("no keyboard layouts in ") + kDatabase +
                                 "; they are in the package xkb-data");
    const std::string name = layout + (variant.empty() ? "" : "(" + variant + ")");
    // Several layouts in one, or a path, are no name of a layout.
    const auto plainName = [](const std::string &text) {
        return text.find_first_not_of(
                   "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-") ==
               std::string::npos;
    };
    const bool plain = !layout.empty() && plainName(layout) && plainName(variant);
    const xkb_rule_names names{"evdev", "pc105", layout.c_str(), variant.c_str(), ""};
    if (plain)
        keymap_.reset(
            xkb_keymap_new_from_names(context_.get(), &names, XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!keymap_) throw std::runtime_error("there is no keyboard layout " + name);
    if (FILE *file = fopen(kComposeFile, "re")) {
        compose_.reset(xkb_compose_table_new_from_file(context_.get(), file, "en_US.UTF-8",
                                                       XKB_COMPOSE_FORMAT_TEXT_V1,
                                                       XKB_COMPOSE_COMPILE_NO_FLAGS));
        fclose(file);
    }
}

ComposeState composeStateOf(const Keyboard &keyboard) {
    if (keyboard.compose() == nullptr) return nullptr;
    return ComposeState(xkb_compose_state_new(keyboard.compose(), XKB_COMPOSE_STATE_NO_FLAGS));
}

char32_t characterOfKeysym(xkb_keysym_t keysym) {
    if (keysym == XKB_KEY_Return || keysym == XKB_KEY_KP_Enter) return U'\n';
    if (keysym == XKB_KEY_Tab) return U'\t';
    const char32_t character = xkb_keysym_to_utf32(keysym);
    return character >= 0x20 && character != 0x7F ? character : 0;
}

KeyboardState::KeyboardState(const Keyboard &keyboard) : state_(xkb_state_new(keyboard.keymap())) {
    if (!state_) throw std::runtime_error("libxkbcommon has no memory for a keyboard");
}

void KeyboardState::set(std::uint8_t usage, bool down) {
    if (const xkb_keycode_t key = keycodeOf(usage))
        xkb_state_update_key(state_.get(), key, down ? XKB_KEY_DOWN : XKB_KEY_UP);
}

xkb_keysym_t KeyboardState::keysym(std::uint8_t usage) const {
    const xkb_keycode_t key = keycodeOf(usage);
    return key == 0 ? XKB_KEY_NoSymbol : xkb_state_key_get_one_sym(state_.get(), key);
}

bool KeyboardState::active(const char *led) const {
    return xkb_state_led_name_is_active(state_.get(), led) > 0;
}

}  // namespace quillon
