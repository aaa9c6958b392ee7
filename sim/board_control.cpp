#include "sim/board_control.h"

#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "sim/board.h"

namespace sim {
namespace {

using Words = std::istringstream;

std::string unplug(Board &board, Words &) {
    board.hidChip().unplug();
    return "the computer's USB cable is out";
}

std::string plug(Board &board, Words &) {
    board.hidChip().plug();
    return "the computer's USB cable is in";
}

// Without an address this is about the chip, else about the console with that address.
std::string setAnswering(Board &board, Words &words, bool on) {
    const std::string state = on ? " answers" : " is silent";
    std::string address;
    if (!(words >> address)) {
        board.hidChip().silence(!on);
        return "the chip" + state;
    }
    if (!board.consoles().setAnswering(address, on)) return kRefused + ("no console " + address);
    return "console " + address + state;
}

std::string silence(Board &board, Words &words) {
    return setAnswering(board, words, false);
}

std::string answer(Board &board, Words &words) {
    return setAnswering(board, words, true);
}

std::string setVideo(Board &board, Words &words) {
    std::string size;
    words >> size;
    int width = 0, height = 0, end = 0;
    if (sscanf(size.c_str(), "%5dx%5d%n", &width, &height, &end) != 2 || width <= 0 ||
        height <= 0 || size[static_cast<std::size_t>(end)] != '\0')
        return std::string(kRefused) + "video takes a size, e.g. 1280x720";
    board.video().setSize(width, height);
    return "the picture has " + size + "; the daemon takes it after three readings, some 6 s";
}

std::string noVideo(Board &board, Words &) {
    board.video().setSize(0, 0);
    return "no signal; the daemon takes it after three readings, some 6 s";
}

std::string restartChip(Board &board, Words &) {
    board.hidChip().powerCycle();
    return "the chip restarted";
}

Machine &machineOf(Board &board) {
    Machine *machine = board.computer().machine();
    if (machine == nullptr)
        throw std::runtime_error("the computer is simulated; --computer makes it a virtual PC");
    return *machine;
}

std::string switchComputer(Board &board, Words &words) {
    Machine &machine = machineOf(board);
    std::string what;
    words >> what;
    if (what == "on") return machine.switchOn() ? "the computer starts" : machine.condition();
    if (what == "off") {
        machine.switchOff();
        return "the computer is off";
    }
    if (what != "reset") throw std::runtime_error("computer takes on, off or reset");
    machine.reset();
    return "the computer starts again";
}

std::string screen(Board &board, Words &) {
    const Machine::Screen seen = machineOf(board).screen();
    if (seen.lines.empty())
        return "a picture of " + std::to_string(seen.width) + "x" + std::to_string(seen.height) +
               ", no text; see \"ctl screenshot FILE.png\"";
    std::string text;
    for (const std::string &line : seen.lines) text += line + "\n";
    text.erase(text.find_last_not_of('\n') + 1);
    return text.empty() ? "the screen is empty" : text;
}

// Whoever asks writes the file.
std::string screenshot(Board &board, Words &) {
    return machineOf(board).screenshot();
}

std::string machineStatus(Machine &machine, const Computer::State &state) {
    std::string text = "\ncomputer " + machine.condition();
    text += "\nchip     reports waiting: " + std::to_string(state.waiting) +
            ", replaced by newer ones: " + std::to_string(state.replaced) +
            ", lost without a computer: " + std::to_string(state.lost);
    if (state.waitingSince) text += "\nwaiting  for " + secondsSince(*state.waitingSince);
    if (state.taken) text += "\ntaken    the last report, " + secondsSince(*state.taken) + " ago";
    if (!machine.picture().empty()) text += "\npicture  " + machine.picture();
    return text;
}

std::string status(Board &board, Words &) {
    if (board.options().mcuBoards != 0) {
        std::string lines =
            "a microcontroller with " + std::to_string(board.options().mcuBoards) + " boards";
        for (const std::string &line : board.microcontroller().describe()) lines += "\n" + line;
        return lines;
    }
    const Computer::State state = board.computer().state();
    std::ostringstream text;
    text << "board    " << board.options().identifier << " at " << board.options().address
         << (board.listening() ? ":" + std::to_string(board.dataPort()) : ", not listening yet")
         << "\ndaemon   process " << board.daemon()->pid() << "\nusb      "
         << (state.attached ? "attached" : "not attached") << "\npointer  " << state.x << ","
         << state.y << "\nleds     num " << (state.leds & kNumLed ? "on" : "off") << ", caps "
         << (state.leds & kCapsLed ? "on" : "off") << ", scroll "
         << (state.leds & kScrollLed ? "on" : "off") << "\nreports  " << state.reports;
    if (Machine *machine = board.computer().machine()) text << machineStatus(*machine, state);
    return text.str();
}

struct Request {
    const char *word;
    const char *arguments;
    std::string (*carryOut)(Board &, Words &);
};

constexpr Request kRequests[] = {
    {"unplug", "", unplug},
    {"plug", "", plug},
    {"silence", " [CONSOLE]", silence},
    {"answer", " [CONSOLE]", answer},
    {"video", " WxH", setVideo},
    {"no-video", "", noVideo},
    {"restart-chip", "", restartChip},
    {"computer", " on|off|reset", switchComputer},
    {"screen", "", screen},
    {kScreenshot, " FILE.png", screenshot},
    {"status", "", status},
};

}  // namespace

std::string controlBoard(Board &board, const std::string &request) {
    Words words(request);
    std::string word;
    words >> word;
    for (const Request &known : kRequests)
        if (word == known.word) try {
                return known.carryOut(board, words);
            } catch (const std::exception &error) {
                return kRefused + std::string(error.what());
            }
    return kRefused + ("unknown request \"" + word + "\"; there are: ") + controlHelp();
}

std::string controlHelp() {
    std::string all;
    for (const Request &known : kRequests)
        all += (all.empty() ? "" : " | ") + (std::string(known.word) + known.arguments);
    return all;
}

}  // namespace sim
