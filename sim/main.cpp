// quillon-board: runs the daemon on a simulated board.

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>

#include "sim/board.h"
#include "sim/board_control.h"
#include "sim/host/control_socket.h"
#include "sim/host/private_host.h"
#include "sim/host/process.h"
#include "sim/view/board_screen.h"
#include "sim/view/event_printer.h"
#include "sim/view/trace.h"
#include "terminal/printable.h"
#include "terminal/standard_streams.h"
#include "terminal/terminal.h"

namespace {

constexpr char kProgram[] = "quillon-board";

struct Options {
    sim::BoardOptions board;
    std::string chip = "ch9329", configFile, keepDir;
    bool log = false, lines = false, quiet = false;
    std::string traceFile;
    FILE *trace = nullptr;
    bool screen = false;  ///< on a whole terminal
    double lossPercent = 0;
    std::vector<std::string> command;
    std::string name = "default";
    int control = -1;  ///< listening socket
};

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

const std::map<std::string, sim::BoardOptions::Chip> kChips{{"ch9329", sim::BoardOptions::kCh9329},
                                                            {"ch9350", sim::BoardOptions::kCh9350},
                                                            {"none", sim::BoardOptions::kNone}};

// What ends the wait of the main thread.
enum class Wake { kSignal, kCommandEnded, kTick };

class Session {
  public:
    explicit Session(const Options &options) : options_(options) {
        sigset_t watched;
        sigemptyset(&watched);
        for (const int sig : {SIGINT, SIGTERM, SIGHUP, SIGCHLD, SIGWINCH}) sigaddset(&watched, sig);
        // Before any thread starts: all of them leave these signals to the descriptor.
        sigprocmask(SIG_BLOCK, &watched, nullptr);
        signals_ = signalfd(-1, &watched, SFD_CLOEXEC);
    }

    int run() {
        std::unique_ptr<sim::Trace> trace;
        if (options_.trace != nullptr) trace = std::make_unique<sim::Trace>(options_.trace);
        sim::BoardOptions boardOptions = options_.board;
        if (options_.screen)
            boardOptions.onLogLine = [this](const std::string &line) {
                const std::lock_guard<std::mutex> lock(mutex_);
                if (screen_) screen_->takeLog(line);
            };
        boardOptions.onTrouble = [this](const std::string &trouble) { note(trouble); };
        sim::Board board(boardOptions);
        std::optional<sim::EventPrinter> printer;
        std::optional<quillon::Terminal> terminal;
        if (options_.screen) {
            terminal.emplace(quillon::Terminal::kPlain);
            screen_ = std::make_unique<sim::BoardScreen>(board);
            terminal_ = &*terminal;
        } else if (!options_.quiet) {
            printer.emplace(board.computer());
        }
        board.serialPorts().onTraffic([&](const sim::Traffic &traffic) {
            if (trace) trace->take(traffic);
            if (screen_) screen_->take(traffic);
        });
        int status = live(board);
        board.serialPorts().onTraffic(nullptr);
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            screen_.reset();
        }
        terminal.reset();  // the daemon takes its time to end
        fputs(quillon::printableLines(lastWords_).c_str(), stderr);
        board.stop();
        board_ = nullptr;
        if (trace) note(trace->finish());
        const std::lock_guard<std::mutex> lock(mutex_);
        if (trouble_.empty()) return status;
        fprintf(stderr, "quillon-board: %s\n", quillon::printable(trouble_).c_str());
        return status != 0 ? status : 1;
    }

