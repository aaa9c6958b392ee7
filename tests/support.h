// What tests of several rooms use.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>

#include "serial_ports.h"

namespace test {

using sim::Bytes;

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
/// Runs a shell command; what it said on both outputs.
Outcome run(const std::string &command);
bool holds(const Outcome &outcome, const std::string &text);
bool holds(const std::string &all, const std::string &text);
/// Each of the texts, anywhere.
void expectHeld(const std::string &all, std::initializer_list<const char *> texts);

/// Waits until it is so, by looking again and again; for what tells of itself by no event.
bool comesTrue(const std::function<bool()> &isSo, std::chrono::milliseconds timeout);

/// How many descriptors this process has open.
std::size_t descriptors();

/// Says on a serial line what it is told to, and remembers what it heard.
class ScriptedDevice : public sim::SerialDevice {
  public:
    int baud() override { return baud_; }
    void receive(sim::SerialLine &line, const std::uint8_t *bytes, std::size_t count,
                 sim::Clock::time_point at) override;

    /// Answers every request that ends in byte with these bytes.
    void answer(std::uint8_t lastByte, const Bytes &with);
    /// Answers everything, without end, until told otherwise.
    void babble(bool on);
    void setBaud(int baud) { baud_ = baud; }

    Bytes heard() const;
    /// Waits until it heard at least count bytes; what it heard.
    Bytes waitFor(std::size_t count) const;

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    Bytes heard_, answer_;
    int trigger_ = -1;
    bool babbling_ = false;
    int baud_ = 115200;
};

}  // namespace test
