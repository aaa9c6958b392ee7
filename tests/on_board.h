// The daemon that ships, on the simulated board.
#pragma once

#include <memory>
#include <string>

#include "board.h"
#include "commands.h"
#include "support.h"

namespace test {

constexpr char kBoard[] = "192.168.1.10", kConsole[] = "192.168.1.20", kOther[] = "192.168.1.21",
               kThird[] = "192.168.1.30";
/// Settings with which a start takes little time.
constexpr char kFast[] = "buad_rate=115200\n";

class OnBoard : public testing::Test {
  protected:
    OnBoard();

    /// The board without its daemon.
    void make(const std::string &settings);
    void start(const std::string &settings);
    void startListening(const std::string &settings);

    /// Types a character from an address; tag comes before each record.
    void type(const std::string &from, char character, const std::string &tag = "");
    /// Does the computer come to have this text, or to be like this?
    bool arrives(const std::string &text);
    bool becomes(const std::function<bool(const sim::Computer::State &)> &wanted);
    /// Does it come to hold this key first? 0: none.
    bool keyIs(std::uint8_t usage);
    /// The answer to a text, "no answer" after 3 s.
    std::string ask(const std::string &request, unsigned port = 80);
    bool logs(const std::string &line);
    std::string settings();

    sim::BoardOptions options_;
    std::unique_ptr<sim::Board> board_;
};

}  // namespace test
