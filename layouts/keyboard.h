// A keyboard with a layout of the X keyboard database, as libxkbcommon knows it. For the sources of
// this room; others use typing.h and reading.h.
#pragma once

#include <xkbcommon/xkbcommon-compose.h>
#include <xkbcommon/xkbcommon.h>

#include <cstdint>
#include <memory>
#include <string>

namespace quillon {

/// Only the system's own database and compose file are read, nothing of the user or of the
/// environment. Objects do not change, and several threads may share one.
class Keyboard {
  public:
    /// Throws std::runtime_error when the database has no such layout, or is not installed.
    Keyboard(const std::string &layout, const std::string &variant);

    xkb_keymap *keymap() const { return keymap_.get(); }
    /// Key sequences of the locale en_US.UTF-8; null when no compose file is installed.
    xkb_compose_table *compose() const { return compose_.get(); }

  private:
    template <class T, void (*unref)(T *)>
    struct Unref {
        void operator()(T *object) const { unref(object); }
    };

    std::unique_ptr<xkb_context, Unref<xkb_context, xkb_context_unref>> context_;
    std::unique_ptr<xkb_keymap, Unref<xkb_keymap, xkb_keymap_unref>> keymap_;
    std::unique_ptr<xkb_compose_table, Unref<xkb_compose_table, xkb_compose_table_unref>> compose_;
};

/// What is pressed on a keyboard, and what its keys stand for then.
class KeyboardState {
  public:
    explicit KeyboardState(const Keyboard &keyboard);

    /// Presses or releases the key with a HID usage; modifiers are the usages from kUsageLeftCtrl
    /// on. Nothing for a usage that Linux does not know.
    void set(std::uint8_t usage, bool down);
    /// The keysym that the key gives now, XKB_KEY_NoSymbol for none.
    xkb_keysym_t keysym(std::uint8_t usage) const;
    bool capsLock() const { return active(XKB_LED_NAME_CAPS); }
    bool numLock() const { return active(XKB_LED_NAME_NUM); }

  private:
    struct Unref {
        void operator()(xkb_state *state) const { xkb_state_unref(state); }
    };
    bool active(const char *led) const;

    std::unique_ptr<xkb_state, Unref> state_;
};

struct UnrefCompose {
    void operator()(xkb_compose_state *state) const { xkb_compose_state_unref(state); }
};
/// Follows key sequences; null when no compose file is installed.
using ComposeState = std::unique_ptr<xkb_compose_state, UnrefCompose>;
ComposeState composeStateOf(const Keyboard &keyboard);

/// The character of a keysym, line feed for Enter; 0 for one that types none.
char32_t characterOfKeysym(xkb_keysym_t keysym);

/// The key code of the X keyboard database for a HID usage of the keyboard page; 0 for none.
xkb_keycode_t keycodeOf(std::uint8_t usage);

}  // namespace quillon
