#include "sim/options.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

#include "sim/board_control.h"
#include "sim/view/trace.h"
#include "terminal/printable.h"

namespace sim {
namespace {

const std::map<std::string, BoardOptions::Chip> kChips{{"ch9329", BoardOptions::kCh9329},
                                                       {"ch9350", BoardOptions::kCh9350},
                                                       {"none", BoardOptions::kNone}};

std::string besideThisProgram(const std::string &name) {
    char path[4096] = "";
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    const std::string self(path, static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
    return self.substr(0, self.rfind('/') + 1) + name;
}

// The first of these that exists: in the build folder, or where an installation has it.
std::string find(const std::vector<std::string> &candidates) {
    for (const std::string &name : candidates)
        if (access(besideThisProgram(name).c_str(), R_OK) == 0) return besideThisProgram(name);
    throw std::runtime_error("cannot find " + candidates.front() + " beside this program");
}

std::string readText(const std::string &path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Is there a terminal that can place its cursor, and is this in its foreground?
bool ownsScreen() {
    const char *term = getenv("TERM");
    return term != nullptr && *term != '\0' && strcmp(term, "dumb") != 0 &&
           isatty(STDOUT_FILENO) != 0 && tcgetpgrp(STDIN_FILENO) == getpgrp();
}

}  // namespace

void describe(CLI::App &app, Options &options) {
    const auto number = CLI::Range(1200, 115200).description("");
    BoardOptions &board = options.board;
    app.add_option("--board", board.identifier, "Board identifier")
        ->type_name("ID")
        ->capture_default_str();
    app.add_option("--chip", options.chip, "What is soldered to it: ch9329, ch9350 or none")
        ->check(CLI::IsMember(kChips).description(""))
        ->type_name("CHIP")
        ->capture_default_str();
    auto *mcu = app.add_option("--mcu", board.mcuBoards,
                               "In its place a microcontroller with 10 or 20 boards, and no daemon")
                    ->check(CLI::IsMember({10, 20}).description(""))
                    ->type_name("BOARDS");
    app.add_option("--absent", board.absentBoards,
                   "One of these that is absent; may be given again")
        ->check(CLI::Range(0, 19).description(""))
        ->needs(mcu)
        ->type_name("N")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
    app.add_option("--chip-baud", board.chipBaud, "Speed that the chip runs at")
        ->check(number)
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--stored-baud", board.storedBaud,
                   "Speed that the chip takes at its next restart; --chip-baud without it")
        ->check(number)
        ->type_name("N");
    app.add_option("--ip", board.address, "Address of the board")
        ->check(CLI::ValidIPV4)
        ->type_name("A")
        ->capture_default_str();
    app.add_option("--console", board.consoles, "Address of a console; may be given again")
        ->check(CLI::ValidIPV4)
        ->type_name("A")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false)
        ->capture_default_str();
    app.add_option("--config", options.configFile, "Settings to start with, a quillon.ini")
        ->check(CLI::ExistingFile.description(""))
        ->type_name("FILE");
    app.add_flag("--pace", board.paced, "Let bytes take the time that a real wire takes");
    app.add_option("--loss", options.lossPercent,
                   "Of 100 console datagrams, frames, checksums and answers of the chip, so many "
                   "are lost or spoiled")
        ->check(CLI::Range(0.0, 100.0).description(""))
        ->type_name("PERCENT");
    app.add_option("--seed", board.seed, "Of what is lost: the same seed, the same losses")
        ->type_name("N")
        ->capture_default_str();
    app.add_flag("--chatter", board.chatter, "Let a CH9350 send its status every second");
    app.add_option("--keep", options.keepDir, "Folder for settings and log that stays")
        ->type_name("DIR");
    app.add_option("--trace", options.traceFile,
                   "Write all datagrams and serial frames to a pcapng file")
        ->type_name("FILE");
    app.add_flag("--lines", options.lines,
                 "Lines, where a terminal without COMMAND shows the board live");
    app.add_flag("--quiet", options.quiet,
                 "Do not print what reaches the computer: the terminal is COMMAND's");
    app.add_flag("--log", options.log, "Print the daemon's log beside the rest");
    app.add_flag("!--no-power-cycle", board.powerCycle,
                 "Leave the board as it is when the daemon asks for \"reboot\"");
    app.add_option("command", options.command, "Run on the board's network; its end ends the board")
        ->type_name("COMMAND...");
    app.add_option("--name", options.name, "Name of this board among a user's running ones")
        ->type_name("NAME")
        ->capture_default_str();
    app.footer("Put -- before COMMAND.");

    auto *enter = app.add_subcommand("enter", "Run a command, or a shell, on a running board");
    enter->add_option("command", options.command, "After --")->type_name("COMMAND...");
    auto *ctl = app.add_subcommand("ctl", "Tell a running board what to do");
    ctl->add_option("request", options.command, controlHelp())->type_name("REQUEST")->required();
    for (CLI::App *command : {enter, ctl}) command->fallthrough();  // --name may stand behind
    app.require_subcommand(0, 1);
}

void complete(CLI::App &app, Options &options) {
    options.board.chip = kChips.at(options.chip);
    options.board.loss = options.lossPercent / 100;
    for (const unsigned absent : options.board.absentBoards)
        if (absent >= options.board.mcuBoards)
            throw std::runtime_error("there is no board " + std::to_string(absent));
    if (app.count("--stored-baud") == 0) options.board.storedBaud = options.board.chipBaud;
    if (!options.configFile.empty()) options.board.settings = readText(options.configFile);
    if (!options.keepDir.empty()) {
        char *absolute = realpath(options.keepDir.c_str(), nullptr);
        if (absolute == nullptr) throw std::runtime_error("no folder " + options.keepDir);
        options.board.directory = absolute;
        free(absolute);
        for (const char *own : {"/data", "/dev", "/proc", "/version"})
            if ((options.board.directory + "/").rfind(own + std::string("/"), 0) == 0)
                throw std::runtime_error("--keep cannot lie there: the board has its own " +
                                         std::string(own));
    }
    options.board.daemon = find({"quillon", "../sbin/quillon"});
    options.board.preload = find({"libquillon_uart.so", "../lib/quillon/libquillon_uart.so"});
    if (!options.traceFile.empty()) options.trace = openTrace(options.traceFile);
    options.screen = options.command.empty() && !options.lines && !options.log && !options.quiet &&
                     options.board.mcuBoards == 0 && ownsScreen();
    if (options.log)
        options.board.onLogLine = [](const std::string &line) {
            printf("log       %s\n", quillon::printable(line).c_str());
            fflush(stdout);
        };
}

}  // namespace sim
