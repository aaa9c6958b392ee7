// Text to key strokes, for a computer with any layout of the X keyboard database.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "protocol/answers.h"
#include "protocol/keys.h"

namespace quillon {

/// The computer's system, which decides what a dead key does.
enum class ComputerSystem { kX11, kConsole, kWindows };
/// By the names that options and settings have for them.
extern const std::map<std::string, ComputerSystem> kSystemNames;

struct LayoutChoice {
    std::string layout = "us", variant;
    ComputerSystem system = ComputerSystem::kX11;
};

/// What to do with a character that the layout lacks.
enum class UnicodeInput {
    kRefuse,
    kLinux,    ///< Ctrl+Shift+U, the code point in hexadecimal digits, a blank
    kWindows,  ///< Alt and digits of the keypad: the characters of code page 1252 alone
    kSkip
};

/// A text as states of the keyboard: modifiers go down and up in states of their own, AltGr before
/// Shift, and the last state has all keys up.
struct TypedText {
    std::vector<Stroke> states;
    bool needsNumLock = false;         ///< Num Lock has to be on meanwhile
    std::vector<std::string> skipped;  ///< what was left out, in words; see UnicodeInput::kSkip
};

/// Knows the strokes of one layout. It does not change, and several threads may share it.
class Typist {
  public:
    /// Throws std::runtime_error when there is no such layout. locks: the state of the computer's
    /// lock keys, for a computer where nobody switches them; without it Caps Lock is off, and Num
    /// Lock is as TypedText says.
    explicit Typist(const LayoutChoice &choice,
                    const std::optional<LockKeys> &locks = std::nullopt);
    ~Typist();
    Typist(Typist &&) noexcept;

    /// The strokes that type a character, one after the other: one, or a dead key and a second one;
    /// none when the layout lacks it. Line feed is Enter.
    std::vector<Stroke> strokesOf(char32_t character) const;
    /// Why there are none, for a person.
    std::string reasonFor(char32_t character) const;

    /// The states that type a UTF-8 text. None, with error naming the character, its code point,
    /// its place and the reason, when something of it cannot be typed.
    std::optional<TypedText> type(const std::string &text, UnicodeInput unicode,
                                  std::string &error) const;

    /// Whether it is typed on the keypad, with Num Lock on.
    bool needsNumLock(char32_t character) const;

    /// The key that types a character, for a combination such as ctrl+a: the one stroke that types
    /// it, or in a layout without Latin letters the position that a US keyboard has for it.
    std::optional<Stroke> keyFor(char32_t character) const;

    /// Every character that has strokes, for tests.
    std::u32string characters() const;

  private:
    struct Table;
    std::unique_ptr<Table> table_;
};

/// For parseCombo(): the key that types the one character of a name.
KeyOfCharacter keyOf(const Typist &typist);

}  // namespace quillon
