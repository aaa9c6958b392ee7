// quillon-key-to-kernel: how long a key takes from a console's send to the event in a Linux guest's
// kernel, and where that time goes. Written for the page docs/performance.md.

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "protocol/records.h"
#include "sim/board.h"
#include "sim/host/private_host.h"
#include "sim/pc/virtual_pc.h"
#include <quillon/endpoint.h>

namespace {

using sim::Clock;
using namespace std::chrono_literals;

constexpr int kWarmUp = 20;

// The times of one key, taken where it passes.
class Stations {
  public:
    enum Station { kFrame, kFetched, kEvent, kCount };

    void pass(Station station) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!passed_[station]) at_[station] = Clock::now();
        passed_[station] = true;
        changed_.notify_all();
    }
    void expect() {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (bool &passed : passed_) passed = false;
    }
    /// Milliseconds from start to each station.
    std::vector<double> await(Clock::time_point start) {
        std::unique_lock<std::mutex> lock(mutex_);
        const auto all = [this] { return passed_[0] && passed_[1] && passed_[2]; };
        if (!changed_.wait_for(lock, 10s, all)) throw std::runtime_error("a key did not arrive");
        std::vector<double> result;
        for (const Clock::time_point at : at_)
            result.push_back(std::chrono::duration<double, std::milli>(at - start).count());
        return result;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool passed_[kCount]{};
    Clock::time_point at_[kCount];
};

double percentile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

void print(const char *what, const std::vector<double> &values) {
    printf("%-44s %8.2f %8.2f %8.2f\n", what, percentile(values, 0.5), percentile(values, 0.95),
           percentile(values, 0.99));
}

void measure(int keys) {
    const std::string folder = PROGRAM_DIR;
    sim::BoardOptions options;
    options.daemon = folder + "/quillon";
    options.preload = folder + "/libquillon_uart.so";
    options.settings = "buad_rate=115200\n";
    options.paced = true;
    sim::VirtualPc *pc = nullptr;
    options.computer = [&] {
        sim::VirtualPc::Options made;
        made.pc.boot = sim::Boot::kLinux;
        made.pc.folder = folder + "/computer";
        const std::string missing = missingFor(made.pc);
        if (!missing.empty()) throw std::runtime_error(missing);
        auto computer = std::make_unique<sim::VirtualPc>(made);
        pc = computer.get();
        return computer;
    };
    sim::Board board(options);
    Stations stations;
    board.chip().onFrame([&](const sim::Bytes &frame, Clock::time_point) {
        if (frame[3] == 0x02) stations.pass(Stations::kFrame);
    });
    pc->onEvent([&](const sim::Computer::Event &event) {
        if (event.kind == sim::Computer::Event::kKey) stations.pass(Stations::kFetched);
    });
    board.start();
    if (!board.waitUntilListening(20s) ||
        !pc->waitFor([](const auto &state) { return state.attached; }, 120s))
        throw std::runtime_error("board or computer does not start");
    std::this_thread::sleep_for(2s);  // until Linux has opened the keyboard
    pc->onSerialLine([&](std::size_t port, const std::string &line) {
        if (port == 1 && line == "1 30 1") stations.pass(Stations::kEvent);
    });

    quillon::Endpoint console(options.address, 80, options.consoles.front());
    const auto down = quillon::keyboardRecord({0, quillon::kUsageA}),
               up = quillon::keyboardRecord({});
    std::vector<double> toChip, toFetched, toEvent, polling;
    for (int i = -kWarmUp; i < keys; ++i) {
        stations.expect();
        const auto start = Clock::now();
        console.send(down.data(), down.size());
        const std::vector<double> at = stations.await(start);
        console.send(up.data(), up.size());
        // Out of step with the computer's polls.
        std::this_thread::sleep_for(20ms +
                                    std::chrono::microseconds(1 + (i + kWarmUp) * 137 % 8000));
        if (i < 0) continue;
        toChip.push_back(at[Stations::kFrame]);
        toFetched.push_back(at[Stations::kFetched]);
        toEvent.push_back(at[Stations::kEvent]);
        polling.push_back(at[Stations::kFetched] - at[Stations::kFrame]);
    }
    printf("%-44s %8s %8s %8s\n", "milliseconds", "p50", "p95", "p99");
    print("send to the frame's last byte at the chip", toChip);
    print("from there until the computer fetches it", polling);
    print("send until the computer has fetched it", toFetched);
    print("send to the kernel's event, read back", toEvent);
    board.stop();
}

}  // namespace

int main(int argc, char **argv) {
    const int keys = argc > 1 ? atoi(argv[1]) : 1000;
    if (argc > 2 || keys < 1) {
        fputs("usage: quillon-key-to-kernel [KEYS]\n", stderr);
        return 2;
    }
    return sim::runOnPrivateHost([&] {
        try {
            measure(keys);
            return 0;
        } catch (const std::exception &error) {
            fprintf(stderr, "quillon-key-to-kernel: %s\n", error.what());
            return 1;
        }
    });
}
