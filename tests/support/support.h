// Helpers for all tests.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "sim/host/serial_ports.h"

namespace test {

/// What a piece of code printed on standard output.
std::string printedBy(const std::function<void()> &code);
/// The same for standard error.
std::string complainedBy(const std::function<void()> &code);

void writeFile(const std::string &path, const std::string &text);
std::string readFile(const std::string &path);

struct Outcome {
    int status;
    std::string said;
};
/// Runs a shell command; its status, and what it said on both outputs.
Outcome run(const std::string &command);
bool holds(const Outcome &outcome, const std::string &text);
bool holds(const std::string &all, const std::string &text);
/// Expects each of the texts, anywhere in all.
void expectHeld(const std::string &all, std::initializer_list<const char *> texts);

/// Polls isSo every 10 ms, for what causes no event; false when it is not true in time.
bool comesTrue(const std::function<bool()> &isSo, std::chrono::milliseconds timeout);

/// The number of descriptors that this process has open.
std::size_t descriptors();

}  // namespace test
