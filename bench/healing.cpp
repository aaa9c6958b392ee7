// quillon-healing: how many changes of a console's keyboard reach the computer, when network and
// chip lose one in a hundred records, frames, answers and checksums; with and without resending.

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/board.h"
#include "sim/host/private_host.h"
#include "terminal/standard_streams.h"
#include <quillon/controlled_endpoint.h>

namespace {

using quillon::Stroke;
using sim::Clock;
using namespace std::chrono_literals;

constexpr double kLoss = 0.01;
constexpr int kBoards = 8;  // at the same time, because keys come at a person's pace

struct State {
    Clock::time_point at;
    Stroke down;
};

struct Result {
    int changes = 0, within300 = 0, within2000 = 0, never = 0, stuck = 0;
    double worst = 0;  // ms, of the changes that arrived

    void add(const Result &other) {
        changes += other.changes;
        within300 += other.within300;
        within2000 += other.within2000;
        never += other.never;
        stuck += other.stuck;
        worst = std::max(worst, other.worst);
    }
};

// Types as a person does, with the code of "quillon-console control": keys for 40 to 180 ms,
// pauses, and now and then a key that is held.
class Typist {
  public:
    Typist(const quillon::ControlledEndpoint::Setup &setup, unsigned seed)
        : endpoint_(setup), random_(seed) {}

    std::vector<State> type(int changes) {
        serveFor(1s);
        std::vector<State> said;
        while (static_cast<int>(said.size()) < changes) {
            const bool slow = pick(0, 19) == 0;
            say(said, {0, static_cast<std::uint8_t>(pick(0x04, 0x1D))});
            serveFor(slow && pick(0, 1) == 0 ? between(1000, 2000) : between(40, 180));
            say(said, {});
            serveFor(slow ? between(1500, 3000) : between(30, 200));
        }
        serveFor(3s);
        return said;
    }

  private:
    int pick(int least, int most) { return std::uniform_int_distribution<>(least, most)(random_); }
    std::chrono::milliseconds between(int least, int most) {
        return std::chrono::milliseconds(pick(least, most));
    }

    void say(std::vector<State> &said, const Stroke &down) {
        said.push_back({Clock::now(), down});
        endpoint_.input().setKeyboard(down);
    }

    void serveFor(std::chrono::milliseconds time) {
        const auto end = Clock::now() + time;
        for (auto now = Clock::now(); now < end; now = Clock::now()) {
            endpoint_.serve(now);
            std::vector<pollfd> fds;
            endpoint_.addTo(fds);
            const auto left = std::max(std::min(endpoint_.due(), end) - now, Clock::duration(0));
            const timespec wait{std::chrono::duration_cast<std::chrono::seconds>(left).count(),
                                static_cast<long>((left % 1s).count())};
            ppoll(fds.data(), fds.size(), &wait, nullptr);
        }
    }

