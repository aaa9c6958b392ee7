#include "sim/host/daemon.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

#include "sim/host/process.h"

namespace sim {
namespace {

// A board may run for weeks, and a moving mouse gives hundreds of lines a second.
constexpr std::size_t kLinesKept = 100'000;

}  // namespace

Daemon::Daemon(Setup setup) : setup_(std::move(setup)) {
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe: " + std::string(strerror(errno)));
    const int null = setup_.input < 0 ? open("/dev/null", O_RDONLY | O_CLOEXEC) : -1;
    Launch what;
    what.arguments = {setup_.program};
    // The option makes AddressSanitizer accept a library that is loaded before its runtime.
    what.environment = setup_.environment;
    if (!setup_.preload.empty())
        what.environment.insert(what.environment.end(), {"LD_PRELOAD=" + setup_.preload,
                                                         "ASAN_OPTIONS=verify_asan_link_order=0"});
    what.directory = setup_.directory;
    what.input = setup_.input < 0 ? null : setup_.input;
    what.output = what.error = out[1];
    what.ownSession = true;
    output_ = out[0];
    try {
        pid_ = launch(what);
    } catch (...) {
        close(out[0]);
        close(out[1]);
        if (null >= 0) close(null);
        throw;
    }
    close(out[1]);
    if (null >= 0) close(null);
    reader_ = std::thread([this] { readLog(); });
}

Daemon::~Daemon() {
    kill();
    reader_.join();
    close(output_);
}

int Daemon::stop(int sig, std::chrono::milliseconds patience) {
    if (!ended()) {
        // The descriptor becomes readable when the process ends.
        const int handle = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
        ::kill(pid_, sig);
        pollfd gone{handle, POLLIN, 0};
        const int seen = handle < 0 ? 0 : poll(&gone, 1, static_cast<int>(patience.count()));
        if (handle >= 0) close(handle);
        if (seen == 0) ::kill(pid_, SIGKILL);
        status_ = awaitExit(pid_);
    }
    return *status_;
}

void Daemon::kill() {
    stop(SIGKILL, std::chrono::seconds(10));
}

std::optional<int> Daemon::ended() {
    int status = 0;
    if (!status_ && waitpid(pid_, &status, WNOHANG) == pid_)
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return status_;
}

void Daemon::awaitLogEnd(std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, timeout, [&] { return logEnded_; });
}

std::vector<std::string> Daemon::log() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return {log_.begin(), log_.end()};
}

std::optional<std::size_t> Daemon::waitForLine(const std::string &text,
                                               std::chrono::milliseconds timeout,
                                               std::size_t first) const {
    std::unique_lock<std::mutex> lock(mutex_);
    std::size_t at = first;
    const bool found = changed_.wait_for(lock, timeout, [&] {
        at = std::max(at, dropped_);
        const std::size_t end = dropped_ + log_.size();
        while (at < end && log_[at - dropped_].find(text) == std::string::npos) ++at;
        return at < end;
    });
    return found ? std::optional<std::size_t>(at) : std::nullopt;
}

void Daemon::takeLine(const std::string &line) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        log_.push_back(line);
        if (log_.size() > kLinesKept) {
            log_.pop_front();
            ++dropped_;
        }
        changed_.notify_all();
    }
    if (setup_.onLine) setup_.onLine(line);
}

int Daemon::openLogFile() {
    if (setup_.logFile.empty()) return -1;
    const int file = open(setup_.logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (file < 0) tellTrouble(errno);
    return file;
}

void Daemon::tellTrouble(int error) {
    if (setup_.onTrouble)
        setup_.onTrouble("cannot write to " + setup_.logFile + ": " + strerror(error));
    setup_.onTrouble = nullptr;
}

void Daemon::readLog() {
    const int file = openLogFile();
    std::string line;
    char chunk[4096];
    for (ssize_t n; (n = read(output_, chunk, sizeof chunk)) > 0;) {
        const auto count = static_cast<std::size_t>(n);
        if (file >= 0) {
            const ssize_t kept = write(file, chunk, count);
            if (kept != n) tellTrouble(kept < 0 ? errno : ENOSPC);
        }
        for (std::size_t i = 0; i < count; ++i) {
            if (chunk[i] != '\n') {
                line += chunk[i];
                continue;
            }
            takeLine(line);
            line.clear();
        }
    }
    if (!line.empty()) takeLine(line);
    if (file >= 0) close(file);
    const std::lock_guard<std::mutex> lock(mutex_);
    logEnded_ = true;
    changed_.notify_all();
}

}  // namespace sim
