#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "bench/bench_board.h"

namespace bench {

quillon::Datagram record(Record kind, int i) {
    if (kind == Record::kKeyboard)
        return quillon::datagram(
            quillon::keyboardRecord({0, static_cast<std::uint8_t>(i % 2 == 0 ? 0x04 : 0)}));
    return quillon::datagram(quillon::absoluteRecord(static_cast<std::uint16_t>(i % 1920),
                                                     static_cast<std::uint16_t>(i % 1080),
                                                     quillon::kNoButton, 0));
}

BenchBoard::BenchBoard(const std::string &program, bool paced, unsigned consoles) {
    sim::BoardOptions options;
    options.daemon = program;
    options.preload = PROGRAM_DIR "/libquillon_uart.so";
    options.paced = paced;
    options.consoles.clear();
    for (unsigned i = 0; i < consoles; ++i)
        options.consoles.push_back("192.168.1." + std::to_string(20 + i));
    board_ = std::make_unique<sim::Board>(options);
    board_->start();
    if (!board_->waitUntilListening(std::chrono::seconds(20)))
        throw std::runtime_error(program + " does not listen");
    board_->chip().onFrame(
        [this, keepsGaps = paced](const sim::Bytes &frame, Clock::time_point at) {
            if (frame[3] != 0x02 && frame[3] != 0x04) return;
            const std::lock_guard<std::mutex> lock(mutex_);
            ++frames_;
            if (keepsGaps) gaps_.push_back(at - last_);
            last_ = at;
            changed_.notify_all();
        });
}

BenchBoard::~BenchBoard() {
    board_->chip().onFrame(nullptr);
}

std::unique_ptr<quillon::Endpoint> BenchBoard::console(unsigned i) const {
    return std::make_unique<quillon::Endpoint>(board_->options().address, 80,
                                               board_->options().consoles.at(i));
}

unsigned BenchBoard::frames() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return frames_;
}

Clock::time_point BenchBoard::lastFrame() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return last_;
}

Clock::duration BenchBoard::medianGap() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    auto gaps = gaps_;
    if (gaps.empty()) return {};
    const auto middle = gaps.begin() + static_cast<long>(gaps.size() / 2);
    std::nth_element(gaps.begin(), middle, gaps.end());
    return *middle;
}

bool BenchBoard::waitForFrames(unsigned count, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return frames_ >= count; });
}

void BenchBoard::waitUntilQuiet(std::chrono::milliseconds quiet) const {
    for (unsigned before = frames(); waitForFrames(before + 1, quiet);) before = frames();
}

long BenchBoard::residentKiB() const {
    std::ifstream status("/proc/" + std::to_string(pid()) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return atol(line.c_str() + 6);
    return -1;
}

double BenchBoard::cpuSeconds() const {
    double sum = 0;
    const std::string tasks = "/proc/" + std::to_string(pid()) + "/task";
    for (const auto &thread : std::filesystem::directory_iterator(tasks)) {
        std::ifstream file(thread.path() / "schedstat");
        double nanoseconds = 0;
        if (file >> nanoseconds) sum += nanoseconds;
    }
    return sum / 1e9;
}

}  // namespace bench