  private:
    // What could not be written, of which the first is told at the end.
    void note(const std::string &trouble) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (trouble_.empty()) trouble_ = trouble;
    }

    int live(sim::Board &board) {
        board_ = &board;
        const auto ended = start(board);
        const int status = ended ? *ended : serve(board);
        endCommand();
        for (const std::string &line : board.microcontroller().describe())
            printf("mcu       %s\n", line.c_str());
        return status;
    }

    // A status when it ends here, none when the daemon listens or there is to be none.
    std::optional<int> start(sim::Board &board) {
        if (options_.board.mcuBoards != 0) {
            if (options_.command.empty())
                fprintf(stderr, "quillon-board: a microcontroller with %u boards; Ctrl-C ends it\n",
                        options_.board.mcuBoards);
            return std::nullopt;
        }
        board.start();
        const auto begin = sim::Clock::now();
        bool hinted = false;
        while (!board.listening()) {
            if (wait(5) == Wake::kSignal) return interruptedStatus();
            if (const auto status = board.daemonStatus()) return daemonEnded(board, *status);
            if (hinted || options_.screen || sim::Clock::now() - begin < std::chrono::seconds(10))
                continue;
            hinted = true;
            fprintf(stderr,
                    "quillon-board: the daemon does not listen yet; a chip that does not "
                    "answer keeps it negotiating (see --log)\n");
        }
        if (options_.command.empty() && !options_.screen)
            fprintf(stderr, "quillon-board: listening at %s:%u; Ctrl-C ends it\n",
                    options_.board.address.c_str(), board.dataPort());
        return std::nullopt;
    }

    int serve(sim::Board &board) {
        if (!options_.command.empty())
            command_ = sim::launch({options_.command, {}, "", -1, -1, -1, false});
        for (;;) {
            const Wake wake = wait(options_.screen ? 50 : 200);
            if (wake == Wake::kSignal) return interruptedStatus();
            if (wake == Wake::kCommandEnded) {
                // What it sent may still be on its way to the computer.
                board.waitUntilQuiet(std::chrono::seconds(5));
                return commandStatus_;
            }
            if (const auto status = board.daemonStatus()) return daemonEnded(board, *status);
        }
    }

    Wake wait(int milliseconds) {
        pollfd readable[] = {{signals_, POLLIN, 0},
                             {options_.control, POLLIN, 0},
                             {screen_ ? STDIN_FILENO : -1, POLLIN, 0}};
        if (screen_) screen_->show();
        if (poll(readable, 3, milliseconds) <= 0) return Wake::kTick;
        if (readable[2].revents != 0 && !readTerminal()) {
            signal_ = SIGINT;
            return Wake::kSignal;
        }
        if (readable[1].revents != 0)
            sim::serveControl(options_.control, [this](const std::string &request) {
                return sim::controlBoard(*board_, request);
            });
        if (readable[0].revents == 0) return Wake::kTick;
        signalfd_siginfo info{};
        if (read(signals_, &info, sizeof info) != sizeof info) return Wake::kTick;
        if (info.ssi_signo == SIGWINCH) {
            if (terminal_ != nullptr) terminal_->resize();
            return Wake::kTick;
        }
        if (info.ssi_signo != SIGCHLD) {
            signal_ = static_cast<int>(info.ssi_signo);
            return Wake::kSignal;
        }
        int status = 0;
        if (command_ <= 0 || waitpid(command_, &status, WNOHANG) != command_) return Wake::kTick;
        command_ = 0;
        commandStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return Wake::kCommandEnded;
    }

    // False when the person wants to leave, or the terminal went.
    bool readTerminal() {
        bool closed = false;
        const std::string bytes = terminal_->read(closed);
        return !closed && screen_->typed(bytes);
    }

    int interruptedStatus() const {
        // Without a COMMAND, Ctrl-C is how the program is meant to end.
        return options_.command.empty() && signal_ == SIGINT ? 0 : 128 + signal_;
    }

    int daemonEnded(sim::Board &board, int status) {
        board.daemon()->awaitLogEnd(std::chrono::seconds(1));
        const auto log = board.daemon()->log();
        lastWords_ = "quillon-board: the daemon ended with status " + std::to_string(status) +
                     "; its last words: " + (log.empty() ? "none" : log.back()) + "\n";
        return 1;
    }

    void endCommand() {
        if (command_ <= 0) return;
        kill(command_, SIGTERM);
        for (int i = 0; i < 20 && command_ > 0; ++i) wait(100);
        if (command_ > 0) kill(command_, SIGKILL);
    }

    const Options &options_;
    sim::Board *board_ = nullptr;
    std::mutex mutex_;  ///< of screen_ and trouble_, which the log's thread uses
    std::string trouble_;
    std::unique_ptr<sim::BoardScreen> screen_;
    quillon::Terminal *terminal_ = nullptr;
    std::string lastWords_;  ///< for when the terminal shows lines again
    int signals_ = -1;
    int signal_ = 0;
    pid_t command_ = 0;
    int commandStatus_ = 0;
};

