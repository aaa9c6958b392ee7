// What a terminal sends, as keys, mouse and pasted text. Reads the sequences of xterm and those
// who follow it, SGR mouse reports, bracketed paste, focus reports, and the kitty keyboard
// protocol.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "protocol/keys.h"

namespace quillon {

/// HID usages of the modifier keys: kUsageLeftCtrl + n is bit n of the modifier byte.
constexpr std::uint8_t kUsageLeftCtrl = 0xE0, kUsageRightGui = 0xE7;

struct TerminalEvent {
    enum Kind {
        kTap,      ///< a key, with no word of when it was released
        kPress,    ///< a key that will be released, see stroke
        kRepeat,   ///< it is still down
        kRelease,  ///< it is up
        kMouse,
        kPaste,       ///< text
        kFocus,       ///< on: the terminal has it, else lost it
        kKeyReports,  ///< on: the terminal tells presses and releases
        kUnknown      ///< text: what no key of the layout gives
    };
    Kind kind = kUnknown;
    Stroke stroke;       ///< usage may be a modifier key's
    char character = 0;  ///< what the key types for the person, where the terminal tells
    bool on = false;
    std::string text;

    // Of kMouse.
    int column = 0, row = 0;  ///< cells from the upper left, from 0
    enum MouseAction { kMove, kDown, kUp, kWheel } action = kMove;
    int button = 0;  ///< 1 left, 2 middle, 3 right, others as the terminal counts; wheel: +1 up, -1
};

/// Bytes in, events out.
class TerminalInput {
  public:
    /// Takes what was read; what is not complete waits for the next call.
    std::vector<TerminalEvent> take(const std::string &bytes);
    /// Nothing more came for as long as patience(): a lone Escape is the key, a paste without its
    /// end is over, and any other incomplete sequence is nothing.
    std::vector<TerminalEvent> flush();
    /// Something incomplete waits.
    bool pending() const { return !pending_.empty() || pasting_; }
    /// How far the bytes of what waits may be apart.
    std::chrono::milliseconds patience() const;

  private:
    /// Bytes of the first event of pending_, 0 when some are missing.
    std::size_t readOne(std::vector<TerminalEvent> &events);
    std::size_t readEscape(std::vector<TerminalEvent> &events);
    std::size_t readControlSequence(std::vector<TerminalEvent> &events);
    void takeControlSequence(const std::string &body, char last,
                             std::vector<TerminalEvent> &events);
    void readPaste(std::vector<TerminalEvent> &events);
    void takePaste(std::size_t size, std::vector<TerminalEvent> &events);

    std::string pending_;
    std::size_t searched_ = 0;  ///< so much of a paste does not hold its end
    bool pasting_ = false;
    bool reports_ = false;  ///< the terminal tells presses and releases
};

}  // namespace quillon
