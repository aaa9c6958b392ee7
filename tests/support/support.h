// Helpers for all tests.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "sim/host/serial_ports.h"

namespace test {

/// What a piece of code printed on standard output.
std::string printedBy(const std::function<void()> &code);
/// The same for standard error.
std::string complainedBy(const std::function<void()> &code);

/// The message of the exception that code throws; empty when it throws none.
std::string complaintOf(const std::function<void()> &code);

inline std::vector<std::uint8_t> bytes(const std::string &text) {
    return {text.begin(), text.end()};
}
inline std::string text(const std::vector<std::uint8_t> &bytes) {
    return {bytes.begin(), bytes.end()};
}

void writeFile(const std::string &path, const std::string &text);
std::string readFile(const std::string &path);

struct Outcome {
    int status;
    std::string said;
};
/// Runs a shell command; its status, and what it said on both outputs.
Outcome run(const std::string &command);

/// A shell command that runs beside the test, in a session of its own. Its process alone is killed
/// with the object; what that has started ends with the test's private host.
class Background {
  public:
    explicit Background(const std::string &command);
    ~Background();
    Background(const Background &) = delete;
    Background &operator=(const Background &) = delete;

    /// Its exit status, or 128 plus the signal that ended it; -1 when it was ended before.
    int end(int signal);
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_;
};

bool holds(const Outcome &outcome, const std::string &text);
bool holds(const std::string &all, const std::string &text);
/// Expects each of the texts, anywhere in all.
void expectHeld(const std::string &all, std::initializer_list<const char *> texts);

/// Polls isSo every 10 ms, for what causes no event; false when it is not true in time.
bool comesTrue(const std::function<bool()> &isSo, std::chrono::milliseconds timeout);

/// Does something as another user of the machine. False in a user namespace that has one user only.
/// Descriptors that deed opens stay open until the test ends.
bool asStranger(const std::function<void()> &deed);

/// Runs a program with each of these arguments, and expects this status and these words.
void expectRefused(const std::string &program, int status,
                   std::initializer_list<std::pair<const char *, const char *>> mistakes);

/// The number of descriptors that this process has open.
std::size_t descriptors();

}  // namespace test
