// The terminal as a full-screen program has it: ncurses for the screen, and the modes that ncurses
// does not know.
#pragma once

#include <functional>
#include <string>

struct screen;  // ncurses' SCREEN

namespace quillon {

/// Takes over the terminal on standard input and output, and restores it at the end.
class Terminal {
  public:
    /// What the terminal is asked to report: only keys, or also the mouse, the focus, pastes and,
    /// where it can, releases of keys.
    enum Reports { kPlain, kAll };

    /// Throws std::runtime_error when there is none, or one that cannot place its cursor.
    explicit Terminal(Reports reports);
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    /// What came in since the last call; waits when there is nothing. closed is set when the
    /// terminal was closed.
    std::string read(bool &closed);
    /// To call when the window has another size (SIGWINCH).
    void resize();

    /// For a process that outlives the one with the Terminal: restores the terminal to its state at
    /// the time of this call.
    static std::function<void()> restorer();

  private:
    void leave();

    const Reports reports_;
    ::screen *screen_ = nullptr;
};

}  // namespace quillon
