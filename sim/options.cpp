#include "sim/options.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

#include "sim/board_control.h"
#include "sim/computer/layout_reader.h"
#include "sim/computer/plain_computer.h"
#include "sim/pc/virtual_pc.h"
#include "sim/view/trace.h"
#include "terminal/own_folder.h"
#include "terminal/printable.h"

namespace sim {
namespace {

const std::map<std::string, BoardOptions::Chip> kChips{{"ch9329", BoardOptions::kCh9329},
                                                       {"ch9350", BoardOptions::kCh9350},
                                                       {"none", BoardOptions::kNone}};

const std::map<std::string, ReportBuffer> kChipBuffers{{"queue", ReportBuffer::kQueue},
                                                       {"one", ReportBuffer::kOne}};

// The first of these that exists: in the build folder, or where an installation has it.
std::string find(const std::vector<std::string> &candidates) {
    for (const std::string &name : candidates)
        if (access(quillon::besideThisProgram(name).c_str(), R_OK) == 0)
            return quillon::besideThisProgram(name);
    throw std::runtime_error("cannot find " + candidates.front() + " beside this program");
}

std::string absolutePath(const std::string &path) {
    char *absolute = realpath(path.c_str(), nullptr);
    if (absolute == nullptr) throw std::runtime_error(path + ": " + strerror(errno));
    std::string result = absolute;
    free(absolute);
    return result;
}

std::string readText(const std::string &path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// True in the foreground of a terminal that can place its cursor.
bool ownsScreen() {
    const char *term = getenv("TERM");
    return term != nullptr && *term != '\0' && strcmp(term, "dumb") != 0 &&
           isatty(STDOUT_FILENO) != 0 && tcgetpgrp(STDIN_FILENO) == getpgrp();
}

using MakeComputer = std::function<std::unique_ptr<Computer>()>;

MakeComputer plainComputer(const Options &options) {
    const quillon::LayoutChoice choice{options.layout, options.variant,
                                       quillon::kSystemNames.at(options.system)};
    readerOf(choice);  // a wrong name is found now
    return [choice] { return std::make_unique<PlainComputer>(readerOf(choice)); };
}

// The options keep what is opened later, the socket for viewers.
MakeComputer virtualPc(const Options &options) {
    static const std::map<std::string, Boot> kNames{
        {"bios", Boot::kBios}, {"grub", Boot::kGrub}, {"linux", Boot::kLinux}};
    PcOptions pc;
    pc.folder = options.computerFiles.empty() ? quillon::besideThisProgram("computer")
                                              : absolutePath(options.computerFiles);
    const auto name = kNames.find(options.computer);
    if (name != kNames.end()) {
        pc.boot = name->second;
    } else {
        const std::string &file = options.computer;
        if (access(file.c_str(), F_OK) != 0)
            throw std::runtime_error("--computer takes bios, grub, linux, or a file; there is no " +
                                     file);
        pc.image = absolutePath(file);
        const std::string end = file.substr(file.size() - std::min<std::size_t>(4, file.size()));
        pc.boot = strcasecmp(end.c_str(), ".iso") == 0 ? Boot::kIso : Boot::kDisk;
    }
    const std::string missing = missingFor(pc);
    if (!missing.empty()) throw std::runtime_error(missing);
    return [pc, &options] {
        return std::make_unique<VirtualPc>(VirtualPc::Options{
            pc, kChipBuffers.at(options.chipBuffer), options.pictureSocket, options.picturePath});
    };
}

}  // namespace

void describe(CLI::App &app, Options &options) {
    app.description("Runs the daemon on a simulated board");
    const auto number = CLI::Range(1200, 115200).description("");
    BoardOptions &board = options.board;
    app.add_option("--board", board.identifier, "Board identifier")
        ->type_name("ID")
        ->capture_default_str();
    app.add_option("--chip", options.chip, "The HID chip on the board: ch9329, ch9350 or none")
        ->check(CLI::IsMember(kChips).description(""))
        ->type_name("CHIP")
        ->capture_default_str();
    auto *mcu =
        app.add_option(
               "--mcu", board.mcuBoards,
               "Instead of the chip a microcontroller with 10 or 20 boards; no daemon starts")
            ->check(CLI::IsMember({10, 20}).description(""))
            ->type_name("BOARDS");
    app.add_option("--absent", board.absentBoards,
                   "Number of a board that is absent; may be given again")
        ->check(CLI::Range(0, 19).description(""))
        ->needs(mcu)
        ->type_name("N")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false);
    app.add_option("--chip-baud", board.chipBaud, "Speed of the chip, in bits per second")
        ->check(number)
        ->type_name("N")
        ->capture_default_str();
    app.add_option("--stored-baud", board.storedBaud,
                   "Speed of the chip after its next restart; without it --chip-baud")
        ->check(number)
        ->type_name("N");
    app.add_option("--ip", board.address, "Address of the board")
        ->check(CLI::ValidIPV4.description(""))
        ->type_name("A")
        ->capture_default_str();
    app.add_option("--console", board.consoles, "Address of a console; may be given again")
        ->check(CLI::ValidIPV4.description(""))
        ->type_name("A")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false)
        ->capture_default_str();
    app.add_flag(
        "--consoles-apart", board.consolesApart,
        "The consoles, and COMMAND, have a network of their own, so that the board's eth0 is "
        "between them and the daemon, with its firewall");
    app.add_option("--config", options.configFile, "Settings to start with, a quillon.ini")
        ->check(CLI::ExistingFile.description(""))
        ->type_name("FILE");
    auto *layout = app.add_option("--layout", options.layout, "Keyboard layout of the computer")
                       ->type_name("LAYOUT")
                       ->capture_default_str();
    auto *variant = app.add_option("--variant", options.variant, "Variant of that layout")
                        ->type_name("VARIANT");
    auto *system = app.add_option("--system", options.system,
                                  "What dead keys do on the computer: x11, console or windows")
                       ->check(CLI::IsMember(quillon::kSystemNames).description(""))
                       ->type_name("SYSTEM")
                       ->capture_default_str();
    auto *computer =
        app.add_option("--computer", options.computer,
                       "A virtual PC as the computer: bios, grub, linux, or a disk or .iso file")
            ->type_name("WHAT")
            ->excludes(layout)
            ->excludes(variant)
            ->excludes(system)
            ->excludes(mcu);
    app.add_option("--computer-files", options.computerFiles,
                   "Folder with what grub and linux need, see scripts/computer; without it "
                   "\"computer\" beside this program")
        ->needs(computer)
        ->type_name("DIR");
    app.add_option("--chip-buffer", options.chipBuffer,
                   "Reports that wait in the chip behind the one on its way: queue (32) or one")
        ->check(CLI::IsMember(kChipBuffers).description(""))
        ->needs(computer)
        ->type_name("SIZE")
        ->capture_default_str();
    app.add_flag("--vnc", options.wantsPicture,
                 "Offer the virtual PC's picture (RFB) on a unix socket; \"ctl status\" tells its "
                 "path, and COMMAND finds it in $QUILLON_PICTURE")
        ->needs(computer);
    app.add_flag("--pace", board.paced, "Bytes take as long as on a real wire");
    app.add_option(
           "--loss", options.lossPercent,
           "Share of console datagrams, frames and answers of the chip that is lost, and of "
           "checksums that are spoiled")
        ->check(CLI::Range(0.0, 100.0).description(""))
        ->type_name("PERCENT");
    app.add_option("--seed", board.seed, "Chooses what is lost; the same number loses the same")
        ->type_name("N")
        ->capture_default_str();
    app.add_flag("--chatter", board.chatter, "A CH9350 sends its status every second");
    app.add_option("--keep", options.keepDir, "Folder where settings and log stay after the end")
        ->type_name("DIR");
    app.add_option("--trace", options.traceFile,
                   "Write all datagrams and serial frames to a pcapng file")
        ->type_name("FILE");
    app.add_flag("--lines", options.lines,
                 "Print lines also on a terminal, which otherwise shows the board live");
    app.add_flag("--quiet", options.quiet,
                 "Leave the terminal to COMMAND: do not print what reaches the computer");
    app.add_flag("--log", options.log, "Print the daemon's log too");
    app.add_flag("!--no-power-cycle", board.powerCycle,
                 "Do not cut the power when the daemon asks for \"reboot\"");
    auto *devices =
        app.add_option(
               "--devices", board.devices,
               "Make serial ports and registers in a folder, for a daemon that somebody else "
               "starts on this machine; no daemon starts, and there is no network")
            ->type_name("DIR")
            ->check(CLI::Validator(
                [](const std::string &folder) { return folder.empty() ? "has no name" : ""; }, ""));
    for (const char *other : {"--config", "--keep", "--log", "--loss", "--console", "--ip",
                              "--consoles-apart", "--no-power-cycle"})
        devices->excludes(other);
    auto *program = app.add_option("command", options.command,
                                   "Command to run on the board's network; the board ends with it")
                        ->type_name("COMMAND...");
    app.add_option("--listen", options.listenPort,
                   "TCP port of 127.0.0.1 on this PC for COMMAND, which inherits a listening "
                   "socket with the number in $QUILLON_LISTEN_FD; 0 stands for any free port")
        ->check(CLI::Range(0, 65535).description(""))
        ->needs(program)
        ->type_name("PORT");
    app.add_option("--name", options.name, "Name of this board, for a user who runs several")
        ->type_name("NAME")
        ->capture_default_str();
    app.footer("Put -- before COMMAND.");

