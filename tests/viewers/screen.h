// A screen with keyboard and mouse that programs of X11 take for real (Xvfb, xdotool).
#pragma once

#include <string>
#include <vector>

#include "gateway/picture/status_picture.h"

namespace test {

class Screen {
  public:
    /// Starts a screen with a German keyboard. Throws std::runtime_error.
    Screen();
    ~Screen();
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;

    /// Starts a program on it; its process is ended with the screen, unless it has ended.
    pid_t start(const std::string &command);
    /// Runs xdotool with these arguments.
    void does(const std::string &arguments);
    /// Gives the keyboard to the window with this in its name; false when there is none in 10 s.
    bool focus(const std::string &name);
    gateway::Image image() const;

    static constexpr int kWidth = 2000, kHeight = 1300;

  private:
    std::string folder_;
    pid_t server_ = -1;
    std::vector<pid_t> programs_;
};

}  // namespace test
