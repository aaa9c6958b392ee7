#include "tests/viewers/screen.h"

#include <arpa/inet.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "sim/host/process.h"
#include "tests/support/support.h"

namespace test {

Screen::Screen() {
    char folder[] = "/data/screenXXXXXX";
    if (mkdtemp(folder) == nullptr) throw std::runtime_error("no folder for a screen");
    folder_ = folder;
    const std::string size = std::to_string(kWidth) + "x" + std::to_string(kHeight) + "x24";
    server_ =
        sim::launch({{"sh", "-c",
                      "exec Xvfb -displayfd 5 -screen 0 " + size + " -fbdir " + folder_ +
                          " -noreset -nolisten tcp 5>" + folder_ + "/number 2>" + folder_ + "/log"},
                     {},
                     "",
                     -1,
                     -1,
                     -1,
                     true});
    const bool started = comesTrue([&] { return holds(readFile(folder_ + "/number"), "\n"); },
                                   std::chrono::seconds(20));
    if (!started) throw std::runtime_error("Xvfb does not start: " + readFile(folder_ + "/log"));
    const std::string number = readFile(folder_ + "/number");
    setenv("DISPLAY", (":" + number.substr(0, number.find('\n'))).c_str(), 1);
    // The keyboard of xdotool is one of its own, which counts once it has been used. Without the
    // option, Ctrl+Alt+F2 changes the screen of the X server.
    // On a busy machine the server sometimes does not get its keymap at once.
    Outcome keyboard;
    const bool set = comesTrue(
        [&] {
            keyboard = run("xdotool key Shift_L && setxkbmap de -option srvrkeys:none");
            return keyboard.status == 0;
        },
        std::chrono::seconds(20));
    if (!set) throw std::runtime_error(keyboard.said);
}

Screen::~Screen() {
    for (const pid_t program : programs_) {
        kill(program, SIGCONT);
        kill(program, SIGTERM);
        sim::awaitExit(program);
    }
    kill(server_, SIGTERM);
    sim::awaitExit(server_);
}

pid_t Screen::start(const std::string &command) {
    programs_.push_back(sim::launch({{"sh", "-c", "exec " + command}, {}, "", -1, -1, -1, true}));
    return programs_.back();
}

void Screen::does(const std::string &arguments) {
    const Outcome outcome = run("xdotool " + arguments);
    EXPECT_EQ(outcome.status, 0) << arguments << ": " << outcome.said;
}

bool Screen::focus(const std::string &name) {
    return comesTrue(
        [&] {
            const std::string found =
                run("xdotool search --onlyvisible --name '" + name + "' | tail -n 1").said;
            const std::string window = found.substr(0, found.find('\n'));
            return !window.empty() && run("xdotool windowfocus --sync " + window).status == 0;
        },
        std::chrono::seconds(10));
}

// The file that Xvfb keeps its pixels in: numbers of a header, colours, pixels (XWDFile.h).
gateway::Image Screen::image() const {
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

}  // namespace test
