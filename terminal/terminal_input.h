// Reads what a terminal sends: keys, mouse and pasted text. It understands the sequences of xterm
// and its successors, SGR mouse reports, bracketed paste, focus reports, and the kitty keyboard
// protocol.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace quillon {

/// Keys without a character of their own, by the numbers of the kitty keyboard protocol. Every
/// other key has the code point that it types without modifiers.
enum TerminalKey : int {
    kKeyTab = 9,
    kKeyEnter = 13,
    kKeyEscape = 27,
    kKeyBackspace = 127,
    kKeyInsert = 57348,
    kKeyDelete,
    kKeyLeft,
    kKeyRight,
    kKeyUp,
    kKeyDown,
    kKeyPageUp,
    kKeyPageDown,
    kKeyHome,
    kKeyEnd,
    kKeyCapsLock,
    kKeyScrollLock,
    kKeyNumLock,
    kKeyPrintScreen,
    kKeyPause,
    kKeyMenu,
    kKeyF1,               ///< F2 to F24 follow
    kKeyKeypad0 = 57399,  ///< 1 to 9 follow
    kKeyKeypadDecimal = 57409,
    kKeyKeypadDivide,
    kKeyKeypadMultiply,
    kKeyKeypadSubtract,
    kKeyKeypadAdd,
    kKeyKeypadEnter,
    kKeyKeypadEqual,
    kKeyKeypadLeft = 57417,
    kKeyKeypadRight,
    kKeyKeypadUp,
    kKeyKeypadDown,
    kKeyKeypadPageUp,
    kKeyKeypadPageDown,
    kKeyKeypadHome,
    kKeyKeypadEnd,
    kKeyKeypadInsert,
    kKeyKeypadDelete,
    kKeyBegin,  ///< 5 of a keypad without Num Lock
    kKeyLeftShift = 57441,
    kKeyLeftCtrl,
    kKeyLeftAlt,
    kKeyLeftSuper,
    kKeyRightShift = 57447,
    kKeyRightCtrl,
    kKeyRightAlt,
    kKeyRightSuper,
    kKeyLevel3Shift = 57453  ///< AltGr
};

/// Modifiers as a terminal reports them, which does not tell left from right.
enum TerminalModifier : unsigned {
    kTerminalShift = 1,
    kTerminalAlt = 2,
    kTerminalCtrl = 4,
    kTerminalSuper = 8
};

struct TerminalEvent {
    enum Kind {
        kTap,      ///< a key, by a terminal that does not report when it was released
        kPress,    ///< a key went down; its release is reported
        kRepeat,   ///< it is still down
        kRelease,  ///< it is up
        kMouse,
        kPaste,       ///< text
        kFocus,       ///< on: the terminal has the focus; else it lost it
        kKeyReports,  ///< on: the terminal reports presses and releases
        kUnknown      ///< text: bytes that are no character; empty for an unknown sequence
    };
    Kind kind = kUnknown;

    // Of keys.
    int key = 0;   ///< a code point or a TerminalKey, see there
    int base = 0;  ///< the key of a US keyboard at the same place; 0 where it is not reported
    unsigned modifiers = 0;  ///< of TerminalModifier
    /// What the key types in the person's layout, a code point; 0 for nothing, or where it is not
    /// reported.
    char32_t character = 0;
    /// The terminal reported the character itself. Otherwise it is the one of the key without
    /// AltGr, and only the place of the key is certain.
    bool typed = false;

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
    /// To call when nothing more came for as long as patience(): a lone Escape is the key, a paste
    /// without an end is over, and any other incomplete sequence is dropped.
    std::vector<TerminalEvent> flush();
    /// Something incomplete waits.
    bool pending() const { return !pending_.empty() || pasting_; }
    /// How long to wait for the rest of something incomplete.
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
    std::size_t searched_ = 0;  ///< bytes of a paste that were searched for its end
    bool pasting_ = false;
    bool reports_ = false;  ///< the terminal reports presses and releases
};

}  // namespace quillon
