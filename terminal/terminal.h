// The terminal as a full-screen program has it: ncurses for the screen, and the modes that ncurses
// does not know.
#pragma once

#include <functional>
#include <string>

struct screen;  // ncurses' SCREEN

namespace quillon {

/// Takes the terminal on standard input and output, and gives it back as it was.
class Terminal {
  public:
    /// What it is asked to tell: keys as they come, or also the mouse, focus, pastes and, where it
    /// can, releases of keys.
    enum Reports { kPlain, kAll };

    /// Throws std::runtime_error when there is none, or one that cannot place its cursor.
    explicit Terminal(Reports reports);
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    /// What came in since the last call; empty for nothing. closed is set when the terminal went.
    std::string read(bool &closed);
    /// The window has another size now; takes it over.
    void resize();

    /// For a process that outlives one with a Terminal: gives the terminal back as it is now.
    static std::function<void()> restorer();

  private:
    void leave();

    const Reports reports_;
    ::screen *screen_ = nullptr;
};

}  // namespace quillon
