#include "console/control/menu.h"

#include <algorithm>
#include <utility>

#include "layouts/unicode.h"
#include "terminal/terminal_input.h"

namespace quillon {
namespace {

constexpr std::size_t kLongestLine = 4096;

struct Entry {
    char key;
    Menu::Action action;
    const char *words;     ///< for the menu; of kKeys without a prompt also the keys
    bool prompts = false;  ///< asks for a line of text
};

constexpr Entry kEntries[] = {
    {'a', Menu::kApply, "apply for control"},
    {'d', Menu::kDisconnect, "disconnect: give control up"},
    {'m', Menu::kMouseMode, ""},
    // What a terminal, or the desktop around it, keeps to itself.
    {'x', Menu::kKeys, "ctrl+alt+delete"},
    {'t', Menu::kKeys, "alt+tab"},
    {'f', Menu::kKeys, "alt+f4"},
    {'e', Menu::kKeys, "ctrl+shift+escape"},
    {'w', Menu::kKeys, "gui"},
    {'s', Menu::kKeys, "printscreen"},
    {'1', Menu::kKeys, "capslock"},
    {'2', Menu::kKeys, "numlock"},
    {'3', Menu::kKeys, "scrolllock"},
    {'k', Menu::kKeys, "other keys, by name", true},
    {'p', Menu::kText, "type a text", true},
    {'u', Menu::kUsbTest, "test whether a computer is on the USB cable"},
    {']', Menu::kEscapeKey, ""},
    {'q', Menu::kQuit, "quit"},
};

}  // namespace

void Menu::toggle() {
    if (prompting()) {
        prompt_ = kNothing;
        line_.clear();
        return;
    }
    open_ = !open_;
}

Menu::Choice Menu::type(int key, char32_t character) {
    // The person's layout counts here, not the computer's.
    if (prompting()) return typeInPrompt(key, character);
    open_ = false;
    if (character == U'y') return {kGrant, ""};
    if (character == U'n') return {kRefuse, ""};
    for (const Entry &entry : kEntries) {
        if (static_cast<char32_t>(entry.key) != character) continue;
        if (!entry.prompts) return {entry.action, entry.words};
        prompt_ = entry.action;
    }
    return {};
}

Menu::Choice Menu::typeInPrompt(int key, char32_t character) {
    if (key == kKeyBackspace) {
        const auto isPart = [](char byte) { return (byte & 0xC0) == 0x80; };  // of UTF-8
        while (!line_.empty() && isPart(line_.back())) line_.pop_back();
        if (!line_.empty()) line_.pop_back();
    } else if (key == kKeyEscape) {
        toggle();
    } else if (key == kKeyEnter || key == kKeyKeypadEnter) {
        return {std::exchange(prompt_, kNothing), std::exchange(line_, "")};
    } else if (character != 0 && line_.size() < kLongestLine) {
        line_ += utf8(character);
    }
    return {};
}

void Menu::paste(const std::string &text) {
    line_ += text.substr(0, kLongestLine - std::min(kLongestLine, line_.size()));
}

std::vector<std::string> Menu::lines(bool relative, const std::optional<Asking> &asking) const {
    std::vector<std::string> lines;
    if (!open_) return lines;
    if (asking)
        lines = {"y  give control of " + asking->endpoint + " to " + asking->user,
                 "n  refuse it to " + asking->user};
    for (const Entry &entry : kEntries) {
        std::string words = entry.words;
        if (entry.action == kMouseMode)
            words = std::string("mouse: send ") + (relative ? "positions" : "movements");
        if (entry.action == kEscapeKey) words = "send " + escapeName_ + " itself";
        lines.push_back(std::string(1, entry.key) + "  " + words);
    }
    lines.push_back("   " + escapeName_ + " closes this menu");
    return lines;
}

std::string Menu::prompt() const {
    if (!prompting()) return "";
    return prompt_ == kKeys ? "keys, e.g. ctrl+alt+f2:" : "text:";
}

}  // namespace quillon
