// quillon-bench: measures the daemon on the simulated board, and a bare loop in its place.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "bench/bench_board.h"
#include "sim/host/private_host.h"
#include "sim/host/process.h"
#include "terminal/standard_streams.h"

namespace {

using bench::BenchBoard;
using bench::Clock;
using bench::Record;
using benchmark::State;
using namespace std::chrono_literals;

constexpr char kQuillon[] = PROGRAM_DIR "/quillon", kBareLoop[] = PROGRAM_DIR "/bare_loop";

int records = 20000;  // in each of the longer measurements

double microseconds(Clock::duration time) {
    return std::chrono::duration<double, std::micro>(time).count();
}

// times must be sorted.
double quantile(const std::vector<double> &times, double part) {
    const auto at = static_cast<std::size_t>(part * static_cast<double>(times.size()));
    return times[std::min(times.size() - 1, at)];
}

// One record at a time, from the console's send to the last byte of the frame at the chip.
void latency(State &state, const char *program, Record kind) {
    for (auto _ : state) {
        BenchBoard board(program);
        const auto console = board.console();
        std::vector<double> times;
        for (int i = 0; i < records; ++i) {
            const auto record = bench::record(kind, i);
            const unsigned before = board.frames();
            const auto sent = Clock::now();
            console->send(record.data(), record.size());
            if (!board.waitForFrames(before + 1, 1s))
                return state.SkipWithError("a record was lost");
            times.push_back(microseconds(board.lastFrame() - sent));
            std::this_thread::sleep_for(2ms);  // a console's pace; the acknowledgement passes
        }
        std::sort(times.begin(), times.end());
        state.counters["p50_us"] = quantile(times, 0.5);
        state.counters["p99_us"] = quantile(times, 0.99);
        state.counters["p99.9_us"] = quantile(times, 0.999);
        state.SetIterationTime(quantile(times, 0.5) / 1e6);
    }
}

// Sends a fifth more records than the wire can carry, for 5 s: how many arrive, how many are lost,
// and how long after the last send the last frame reaches the chip.
void saturation(State &state, const char *program, Record kind, double limit) {
    for (auto _ : state) {
        BenchBoard board(program, true);
        const auto console = board.console();
        const auto pause = std::chrono::duration_cast<Clock::duration>(
            std::chrono::duration<double>(1 / (1.2 * limit)));
        const auto begin = Clock::now();
        unsigned sent = 0;
        for (auto due = begin; due < begin + 5s; due += pause, ++sent) {
            std::this_thread::sleep_until(due);
            const auto record = bench::record(kind, static_cast<int>(sent));
            console->send(record.data(), record.size());
        }
        const auto end = Clock::now();
        const unsigned during = board.frames();
        board.waitUntilQuiet(500ms);
        state.counters["per_s"] = during / std::chrono::duration<double>(end - begin).count();
        state.counters["limit"] = limit;
        state.counters["median_us"] = microseconds(board.medianGap());
        state.counters["lost"] = sent - board.frames();
        state.counters["newest_ms"] = microseconds(board.lastFrame() - end) / 1000;
        state.SetIterationTime(1 / state.counters["per_s"]);
    }
}

// Keeps at most kAtOnce records under way, so that none is lost.
void sendAll(const BenchBoard &board, int count) {
    constexpr unsigned kAtOnce = 50;
    const auto console = board.console();
    const unsigned before = board.frames();
    for (int i = 0; i < count; ++i) {
        const auto record = bench::record(Record::kKeyboard, i);
        console->send(record.data(), record.size());
        const unsigned due = before + static_cast<unsigned>(i) + 1;
        if (due > kAtOnce) board.waitForFrames(due - kAtOnce, 1s);
    }
    board.waitForFrames(before + static_cast<unsigned>(count), 5s);
}

// System calls of all threads for a record. Not timed, because strace slows the daemon down.
double systemCalls(const BenchBoard &board, int count) {
    const std::string table = "/tmp/quillon-bench." + std::to_string(getpid());
    const pid_t strace = sim::launch(
        {{"strace", "-cfqq", "-U", "calls", "-o", table, "-p", std::to_string(board.pid())},
         {},
         "",
         -1,
         -1,
         -1,
         false});
    std::this_thread::sleep_for(500ms);
    sendAll(board, count);
    kill(strace, SIGINT);
    sim::awaitExit(strace);
    std::ifstream file(table);
    double calls = 0, last = 0;
    for (std::string line; std::getline(file, line);)
        if (sscanf(line.c_str(), "%lf", &last) == 1) calls += last;
    unlink(table.c_str());
    return (calls - last) / count;  // the last line is the sum
}

void cost(State &state) {
    for (auto _ : state) {
        BenchBoard board(kQuillon);
        const double before = board.cpuSeconds();
        const auto begin = Clock::now();
        sendAll(board, records);
        const double wall = std::chrono::duration<double>(Clock::now() - begin).count();
        state.counters["cpu_us"] = (board.cpuSeconds() - before) * 1e6 / records;
        state.counters["per_s"] = records / wall;
        state.counters["system_calls"] = systemCalls(board, 2000);
        state.SetIterationTime(wall / records);
    }
}

// Sends a burst of records, divided among the consoles.
void growth(State &state) {
    const auto consoles = static_cast<unsigned>(state.range(0));
    const int burst = static_cast<int>(state.range(1));
    for (auto _ : state) {
        BenchBoard board(kQuillon, false, consoles);
        std::vector<std::unique_ptr<quillon::Endpoint>> sockets;
        for (unsigned i = 0; i < consoles; ++i) sockets.push_back(board.console(i));
        const auto begin = Clock::now();
        for (int i = 0; i < burst; ++i) {
            const auto record = bench::record(Record::kKeyboard, i);
            sockets[static_cast<unsigned>(i) % consoles]->send(record.data(), record.size());
        }
        board.waitUntilQuiet(500ms);
        state.counters["lost"] = burst - static_cast<int>(board.frames());
        state.counters["last_us"] = microseconds(board.lastFrame() - begin);
        state.SetIterationTime(microseconds(board.lastFrame() - begin) / 1e6);
    }
}

void memory(State &state) {
    for (auto _ : state) {
        BenchBoard board(kQuillon);
        state.counters["KiB_at_start"] = static_cast<double>(board.residentKiB());
        const auto begin = Clock::now();
        sendAll(board, 50 * records);
        state.counters["KiB_after"] = static_cast<double>(board.residentKiB());
        state.counters["records"] = board.frames();
        const double before = board.cpuSeconds();
        std::this_thread::sleep_for(5s);
        state.counters["idle_cpu_us"] = (board.cpuSeconds() - before) * 1e6;
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
    }
}

// From the start of the process to the first answer.
void startUp(State &state) {
    for (auto _ : state) {
        sim::BoardOptions options;
        options.identifier = "";
        options.chip = sim::BoardOptions::kCh9350;
        options.daemon = kQuillon;
        options.preload = PROGRAM_DIR "/libquillon_uart.so";
        sim::Board board(options);
        const auto begin = Clock::now();
        board.start();
        for (bool answered = false; !answered;) try {
                answered = quillon::Endpoint(options.address, 41302, options.consoles[0])
                               .ask("query", 1000ms)
                               .has_value();
            } catch (const std::runtime_error &) {
                std::this_thread::sleep_for(200us);  // nobody listens yet
            }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
    }
}

template <class F>
benchmark::internal::Benchmark *add(const std::string &name, F function) {
    return benchmark::RegisterBenchmark(name.c_str(), function)
        ->UseManualTime()
        ->Iterations(1)
        ->Unit(benchmark::kMicrosecond);
}

void addAll() {
    // Records per second at 115200 bits per second: a frame of 14 or 13 bytes and an
    // acknowledgement of 7, with 10 bits for each byte.
    struct Kind {
        const char *name;
        Record record;
        double limit;
    };
    constexpr Kind kKinds[] = {{"keyboard", Record::kKeyboard, 11520.0 / 21},
                               {"position", Record::kPosition, 11520.0 / 20}};
    constexpr std::pair<const char *, const char *> kPrograms[] = {{"quillon/", kQuillon},
                                                                   {"bare_loop/", kBareLoop}};
    for (const Kind &kind : kKinds)
        for (const auto &[name, path] : kPrograms)
            add(std::string("latency/") + name + kind.name,
                [kind, program = path](State &state) { latency(state, program, kind.record); });
    for (const Kind &kind : kKinds)
        for (const auto &[name, path] : kPrograms)
            add(std::string("saturation/") + name + kind.name,
                [kind, program = path](State &state) {
                    saturation(state, program, kind.record, kind.limit);
                });
    add("cost/keyboard", cost);
    for (const int consoles : {1, 10, 100})
        for (const int burst : {1, 10, 100, 1000}) add("growth", growth)->Args({consoles, burst});
    add("start_up/ch9350", startUp)->Iterations(20);
    add("memory", memory);
}

}  // namespace

int main(int argc, char **argv) {
    quillon::holdStandardStreams();
    benchmark::Initialize(&argc, argv);
    if (argc > 1) records = atoi(argv[1]);
    if (argc > 2 || records <= 0) {
        fprintf(stderr, "usage: quillon-bench [--benchmark_...] [RECORDS]\n");
        return 2;
    }
    addAll();
    return sim::runOnPrivateHost([] {
        try {
            benchmark::RunSpecifiedBenchmarks();
        } catch (const std::exception &error) {
            fprintf(stderr, "quillon-bench: %s\n", error.what());
            return 1;
        }
        return 0;
    });
}
