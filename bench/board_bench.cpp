// quillon-bench: what the daemon costs on the simulated board, beside a bare loop in its place.

#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "board.h"
#include "endpoint.h"
#include "private_host.h"
#include "records.h"

namespace {

using sim::Clock;
using Microseconds = std::chrono::duration<double, std::micro>;

// Times from a console's datagram to its frame at the chip.
class Latency {
  public:
    explicit Latency(sim::Board &board) : board_(board) {
        board.chip().onFrame([this](const sim::Bytes &frame, Clock::time_point at) {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (frame[3] != 0x02) return;
            arrived_ = at;
            here_ = true;
            changed_.notify_all();
        });
    }
    ~Latency() { board_.chip().onFrame(nullptr); }
    Latency(const Latency &) = delete;
    Latency &operator=(const Latency &) = delete;

    std::vector<double> measure(int records) {
        console::Endpoint endpoint(board_.options().address, 80, board_.options().consoles[0]);
        std::vector<double> times;
        for (int i = 0; i < records; ++i) {
            const auto usage = static_cast<std::uint8_t>(i % 2 == 0 ? 0x04 : 0);
            const auto record = console::keyboardRecord({0, usage});
            std::unique_lock<std::mutex> lock(mutex_);
            here_ = false;
            const auto sent = Clock::now();
            endpoint.send(record.data(), record.size());
            if (!changed_.wait_for(lock, std::chrono::seconds(1), [&] { return here_; }))
                throw std::runtime_error("a record was lost");
            times.push_back(Microseconds(arrived_ - sent).count());
            lock.unlock();
            // A console's pace, and time for the acknowledgement.
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        std::sort(times.begin(), times.end());
        return times;
    }

  private:
    sim::Board &board_;
    std::mutex mutex_;
    std::condition_variable changed_;
    Clock::time_point arrived_{};
    bool here_ = false;
};

long residentKiB(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return atol(line.c_str() + 6);
    return -1;
}

// User and system time so far, clock ticks.
long cpuTicks(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string field;
    long ticks = 0;
    for (int i = 1; i <= 15 && stat >> field; ++i)
        if (i >= 14) ticks += atol(field.c_str());
    return ticks;
}

void measure(const char *name, const std::string &program, int records) {
    sim::BoardOptions options;
    options.daemon = program;
    options.preload = PROGRAM_DIR "/libquillon_uart.so";
    sim::Board board(options);
    board.start();
    if (!board.waitUntilListening(std::chrono::seconds(20)))
        throw std::runtime_error(std::string(name) + " does not listen");
    const pid_t pid = board.daemon()->pid();
    const long before = cpuTicks(pid);
    std::this_thread::sleep_for(std::chrono::seconds(5));
    const long idle = cpuTicks(pid) - before;
    const long fresh = residentKiB(pid);
    const auto times = Latency(board).measure(records);
    const auto at = [&](double part) {
        return times[std::min(times.size() - 1,
                              static_cast<std::size_t>(part * static_cast<double>(times.size())))];
    };
    printf("%-10s %9.1f %9.1f %9.1f %12ld %12ld %10ld\n", name, at(0.5), at(0.99), at(0.999), fresh,
           residentKiB(pid), idle);
    fflush(stdout);
}

}  // namespace

int main(int argc, char **argv) {
    const int records = argc > 1 ? atoi(argv[1]) : 5000;
    if (records <= 0) {
        fprintf(stderr, "usage: quillon-bench [RECORDS]\n");
        return 2;
    }
    return sim::runOnPrivateHost([&] {
        printf("%d keyboard records, one at a time; latency from datagram to frame at the chip\n\n",
               records);
        printf("%-10s %9s %9s %9s %12s %12s %10s\n", "", "p50 us", "p99 us", "p99.9 us",
               "KiB at start", "KiB after", "idle ticks");
        try {
            measure("quillon", PROGRAM_DIR "/quillon", records);
            measure("bare loop", PROGRAM_DIR "/bare_loop", records);
        } catch (const std::exception &error) {
            fprintf(stderr, "quillon-bench: %s\n", error.what());
            return 1;
        }
        return 0;
    });
}
