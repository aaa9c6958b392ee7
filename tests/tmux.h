// A program in a real terminal, driven and read as a person would.
#pragma once

#include <chrono>
#include <string>

namespace test {

class Tmux {
  public:
    /// Runs a shell command in a terminal of that size.
    explicit Tmux(const std::string &command, int columns = 80, int rows = 24);
    ~Tmux();
    Tmux(const Tmux &) = delete;
    Tmux &operator=(const Tmux &) = delete;

    /// Keys by tmux's names: "C-]", "Enter".
    void press(const std::string &keys);
    /// Characters and sequences as they are.
    void send(const std::string &bytes);
    /// As the terminal pastes it.
    void paste(const std::string &text);
    void resize(int columns, int rows);

    std::string screen();
    /// Does the screen come to show this?
    bool shows(const std::string &text,
               std::chrono::milliseconds timeout = std::chrono::milliseconds(5000));
    /// Whether it reports any motion of the mouse, reports in SGR, shows the alternate screen.
    std::string modes();

  private:
    std::string tmux_;
};

}  // namespace test
