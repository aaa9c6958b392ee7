// The menu behind the escape key of control, and its prompt for a line of text.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quillon {

class Menu {
  public:
    /// What a person chose.
    enum Action {
        kNothing,
        kApply,
        kDisconnect,
        kMouseMode,
        kUsbTest,
        kEscapeKey,
        kQuit,
        kGrant,
        kRefuse,
        kKeys,  ///< see Choice::text: key names, as parseCombo() takes them
        kText   ///< see Choice::text: a text to type
    };
    struct Choice {
        Action action = kNothing;
        std::string text;
    };

    /// escapeName: how the escape key is called, e.g. "ctrl+]".
    explicit Menu(std::string escapeName) : escapeName_(std::move(escapeName)) {}

    /// The escape key was pressed: opens or closes the menu, or leaves the prompt.
    void toggle();
    /// A key of the terminal while the menu or the prompt is there, as TerminalEvent has it;
    /// character is what it types for the person, 0 for nothing.
    Choice type(int key, char32_t character);
    /// A pasted text while the prompt is there.
    void paste(const std::string &text);

    bool open() const { return open_; }
    bool prompting() const { return prompt_ != kNothing; }
    /// The lines of the open menu; none when it is closed. relative: the mouse sends movements.
    /// asking: the user who asks for control, and of which endpoint, where there is one.
    struct Asking {
        std::string user, endpoint;
    };
    std::vector<std::string> lines(bool relative, const std::optional<Asking> &asking) const;
    /// The question of the prompt, empty without one, and what was typed so far.
    std::string prompt() const;
    const std::string &input() const { return line_; }

  private:
    Choice typeInPrompt(int key, char32_t character);

    const std::string escapeName_;
    bool open_ = false;
    Action prompt_ = kNothing;  ///< kKeys or kText while a line is asked for
    std::string line_;
};

}  // namespace quillon
