#include "sim/session.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>

#include "sim/board_control.h"
#include "sim/host/control_socket.h"
#include "sim/host/process.h"
#include "sim/view/board_screen.h"
#include "sim/view/event_printer.h"
#include "sim/view/trace.h"
#include "terminal/printable.h"
#include "terminal/terminal.h"

namespace sim {
namespace {

// What ends the wait of the main thread.
enum class Wake { kSignal, kCommandEnded, kTick };

class Session {
  public:
    explicit Session(const Options &options) : options_(options) {
        sigset_t watched;
        sigemptyset(&watched);
        for (const int sig : {SIGINT, SIGTERM, SIGHUP, SIGCHLD, SIGWINCH}) sigaddset(&watched, sig);
        // Before any thread starts, so that all threads leave these signals to the descriptor.
        sigprocmask(SIG_BLOCK, &watched, nullptr);
        signals_ = signalfd(-1, &watched, SFD_CLOEXEC);
    }

    int run() {
        std::unique_ptr<Trace> trace;
        if (options_.trace != nullptr) trace = std::make_unique<Trace>(options_.trace);
        BoardOptions boardOptions = options_.board;
        if (options_.screen)
            boardOptions.onLogLine = [this](const std::string &line) {
                const std::lock_guard<std::mutex> lock(mutex_);
                if (screen_) screen_->takeLog(line);
            };
        boardOptions.onTrouble = [this](const std::string &trouble) { note(trouble); };
        Board board(boardOptions);
        std::optional<EventPrinter> printer;
        std::optional<quillon::Terminal> terminal;
        if (options_.screen) {
            terminal.emplace(quillon::Terminal::kPlain);
            screen_ = std::make_unique<BoardScreen>(board);
            terminal_ = &*terminal;
        } else if (!options_.quiet) {
            printer.emplace(board.computer());
        }
        board.serialPorts().onTraffic([&](const Traffic &traffic) {
            if (trace) trace->take(traffic);
            if (screen_) screen_->take(traffic);
        });
        int status = live(board);
        board.serialPorts().onTraffic(nullptr);
        std::unique_ptr<BoardScreen> shown;  // ends outside of the lock, because that may wait
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            shown = std::move(screen_);
        }
        shown.reset();
        terminal.reset();  // before stop(), which takes 2 s
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
    // Keeps the first message about what could not be written, to print it at the end.
    void note(const std::string &trouble) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (trouble_.empty()) trouble_ = trouble;
    }

    int live(Board &board) {
        board_ = &board;
        const auto ended = start(board);
        const int status = ended ? *ended : serve(board);
        endCommand();
        for (const std::string &line : board.microcontroller().describe())
            printf("mcu       %s\n", line.c_str());
        return status;
    }

    // The exit status when the run ends here; none when the daemon listens or none is wanted.
    std::optional<int> start(Board &board) {
        if (options_.board.mcuBoards != 0) {
            if (options_.command.empty())
                fprintf(stderr, "quillon-board: a microcontroller with %u boards; Ctrl-C ends it\n",
                        options_.board.mcuBoards);
            return std::nullopt;
        }
        if (!options_.board.devices.empty()) {
            fprintf(stderr, "quillon-board: the devices are in %s; Ctrl-C ends it\n",
                    quillon::printable(options_.board.devices).c_str());
            return std::nullopt;
        }
        board.start();
        const auto begin = Clock::now();
        bool hinted = false;
        while (!board.listening()) {
            if (wait(5) == Wake::kSignal) return interruptedStatus();
            if (const auto status = board.daemonStatus()) return daemonEnded(board, *status);
            if (hinted || options_.screen || Clock::now() - begin < std::chrono::seconds(10))
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

    int serve(Board &board) {
        const auto startCommand = [&] {
            Launch command{options_.command, {}, "", -1, -1, -1, false};
            if (options_.listenSocket >= 0) {
                command.environment = {"QUILLON_LISTEN_FD=" +
                                       std::to_string(options_.listenSocket)};
                command.descriptors = {options_.listenSocket};
            }
            if (!options_.picturePath.empty())
                command.environment.push_back("QUILLON_PICTURE=" + options_.picturePath);
            command_ = launch(command);
        };
        if (!options_.command.empty() && board.consoleNetwork() != nullptr)
            board.consoleNetwork()->run(startCommand);
        else if (!options_.command.empty())
            startCommand();
        for (;;) {
            const Wake wake = wait(options_.screen ? 50 : 200);
            if (wake == Wake::kSignal) return interruptedStatus();
            if (wake == Wake::kCommandEnded) {
                // What the command sent may still be on its way to the computer.
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
            serveControl(options_.control, [this](const std::string &request) {
                return controlBoard(*board_, request);
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

    // False when the person wants to leave, or the terminal is gone.
    bool readTerminal() {
        bool closed = false;
        const std::string bytes = terminal_->read(closed);
        return !closed && screen_->typed(bytes);
    }

    int interruptedStatus() const {
        // Without a COMMAND, Ctrl-C is how the program is meant to end.
        return options_.command.empty() && signal_ == SIGINT ? 0 : 128 + signal_;
    }

    int daemonEnded(Board &board, int status) {
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
    Board *board_ = nullptr;
    std::mutex mutex_;  ///< for screen_ and trouble_, which the log's thread uses too
    std::string trouble_;
    std::unique_ptr<BoardScreen> screen_;
    quillon::Terminal *terminal_ = nullptr;
    std::string lastWords_;  ///< printed when the terminal is restored
    int signals_ = -1;
    int signal_ = 0;
    pid_t command_ = 0;
    int commandStatus_ = 0;
};

}  // namespace

int runSession(const Options &options) {
    return Session(options).run();
}

}  // namespace sim
