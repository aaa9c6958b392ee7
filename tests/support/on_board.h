// The daemon that ships, on the simulated board.
#pragma once

#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>

#include "protocol/records.h"
#include "protocol/us_layout.h"
#include "sim/board.h"
#include "tests/support/support.h"
#include <quillon/session.h>

namespace test {

constexpr char kBoard[] = "192.168.1.10", kConsole[] = "192.168.1.20", kOther[] = "192.168.1.21",
               kThird[] = "192.168.1.30";
/// Settings with which a start takes little time.
constexpr char kFast[] = "buad_rate=115200\n";

class OnBoard : public testing::Test {
  protected:
    OnBoard() {
        options_.consoles = {kConsole, kOther, kThird};
        options_.daemon = PROGRAM_DIR "/quillon";
        options_.preload = PROGRAM_DIR "/libquillon_uart.so";
    }

    /// Makes the board without starting its daemon.
    void make(const std::string &settings) {
        options_.settings = settings;
        board_ = std::make_unique<sim::Board>(options_);
    }

    void start(const std::string &settings) {
        make(settings);
        board_->start();
    }

    void startListening(const std::string &settings) {
        start(settings);
        ASSERT_TRUE(board_->waitUntilListening(std::chrono::seconds(20)));
    }

    /// Types a character from an address; tag comes before each record.
    void type(const std::string &from, char character, const std::string &tag = "") {
        quillon::Endpoint endpoint(kBoard, 80, from);
        for (const quillon::Stroke &stroke : {*quillon::strokeOf(character), quillon::Stroke{}}) {
            const auto record = quillon::keyboardRecord(stroke);
            const std::string bytes = tag + std::string(record.begin(), record.end());
            endpoint.send(bytes.data(), bytes.size());
        }
    }

    /// True when, within 10 s, the computer has this text, or a state as wanted.
    bool arrives(const std::string &text) {
        return becomes([&](const auto &state) { return state.text == text; });
    }
    bool becomes(const std::function<bool(const sim::Computer::State &)> &wanted) {
        return board_->computer().waitFor(wanted, std::chrono::seconds(10));
    }
    /// True when, within 10 s, this key is the first one that is down; 0: none is.
    bool keyIs(std::uint8_t usage) {
        return becomes([&](const auto &state) { return state.keys[0] == usage; });
    }

    /// Keeps what happens at the computer from now on, except typed text.
    void collectEvents() {
        board_->computer().onEvent([this](const sim::Computer::Event &event) {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (event.kind != sim::Computer::Event::kText) seen_ += event.what + "\n";
        });
    }
    std::string seen() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return seen_;
    }
    bool sees(const std::string &what) {
        return becomes([&](const auto &) { return holds(seen(), what); });
    }
    /// True when, within 10 s, the pointer is less than so many pixels from a place.
    bool at(int x, int y, int dx = 6, int dy = 6) {
        return becomes(
            [&](const auto &s) { return std::abs(s.x - x) < dx && std::abs(s.y - y) < dy; });
    }

    /// The answer to a text, "no answer" after 3 s.
    std::string ask(const std::string &request, std::uint16_t port = 80) {
        return quillon::Endpoint(kBoard, port, kConsole)
            .ask(request, std::chrono::seconds(3))
            .value_or("no answer");
    }

    bool logs(const std::string &line) {
        return board_->daemon()->waitForLine(line, std::chrono::seconds(10)).has_value();
    }
    std::string settings() { return readFile(board_->settingsFile()); }

    sim::BoardOptions options_;

  private:
    std::mutex mutex_;
    std::string seen_;

  protected:
    // Declared after mutex_ and seen_, so that it is destroyed before them: its computer calls this
    // object.
    std::unique_ptr<sim::Board> board_;
};

}  // namespace test
