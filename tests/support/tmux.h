// A program in a real terminal, with keys and a screen as a person has them.
#pragma once

#include <stdexcept>

#include "tests/support/support.h"

namespace test {

class Tmux {
  public:
    /// Runs a shell command in a terminal of that size. Each has a server of its own, because a
    /// server that is about to end takes no new session.
    explicit Tmux(const std::string &command, int columns = 80, int rows = 24) {
        static int count = 0;
        tmux_ = "LC_ALL=C.UTF-8 TERM=xterm tmux -u -f /dev/null -S /data/tmux" +
                std::to_string(++count) + " ";
        const Outcome outcome = run(tmux_ + "new-session -d -x " + std::to_string(columns) +
                                    " -y " + std::to_string(rows) + " " + quoted(command));
        if (outcome.status != 0) throw std::runtime_error(outcome.said);
    }
    ~Tmux() { run(tmux_ + "kill-server"); }
    Tmux(const Tmux &) = delete;
    Tmux &operator=(const Tmux &) = delete;

    /// Presses keys by tmux's names: "C-]", "Enter".
    void press(const std::string &keys) { run(tmux_ + "send-keys " + keys); }

    /// Sends characters and sequences as they are.
    void send(const std::string &bytes) {
        std::string codes;
        for (const char c : bytes) {
            char code[8];
            snprintf(code, sizeof code, " %02x", static_cast<unsigned char>(c));
            codes += code;
        }
        run(tmux_ + "send-keys -H" + codes);
    }

    /// Sends a text as the terminal pastes it.
    void paste(const std::string &text) {
        run(tmux_ + "set-buffer " + quoted(text) + " \\; paste-buffer -p");
    }

    void resize(int columns, int rows) {
        run(tmux_ + "resize-window -x " + std::to_string(columns) + " -y " + std::to_string(rows));
    }

    std::string screen() { return run(tmux_ + "capture-pane -p").said; }

    /// True when the screen shows this within timeout.
    bool shows(const std::string &text, std::chrono::seconds timeout = std::chrono::seconds(5)) {
        return comesTrue([&] { return holds(screen(), text); }, timeout);
    }

    /// "1" or "0" for each: all mouse motion is reported, reports are SGR, alternate screen.
    std::string modes() {
        const std::string said =
            run(tmux_ + "display -p '#{mouse_all_flag} #{mouse_sgr_flag} #{alternate_on}'").said;
        return said.substr(0, said.find('\n'));
    }

  private:
    static std::string quoted(const std::string &text) {
        std::string all = "'";
        for (const char c : text) all += c == '\'' ? "'\\''" : std::string(1, c);
        return all + "'";
    }

    std::string tmux_;
};

}  // namespace test