    auto *enter =
        app.add_subcommand("enter", "Run a command, or a shell, on the network of a running board");
    enter->add_option("command", options.command, "After --")->type_name("COMMAND...");
    auto *ctl = app.add_subcommand("ctl", "Send a request to a running board");
    ctl->add_option("request", options.command, controlHelp())->type_name("REQUEST")->required();
    for (CLI::App *command : {enter, ctl}) command->fallthrough();  // --name may come after it
    app.require_subcommand(0, 1);
}

void complete(CLI::App &app, Options &options) {
    options.board.chip = kChips.at(options.chip);
    options.board.computer =
        app.count("--computer") == 0 ? plainComputer(options) : virtualPc(options);
    options.board.loss = options.lossPercent / 100;
    for (const unsigned absent : options.board.absentBoards)
        if (absent >= options.board.mcuBoards)
            throw std::runtime_error("there is no board " + std::to_string(absent));
    if (app.count("--stored-baud") == 0) options.board.storedBaud = options.board.chipBaud;
    if (!options.configFile.empty()) options.board.settings = readText(options.configFile);
    if (!options.keepDir.empty()) {
        options.board.directory = absolutePath(options.keepDir);
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
    if (!options.board.devices.empty()) {
        if (!options.command.empty())
            throw std::runtime_error("with --devices there is no network for a command");
        options.screen = false;
        return;
    }
    if (options.log)
        options.board.onLogLine = [](const std::string &line) {
            printf("log       %s\n", quillon::printable(line).c_str());
            fflush(stdout);
        };
}

}  // namespace sim
