// The daemon as a process on the private host, and its log.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace sim {

class Daemon {
  public:
    struct Setup {
        std::string program;
        std::string preload;                              ///< library for LD_PRELOAD; empty: none
        std::vector<std::string> environment;             ///< NAME=VALUE, plus the inherited ones
        std::string directory;                            ///< working directory, with its settings
        int input = -1;                                   ///< its standard input; -1: /dev/null
        std::string logFile;                              ///< appended to; empty: none
        std::function<void(const std::string &)> onLine;  ///< from the log's thread; may be empty
        /// Called once, from the log's thread: why the log file is not complete; may be empty.
        std::function<void(const std::string &)> onTrouble;
    };

    /// Starts it. Throws std::runtime_error when it cannot be started.
    explicit Daemon(Setup setup);
    /// Ends it at once, if it still runs.
    ~Daemon();
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    pid_t pid() const { return pid_; }

    /// Sends sig, waits at most patience for its end, and then kills it. Returns its exit status,
    /// or 128 plus the signal that ended it.
    int stop(int sig, std::chrono::milliseconds patience);
    /// Ends it at once, as a power cut does.
    void kill();
    /// Its exit status, as stop() returns it; none while it runs.
    std::optional<int> ended();

    /// Waits until the log of a daemon that ended is complete, at most timeout.
    void awaitLogEnd(std::chrono::milliseconds timeout) const;
    /// What it printed, standard output and error: the last 100,000 lines.
    std::vector<std::string> log() const;
    /// Waits for a line that holds text, from line number first on; its number, none after timeout.
    /// Line 0 is the first one that the daemon printed.
    std::optional<std::size_t> waitForLine(const std::string &text,
                                           std::chrono::milliseconds timeout,
                                           std::size_t first = 0) const;

  private:
    int openLogFile();
    void tellTrouble(int error);
    void readLog();
    void takeLine(const std::string &line);

    Setup setup_;
    pid_t pid_ = -1;
    int output_ = -1;
    std::optional<int> status_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::deque<std::string> log_;
    std::size_t dropped_ = 0;  ///< lines before those in log_
    bool logEnded_ = false;
    std::thread reader_;
};

}  // namespace sim
