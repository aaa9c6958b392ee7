#include "layouts/keysyms.h"

#include <xkbcommon/xkbcommon-keysyms.h>

#include <map>

#include "layouts/keyboard.h"
#include "protocol/keys.h"

namespace quillon {
namespace {

constexpr unsigned kLastUsage = 0xFF;

// What the database has under other names, or viewers use for keys of other keyboards.
const std::map<xkb_keysym_t, std::uint8_t> kOthers{
    {XKB_KEY_ISO_Level3_Shift, 0xE6}, {XKB_KEY_Mode_switch, 0xE6},
    {XKB_KEY_Meta_L, 0xE2},           {XKB_KEY_Meta_R, 0xE6},
    {XKB_KEY_Hyper_L, 0xE3},          {XKB_KEY_Hyper_R, 0xE7},
    {XKB_KEY_Shift_Lock, 0x39},       {XKB_KEY_ISO_Left_Tab, 0x2B},
    {XKB_KEY_Sys_Req, 0x46},          {XKB_KEY_Break, 0x48},
    {XKB_KEY_KP_Separator, 0x63},     {XKB_KEY_Alt_R, 0xE6},
    {XKB_KEY_Linefeed, 0x28}};

bool isKeypad(xkb_keysym_t keysym) {
    return keysym >= XKB_KEY_KP_Space && keysym <= XKB_KEY_KP_Equal;
}

// Of a US keyboard, with Num Lock off and on, without what types a character.
std::map<xkb_keysym_t, std::uint8_t> namedKeys() {
    std::map<xkb_keysym_t, std::uint8_t> keys;
    const Keyboard keyboard("us", "");
    for (const bool num : {false, true}) {
        KeyboardState state(keyboard);
        state.set(kUsageNumLock, num);
        if (num) state.set(kUsageNumLock, false);
        for (unsigned usage = kUsageA; usage <= kLastUsage; ++usage) {
            const auto key = static_cast<std::uint8_t>(usage);
            const xkb_keysym_t keysym = state.keysym(key);
            if (keysym == XKB_KEY_NoSymbol) continue;
            const char32_t character = characterOfKeysym(keysym);
            if (character < 0x20 || isKeypad(keysym)) keys.emplace(keysym, key);
        }
    }
    keys.insert(kOthers.begin(), kOthers.end());
    return keys;
}

}  // namespace

std::uint8_t usageOfKeysym(std::uint32_t keysym) {
    static const auto keys = namedKeys();
    const auto found = keys.find(keysym);
    return found == keys.end() ? std::uint8_t{0} : found->second;
}

char32_t characterOf(std::uint32_t keysym) {
    return characterOfKeysym(keysym);
}

std::uint8_t usageOfEventCode(unsigned code) {
    static const auto usages = [] {
        std::map<xkb_keycode_t, std::uint8_t> all;
        for (unsigned usage = kUsageA; usage <= kLastUsage; ++usage)
            if (const auto key = keycodeOf(static_cast<std::uint8_t>(usage)))
                all.emplace(key, static_cast<std::uint8_t>(usage));
        return all;
    }();
    constexpr unsigned kOffset = 8;  // from event codes to key codes
    const auto found = usages.find(code + kOffset);
    return found == usages.end() ? std::uint8_t{0} : found->second;
}

}  // namespace quillon
