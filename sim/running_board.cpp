#include "sim/running_board.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "sim/board_control.h"
#include "sim/host/control_socket.h"
#include "sim/host/descriptor.h"
#include "sim/host/private_host.h"
#include "sim/host/process.h"
#include "terminal/printable.h"

namespace sim {
namespace {

[[noreturn]] void fail(const std::string &what) {
    throw std::runtime_error(what + ": " + strerror(errno));
}

bool inOtherNamespace(pid_t pid, const char *which) {
    char own[64] = "", other[64] = "";
    const std::string name = std::string("/ns/") + which;
    return readlink(("/proc/self" + name).c_str(), own, sizeof own - 1) < 0 ||
           readlink(("/proc/" + std::to_string(pid) + name).c_str(), other, sizeof other - 1) < 0 ||
           strcmp(own, other) != 0;
}

Descriptor opened(int fd, const char *what) {
    if (fd < 0) fail(what);
    return Descriptor(fd);
}

void joinNamespacesOf(pid_t board) {
    constexpr char kCannot[] = "cannot enter the board";
    char cwd[4096];
    if (getcwd(cwd, sizeof cwd) == nullptr) strcpy(cwd, "/");
    const std::string process = "/proc/" + std::to_string(board);
    const Descriptor handle = opened(static_cast<int>(syscall(SYS_pidfd_open, board, 0)), kCannot);
    // The number may belong to another process by now. If that happens later, setns() fails.
    struct stat owner {};
    if (stat(process.c_str(), &owner) != 0) fail(kCannot);
    if (owner.st_uid != getuid()) throw std::runtime_error(kCannot);
    // For a board in a chroot, the root of its mount namespace is the host's, not the board's.
    const Descriptor root =
        opened(open((process + "/root").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC), kCannot);
    int spaces = CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWPID;
    if (inOtherNamespace(board, "user")) spaces |= CLONE_NEWUSER;
    if (setns(handle.get(), spaces) != 0 || fchdir(root.get()) != 0 || chroot(".") != 0)
        fail(kCannot);
    if (chdir(cwd) != 0 && chdir("/") != 0) fail("chdir");
    putToolsInPath();
}

int enterBoard(const std::string &name, const std::vector<std::string> &command) {
    pid_t board = 0;
    askBoard(name, "status", &board);
    fflush(nullptr);
    // A child joins and starts the command: setns() gives the PID namespace to later children.
    const pid_t entered = fork();
    if (entered < 0) fail("fork");
    if (entered > 0) return awaitExit(entered);
    int status = 1;
    try {
        joinNamespacesOf(board);
        status = awaitExit(launch({command, {}, "", -1, -1, -1, false}));
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "quillon-board: %s\n", error.what());
    }
    _exit(status);
}

// Prints an answer in words; the exit status.
int printAnswer(const std::string &answer) {
    const bool refused = answer.rfind(kRefused, 0) == 0;
    std::istringstream lines(answer);
    for (std::string line; std::getline(lines, line);)
        fprintf(refused ? stderr : stdout, "%s\n", quillon::printableText(line).c_str());
    return refused ? 1 : 0;
}

int saveScreenshot(const Options &options) {
    if (options.command.size() != 2)
        throw std::runtime_error(std::string("write: ctl ") + kScreenshot + " FILE.png");
    const std::string &path = options.command[1];
    const std::string answer = askBoard(options.name, kScreenshot);
    if (answer.rfind(kRefused, 0) == 0) return printAnswer(answer);
    FILE *file = fopen(path.c_str(), "we");
    if (file == nullptr) fail("cannot write " + path);
    const bool written = fwrite(answer.data(), 1, answer.size(), file) == answer.size();
    if (fclose(file) != 0 || !written) fail("cannot write " + path);
    return 0;
}

}  // namespace

int speakToRunningBoard(bool enter, const Options &options) {
    if (enter) {
        const char *shell = getenv("SHELL");
        const std::vector<std::string> interactive{shell != nullptr ? shell : "/bin/sh"};
        return enterBoard(options.name, options.command.empty() ? interactive : options.command);
    }
    if (options.command[0] == kScreenshot) return saveScreenshot(options);
    std::string request;
    for (const std::string &word : options.command) request += (request.empty() ? "" : " ") + word;
    return printAnswer(askBoard(options.name, request));
}

}  // namespace sim
