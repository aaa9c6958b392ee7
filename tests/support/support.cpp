#include "tests/support/support.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <utility>

#include "sim/host/process.h"

namespace test {

std::string printedBy(const std::function<void()> &code) {
    testing::internal::CaptureStdout();
    code();
    return testing::internal::GetCapturedStdout();
}

std::string complainedBy(const std::function<void()> &code) {
    testing::internal::CaptureStderr();
    code();
    return testing::internal::GetCapturedStderr();
}

std::string complaintOf(const std::function<void()> &code) {
    try {
        code();
    } catch (const std::exception &error) {
        return error.what();
    }
    return "";
}

void writeFile(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string readFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

Outcome run(const std::string &command) {
    FILE *pipe = popen(("{ " + command + "\n} 2>&1").c_str(), "r");
    Outcome outcome{-1, ""};
    if (pipe == nullptr) return outcome;
    char chunk[4096];
    for (std::size_t n; (n = fread(chunk, 1, sizeof chunk, pipe)) > 0;)
        outcome.said.append(chunk, n);
    const int status = pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

Background::Background(const std::string &command)
    : pid_(sim::launch({{"sh", "-c", "exec " + command}, {}, "", -1, -1, -1, true})) {}

Background::~Background() {
    if (pid_ > 0) end(SIGKILL);
}

int Background::end(int signal) {
    if (pid_ <= 0) return -1;
    kill(pid_, signal);
    return sim::awaitExit(std::exchange(pid_, -1));
}

bool holds(const std::string &all, const std::string &text) {
    return all.find(text) != std::string::npos;
}

bool holds(const Outcome &outcome, const std::string &text) {
    return holds(outcome.said, text);
}

void expectHeld(const std::string &all, std::initializer_list<const char *> texts) {
    for (const char *text : texts) EXPECT_TRUE(holds(all, text)) << text << "\nin\n" << all;
}

bool comesTrue(const std::function<bool()> &isSo, std::chrono::milliseconds timeout) {
    const auto end = sim::Clock::now() + timeout;
    while (!isSo()) {
        if (sim::Clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

bool asStranger(const std::function<void()> &deed) {
    bool became = false;
    std::thread([&] {
        constexpr uid_t kNobody = 65534;
        // System calls change this thread alone; the library's functions change all threads.
        became = syscall(SYS_setgroups, 0, nullptr) == 0 &&
                 syscall(SYS_setresgid, kNobody, kNobody, kNobody) == 0 &&
                 syscall(SYS_setresuid, kNobody, kNobody, kNobody) == 0;
        if (became) deed();
    }).join();
    return became;
}

void expectRefused(const std::string &program, int status,
                   std::initializer_list<std::pair<const char *, const char *>> mistakes) {
    for (const auto &[arguments, words] : mistakes) {
        const Outcome outcome = run(program + " " + arguments);
        EXPECT_EQ(outcome.status, status) << arguments;
        EXPECT_TRUE(holds(outcome, words)) << arguments << ": " << outcome.said;
    }
}

std::size_t descriptors() {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

}  // namespace test
