// quillon-viewer-bench: what the gateway adds to a key's way, and what viewers cost. Written for
// the page docs/performance.md.

#include "bench/gateway_stage.h"
#include "sim/host/private_host.h"

namespace {

using namespace bench;

void measureLatency(int keys) {
    BenchBoard board(PROGRAM_DIR "/quillon");
    const auto console = board.console();
    const auto direct = latencies(board, keys, [&](bool down) {
        const auto record = bench::record(bench::Record::kKeyboard, down ? 0 : 1);
        console->send(record.data(), record.size());
    });
    const Gateway gateway({"192.168.1.10"});
    Audience audience;
    audience.add("e0");
    audience.start();
    std::this_thread::sleep_for(3s);  // until it has asked for the lock keys
    const auto viewer =
        latencies(board, keys, [&](bool down) { audience.viewers().front()->key(0x1E, down); });
    printf("%-46s %8s %8s\n", "send to the frame at the chip, ms", "p50", "p99");
    for (const auto &[name, times] : {std::pair("a console's record", direct),
                                      std::pair("a viewer's key, by the gateway", viewer)})
        printf("%-46s %8.3f %8.3f\n", name, percentile(times, 0.5), percentile(times, 0.99));
}

// One viewer types 8 keys a second at each of these desks.
void measureCost(unsigned endpoints, unsigned viewersEach, bool typing, std::chrono::seconds time) {
    const StandIns standIns(endpoints);
    std::vector<std::string> addresses;
    for (unsigned i = 0; i < endpoints; ++i) addresses.push_back(standIns.address(i));
    const Gateway gateway(addresses);
    std::this_thread::sleep_for(1s);
    const long empty = gateway.residentKiB();
    Audience audience;
    for (unsigned i = 0; i < endpoints * viewersEach; ++i)
        audience.add("e" + std::to_string(i % endpoints));
    audience.start();
    std::this_thread::sleep_for(time);
    const double before = gateway.cpuSeconds();
    const auto begin = Clock::now();
    for (auto due = begin; due < begin + time; due += 125ms) {
        std::this_thread::sleep_until(due);
        if (!typing) continue;
        for (unsigned i = 0; i < endpoints; ++i) {
            audience.viewers()[i]->key(0x1E, true);
            audience.viewers()[i]->key(0x1E, false);
        }
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    printf("%3u endpoints, %3u viewers, %-7s %12.2f %% of a core %9ld KiB, without viewers %ld\n",
           endpoints, endpoints * viewersEach, typing ? "typing" : "idle",
           100 * (gateway.cpuSeconds() - before) / seconds, gateway.residentKiB(), empty);
}

int run(int keys) {
    try {
        measureLatency(keys);
        const auto time = keys < kFew ? 2s : 10s;
        for (const bool typing : {false, true}) measureCost(1, 1, typing, time);
        for (const bool typing : {false, true}) measureCost(100, 2, typing, time);
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "quillon-viewer-bench: %s\n", error.what());
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    const int keys = argc > 1 ? std::max(2, atoi(argv[1])) : 300;
    return sim::runOnPrivateHost([keys] { return run(keys); });
}
