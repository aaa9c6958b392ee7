// The daemon that ships, on the simulated board.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "board.h"
#include "endpoint.h"
#include "support.h"

namespace test {

constexpr char kBoard[] = "192.168.1.10", kConsole[] = "192.168.1.20", kOther[] = "192.168.1.21",
               kThird[] = "192.168.1.30";
/// Settings with which a start takes little time.
constexpr char kFast[] = "buad_rate=115200\n";

class OnBoard : public testing::Test {
  protected:
    OnBoard();

    void start(const std::string &settings);
    void startListening(const std::string &settings);
    /// With permissions on and 192.168.1.20-ann linked, level 5, whose console misses heartbeats;
    /// waits until the daemon has seen that.
    void startHeldBySilentAnn();

    /// Types a character from an address; tag comes before each record.
    void type(const std::string &from, char character, const std::string &tag = "");
    /// Does the computer come to have this text?
    bool arrives(const std::string &text);
    /// The answer to a text, "no answer" after 3 s.
    std::string ask(const std::string &request, unsigned port = 80);
    bool logs(const std::string &line);
    std::string settings();

    sim::BoardOptions options_;
    std::unique_ptr<sim::Board> board_;
};

}  // namespace test