    quillon::ControlledEndpoint endpoint_;
    std::mt19937 random_;
};

// Returns when the chip saw each change; none for a change that was lost. Records keep their order,
// so a state that is seen is the last one again, or else the first later one that is equal.
std::vector<std::optional<Clock::time_point>> align(const std::vector<State> &said,
                                                    const std::vector<State> &seen) {
    std::vector<std::optional<Clock::time_point>> when(said.size());
    std::size_t next = 0;  // after the change that was seen last
    for (const State &state : seen) {
        if (state.down == (next == 0 ? Stroke{} : said[next - 1].down)) continue;
        std::size_t at = next;
        while (at < said.size() && said[at].at <= state.at && !(said[at].down == state.down)) ++at;
        if (at == said.size() || said[at].at > state.at) continue;
        when[at] = state.at;
        next = at + 1;
    }
    return when;
}

Result judge(const std::vector<State> &said, const std::vector<State> &seen) {
    const auto when = align(said, seen);
    Result result;
    std::size_t next = 0;  // index into seen
    Stroke computer;
    for (std::size_t i = 0; i < said.size(); ++i, ++result.changes) {
        for (; next < seen.size() && seen[next].at < said[i].at; ++next) computer = seen[next].down;
        // The release of a key that was never seen down is right without a record.
        if (!when[i] && !(computer == said[i].down)) {
            ++result.never;
            continue;
        }
        const auto seenAt = when[i].value_or(said[i].at);
        const double late = std::chrono::duration<double, std::milli>(seenAt - said[i].at).count();
        result.within300 += late <= 300;
        result.within2000 += late <= 2000;
        result.worst = std::max(result.worst, late);
    }
    return result;
}

Result measure(int changes, unsigned seed, bool healing) {
    sim::BoardOptions options;
    options.daemon = PROGRAM_DIR "/quillon";
    options.preload = PROGRAM_DIR "/libquillon_uart.so";
    options.settings = "buad_rate=115200\n";
    options.seed = seed;
    options.loss = kLoss;
    std::mutex mutex;
    std::vector<State> seen;
    sim::Board board(options);
    board.chip().onFrame([&](const sim::Bytes &frame, Clock::time_point) {
        constexpr std::size_t kCommandAt = 3, kModifiersAt = 5, kUsageAt = 7;
        const std::lock_guard<std::mutex> lock(mutex);
        if (frame[kCommandAt] == 0x02)
            seen.push_back({Clock::now(), {frame[kModifiersAt], frame[kUsageAt]}});
    });
    board.start();
    if (!board.waitUntilListening(20s)) throw std::runtime_error("the daemon does not listen");
    quillon::ControlledEndpoint::Setup setup;
    setup.to = options.address;
    setup.from = options.consoles[0];
    setup.healing = healing;
    const auto said = Typist(setup, seed).type(changes);
    const std::lock_guard<std::mutex> lock(mutex);
    Result result = judge(said, seen);
    const auto state = board.computer().state();
    result.stuck = state.keys[0] != 0 || state.modifiers != 0 ? 1 : 0;
    return result;
}

// Starts a board in a process of its own, which writes its result to the descriptor.
pid_t start(int changes, unsigned seed, bool healing, int output) {
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid != 0) return pid;
    _exit(sim::runOnPrivateHost([&] {
        try {
            const Result result = measure(changes, seed, healing);
            return write(output, &result, sizeof result) == sizeof result ? 0 : 1;
        } catch (const std::exception &error) {
            fprintf(stderr, "quillon-healing: %s\n", error.what());
            return 1;
        }
    }));
}

void print(const char *label, const Result &result) {
    const auto percent = [&](int part) { return 100.0 * part / std::max(1, result.changes); };
    printf("%-18s %7d %10.3f %% %10.3f %% %6d %9.0f ms %6d of %d\n", label, result.changes,
           percent(result.within300), percent(result.within2000), result.never, result.worst,
           result.stuck, kBoards);
}

}  // namespace

int main(int argc, char **argv) {
    quillon::holdStandardStreams();
    const int events = argc > 1 ? atoi(argv[1]) : 10000;
    const int seed = argc > 2 ? atoi(argv[2]) : 1;
    if (events < kBoards || argc > 3) {
        fprintf(stderr, "usage: quillon-healing [KEY-EVENTS] [SEED]\n");
        return 2;
    }
    int results[2][2];
    for (const bool healing : {false, true}) {
        if (pipe(results[healing]) != 0) return 1;
        for (int i = 0; i < kBoards; ++i)
            start(events / kBoards, static_cast<unsigned>(seed + i), healing, results[healing][1]);
        close(results[healing][1]);
    }
    bool failed = false;
    for (int status = 0; wait(&status) > 0;) failed = failed || status != 0;
    printf("%-18s %7s %12s %12s %6s %12s %s\n", "", "changes", "in 300 ms", "in 2 s", "never",
           "worst", "boards with a key down at the end");
    bool kept = false;  // what docs/control.md promises
    for (const bool healing : {false, true}) {
        Result sum, one;
        while (read(results[healing][0], &one, sizeof one) == sizeof one) sum.add(one);
        print(healing ? "sent again" : "sent once", sum);
        if (healing)
            kept = sum.within300 >= 0.999 * sum.changes && sum.within2000 == sum.changes &&
                   sum.stuck == 0;
    }
    return failed || !kept ? 1 : 0;
}
