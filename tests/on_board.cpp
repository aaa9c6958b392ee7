#include "on_board.h"

#include "records.h"

namespace test {

using namespace std::chrono_literals;

OnBoard::OnBoard() {
    options_.consoles = {kConsole, kOther, kThird};
    options_.daemon = PROGRAM_DIR "/quillon";
    options_.preload = PROGRAM_DIR "/libquillon_uart.so";
}

void OnBoard::make(const std::string &settings) {
    options_.settings = settings;
    board_ = std::make_unique<sim::Board>(options_);
}

void OnBoard::start(const std::string &settings) {
    make(settings);
    board_->start();
}

void OnBoard::startListening(const std::string &settings) {
    start(settings);
    ASSERT_TRUE(board_->waitUntilListening(20s));
}

void OnBoard::type(const std::string &from, char character, const std::string &tag) {
    console::Endpoint endpoint(kBoard, 80, from);
    for (const console::Stroke &stroke : {*console::strokeOf(character), console::Stroke{}}) {
        const auto record = console::keyboardRecord(stroke);
        const std::string bytes = tag + std::string(record.begin(), record.end());
        endpoint.send(bytes.data(), bytes.size());
    }
}

bool OnBoard::arrives(const std::string &text) {
    return becomes([&](const auto &state) { return state.text == text; });
}

bool OnBoard::becomes(const std::function<bool(const sim::Computer::State &)> &wanted) {
    return board_->computer().waitFor(wanted, 10s);
}

bool OnBoard::keyIs(std::uint8_t usage) {
    return becomes([&](const auto &state) { return state.keys[0] == usage; });
}

std::string OnBoard::ask(const std::string &request, unsigned port) {
    return console::Endpoint(kBoard, static_cast<std::uint16_t>(port), kConsole)
        .ask(request, 3s)
        .value_or("no answer");
}

bool OnBoard::logs(const std::string &line) {
    return board_->daemon()->waitForLine(line, 10s).has_value();
}

std::string OnBoard::settings() {
    return readFile(board_->settingsFile());
}

}  // namespace test
