// A screen with keyboard and mouse that programs of X11 take for real (Xvfb, xdotool).
#pragma once

#include <arpa/inet.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <list>
#include <optional>
#include <stdexcept>
#include <string>

#include "gateway/picture/status_picture.h"
#include "tests/support/support.h"

namespace test {

class Screen {
  public:
    /// Starts a screen with a German keyboard. Throws std::runtime_error.
    Screen() {
        char folder[] = "/data/screenXXXXXX";
        if (mkdtemp(folder) == nullptr) throw std::runtime_error("no folder for a screen");
        folder_ = folder;
        const std::string size = std::to_string(kWidth) + "x" + std::to_string(kHeight) + "x24";
        server_.emplace("Xvfb -displayfd 5 -screen 0 " + size + " -fbdir " + folder_ +
                        " -noreset -nolisten tcp 5>" + folder_ + "/number 2>" + folder_ + "/log");
        const bool started = comesTrue([&] { return holds(readFile(folder_ + "/number"), "\n"); },
                                       std::chrono::seconds(20));
        if (!started) throw std::runtime_error("no Xvfb: " + readFile(folder_ + "/log"));
        const std::string number = readFile(folder_ + "/number");
        setenv("DISPLAY", (":" + number.substr(0, number.find('\n'))).c_str(), 1);
        // The keyboard of xdotool is one of its own, which counts once it has been used. Without
        // the option, Ctrl+Alt+F2 changes the screen of the X server. On a busy machine the server
        // sometimes does not get its keymap at once.
        Outcome keyboard;
        const bool set = comesTrue(
            [&] {
                keyboard = run("xdotool key Shift_L && setxkbmap de -option srvrkeys:none");
                return keyboard.status == 0;
            },
            std::chrono::seconds(20));
        if (!set) throw std::runtime_error(keyboard.said);
    }
    ~Screen() {
        for (Background &program : programs_) {
            kill(program.pid(), SIGCONT);
            program.end(SIGTERM);
        }
        if (server_) server_->end(SIGTERM);
    }
    Screen(const Screen &) = delete;
    Screen &operator=(const Screen &) = delete;

    /// Starts a program on it; its process is ended with the screen, unless it has ended.
    pid_t start(const std::string &command) { return programs_.emplace_back(command).pid(); }
    /// Runs xdotool with these arguments.
    void does(const std::string &arguments) {
        const Outcome outcome = run("xdotool " + arguments);
        EXPECT_EQ(outcome.status, 0) << arguments << ": " << outcome.said;
    }
    /// Gives the keyboard to the window with this in its name; false when there is none in 10 s.
    bool focus(const std::string &name) {
        return comesTrue(
            [&] {
                const std::string found =
                    run("xdotool search --onlyvisible --name '" + name + "' | tail -n 1").said;
                const std::string window = found.substr(0, found.find('\n'));
                return !window.empty() && run("xdotool windowfocus --sync " + window).status == 0;
            },
            std::chrono::seconds(10));
    }
    /// From the file that Xvfb keeps its pixels in: numbers of a header, colours, pixels
    /// (XWDFile.h).
    gateway::Image image() const {
        constexpr std::size_t kHeaderSize = 0, kLine = 12, kColours = 19, kColourSize = 12;
        const std::string file = readFile(folder_ + "/Xvfb_screen0");
        const auto number = [&](std::size_t index) {
            std::uint32_t value = 0;
            memcpy(&value, file.data() + index * sizeof value, sizeof value);
            return std::size_t{ntohl(value)};
        };
        if (file.size() < 100) return {};
        const std::size_t begin = number(kHeaderSize) + number(kColours) * kColourSize;
        gateway::Image image{kWidth, kHeight, {}};
        image.pixels.resize(std::size_t{kWidth} * kHeight);
        for (std::size_t y = 0; y < kHeight; ++y)
            memcpy(image.pixels.data() + y * kWidth, file.data() + begin + y * number(kLine),
                   kWidth * sizeof(gateway::Pixel));
        for (gateway::Pixel &pixel : image.pixels) pixel &= 0xFFFFFF;
        return image;
    }

    static constexpr int kWidth = 2000, kHeight = 1300;

  private:
    std::string folder_;
    std::optional<Background> server_;
    std::list<Background> programs_;
};

}  // namespace test