void describe(CLI::App &app, Options &options) {
    const auto number = CLI::Range(1200, 115200).description("");
    sim::BoardOptions &board = options.board;
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
    ctl->add_option("request", options.command, sim::controlHelp())
        ->type_name("REQUEST")
        ->required();
    for (CLI::App *command : {enter, ctl}) command->fallthrough();  // --name may stand behind
    app.require_subcommand(0, 1);
}

// Is there a terminal that can place its cursor, and is this in its foreground?
bool ownsScreen() {
    const char *term = getenv("TERM");
    return term != nullptr && *term != '\0' && strcmp(term, "dumb") != 0 &&
           isatty(STDOUT_FILENO) != 0 && tcgetpgrp(STDIN_FILENO) == getpgrp();
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
    if (!options.traceFile.empty()) options.trace = sim::openTrace(options.traceFile);
    options.screen = options.command.empty() && !options.lines && !options.log && !options.quiet &&
                     options.board.mcuBoards == 0 && ownsScreen();
    if (options.log)
        options.board.onLogLine = [](const std::string &line) {
            printf("log       %s\n", quillon::printable(line).c_str());
            fflush(stdout);
        };
}

int speakToRunningBoard(const CLI::App &app, const Options &options) {
    if (app.got_subcommand("enter")) {
        const char *shell = getenv("SHELL");
        const std::vector<std::string> interactive{shell != nullptr ? shell : "/bin/sh"};
        return sim::enterBoard(options.name,
                               options.command.empty() ? interactive : options.command);
    }
    std::string request;
    for (const std::string &word : options.command) request += (request.empty() ? "" : " ") + word;
    const std::string answer = sim::askBoard(options.name, request);
    const bool refused = answer.rfind(sim::kRefused, 0) == 0;
    fprintf(refused ? stderr : stdout, "%s\n", quillon::printableLines(answer).c_str());
    return refused ? 1 : 0;
}

int complain(const std::exception &error, int status) {
    fprintf(stderr, "%s: %s\n", kProgram, quillon::printableLines(error.what()).c_str());
    return status;
}

int runBoard(const Options &options) {
    const auto restoreTerminal = quillon::Terminal::restorer();
    const int status = sim::runOnPrivateHost([&] {
        int ended = 1;
        try {
            ended = Session(options).run();
        } catch (const std::runtime_error &error) {
            return complain(error, 1);
        }
        return quillon::finishOutput(kProgram) || ended != 0 ? ended : 1;
    });
    // Killed, it could not give the terminal back.
    if (options.screen && status > 128) restoreTerminal();
    return status;
}

int run(int argc, char **argv) {
    CLI::App app{"A simulated board that runs the real daemon", kProgram};
    Options options;
    describe(app, options);
    app.failure_message([](const CLI::App *, const CLI::Error &error) {
        return kProgram + (": " + quillon::printable(error.what())) + " (--help says more)\n";
    });
    try {
        app.parse(argc, argv);
        if (!app.get_subcommands().empty()) return speakToRunningBoard(app, options);
        complete(app, options);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::runtime_error &error) {
        return complain(error, app.get_subcommands().empty() ? 2 : 1);
    }
    try {
        options.control = sim::listenForControl(options.name);
    } catch (const std::runtime_error &error) {
        return complain(error, 1);
    }
    return runBoard(options);
}

}  // namespace

int main(int argc, char **argv) {
    quillon::holdStandardStreams();
    const int status = run(argc, argv);
    return quillon::finishOutput(kProgram) || status != 0 ? status : 1;
}
