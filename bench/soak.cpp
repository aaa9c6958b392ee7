// quillon-soak: an endpoint in heavy use for minutes. Consoles type, operators take control from
// each other, outputs and the chip fall silent, garbage arrives, and the power fails. All the while
// the keys that the endpoint accepts have to reach the computer.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>

#include "protocol/input.h"
#include "protocol/us_layout.h"
#include "sim/board.h"
#include "sim/host/private_host.h"
#include "terminal/standard_streams.h"
#include <quillon/session.h>

namespace {

using sim::Clock;
using namespace std::chrono_literals;

constexpr char kBoard[] = "192.168.1.10";

void require(bool ok, const std::string &what) {
    if (!ok) throw std::runtime_error(what);
}

class Soak {
  public:
    explicit Soak(unsigned seed) : random_(seed) {
        sim::BoardOptions options;
        options.consoles.clear();
        for (int i = 0; i < 5; ++i) options.consoles.push_back("192.168.1.2" + std::to_string(i));
        options.daemon = PROGRAM_DIR "/quillon";
        options.preload = PROGRAM_DIR "/libquillon_uart.so";
        options.settings = "buad_rate=115200\nper_enable=1\nconnect_name=0\n";
        board_ = std::make_unique<sim::Board>(options);
        board_->start();
        awaitStart();
    }

    /// Prints what helps to find the fault: start and end of the daemon's log, the chip's state.
    void explain() const {
        const auto log = board_->daemon()->log();
        constexpr std::size_t kFirst = 40, kLast = 60;
        for (std::size_t i = 0; i < log.size(); ++i)
            if (i < kFirst || i + kLast >= log.size())
                fprintf(stderr, "log       %s\n", log[i].c_str());
        const auto counters = board_->chip().counters();
        fprintf(stderr,
                "chip      %d baud, line %d, %u frames, %u wrong sums, %u refused, %u skipped\n",
                board_->chip().baud(), board_->lineBaud(), counters.frames, counters.wrongSums,
                counters.refused, counters.skipped);
        fprintf(stderr, "console   %s, linked %d\n", output_.c_str(), linked_);
    }

    void run(std::chrono::minutes time) {
        const auto end = Clock::now() + time;
        auto told = Clock::now();
        while (Clock::now() < end) {
            step();
            check();
            if (Clock::now() - told < 1min) continue;
            told = Clock::now();
            tell();
        }
        tell();
    }

  private:
    void step() {
        const unsigned what = pick(100);
        if (what < 40)
            type(false);
        else if (what < 55)
            point();
        else if (what < 75)
            quarrel();
        else if (what < 85)
            sendGarbage();
        else if (what < 90)
            board_->consoles().setAnswering(anyConsole(), pick(2) == 0);
        else if (what < 95)
            board_->chip().silence(pick(3) == 0);
        else if (what < 98)
            restart();
        else
            type(true);
    }

    unsigned pick(unsigned below) { return static_cast<unsigned>(random_() % below); }
    std::string anyConsole() { return board_->options().consoles[pick(5)]; }

    void awaitStart() {
        require(board_->waitUntilListening(20s), "the daemon does not listen");
        baseFiles_ = files();
        baseMemory_ = 0;  // set by the next check()
    }

    quillon::Session session() const { return {kBoard, 80, anyLinked(), 15s}; }
    std::string anyLinked() const {
        return output_.empty() ? board_->options().consoles[0] : output_;
    }

    // Types a word from a linked console, key by key, while a stranger sends a key too. With cut,
    // the power fails in the middle.
    void type(bool cut) {
        if (output_.empty()) return;
        std::string word;
        for (unsigned i = pick(20) + 1; i > 0; --i)
            word += static_cast<char>('a' + static_cast<int>(pick(26)));
        std::vector<quillon::Stroke> states;
        std::string error;
        quillon::typeStrokes(word, states, error);
        const auto records = quillon::recordsOf(states);
        quillon::Endpoint endpoint(kBoard, 80, output_), stranger(kBoard, 80, "192.168.1.10");
        const auto typed = board_->computer().state().text;
        for (std::size_t i = 0; i < records.size(); ++i) {
            if (cut && i == records.size() / 2) return restart();
            endpoint.send(records[i].data(), records[i].size());
            stranger.send(records[0].data(), records[0].size());
            std::this_thread::sleep_for(1ms);
        }
        // Waits for the last release too: after a take-over it would be dropped.
        require(
            board_->computer().waitFor(
                [&](const auto &state) { return state.text == typed + word && state.keys[0] == 0; },
                15s),
            "typed \"" + word + "\", the computer has \"" +
                board_->computer().state().text.substr(typed.size()) + "\"");
        keys_ += word.size();
    }

    void point() {
        if (output_.empty()) return;
        quillon::Endpoint endpoint(kBoard, 80, output_);
        const int before = board_->computer().state().absoluteX;
        const auto x = static_cast<std::uint16_t>(pick(1920));
        const auto record = quillon::absoluteRecord(x, 5, quillon::kNoButton, 0);
        endpoint.send(record.data(), record.size());
        const int expected = x * 4095 / 1920;
        require(
            board_->computer().waitFor(
                [&](const auto &s) { return s.absoluteX != before || expected == before; }, 15s) ||
                std::abs(expected - before) <= 2,
            "the pointer did not move");
        ++moves_;
    }

    void quarrel() {
        const std::string output = anyConsole();
        const std::string name =
            output + "-" + std::string(1, static_cast<char>('a' + static_cast<int>(pick(3))));
        const std::string level = std::to_string(pick(5));
        const unsigned kind = pick(40);
        ++commands_;
        if (kind < 4) {
            session().holderAfter("disconnect|" + name + "|0", 15s);
        } else {
            // Mostly "connect": nobody answers questions for consent here, which costs 10 s.
            const std::string word = kind == 4 ? "apply|" : "connect|";
            session().holderAfter(word + name + "|" + output + "|" + level, 15s);
        }
        learnOutput();
    }

    // Takes one linked address from the settings.
    void learnOutput() {
        const auto settings = session().settings();
        const quillon::Holder holder = session().holder();
        const auto stored = settings.find("connect_name");
        require(stored != settings.end(), "settings without connect_name");
        require(!holder.linked || stored->second == holder.user, "the settings name another user");
        // While somebody holds control, the first slot is in use. Only our own consoles count.
        const auto &ours = board_->options().consoles;
        const std::string first = holder.linked ? settings.at("connect_ip0") : "";
        output_ = std::find(ours.begin(), ours.end(), first) == ours.end() ? "" : first;
        linked_ = holder.linked;
    }

    void sendGarbage() {
        const std::set<std::size_t> records{7, 10, 11};
        for (const unsigned port : {80U, 41302U, 41303U, 41304U, 41301U}) {
            std::string bytes(pick(300), '\0');
            if (records.count(bytes.size()) != 0) continue;
            for (char &byte : bytes) byte = static_cast<char>(random_());
            // Not an operator command: "connect|" alone would link an empty address, and then
            // everybody may send.
            if (port == 41302) bytes.insert(0, "#");
            try {
                quillon::Endpoint endpoint(kBoard, static_cast<std::uint16_t>(port), anyConsole());
                endpoint.send(bytes.data(), bytes.size());
            } catch (const std::runtime_error &) {
                // Nobody listens at that port, which is no fault.
            }
            ++garbage_;
        }
        session().holder();
        learnOutput();
    }

    void restart() {
        const auto before = session().settings();
        board_->chip().silence(false);  // else the daemon waits for the chip and does not start
        board_->powerCycle();
        ++restarts_;
        awaitStart();
        const auto after = session().settings();
        for (const char *key : {"connect_name", "connect_per", "connect_ip0", "per_enable"})
            require(before.at(key) == after.at(key), std::string(key) + " changed in a restart");
        learnOutput();
        require((after.at("connect_name") != "0") == linked_, "the link was lost");
    }

    void check() {
        require(!board_->daemonStatus(), "the daemon ended");
        // Two more may be open: the settings, and the socket of a thread that started late.
        mostFiles_ = std::max(mostFiles_, files());
        require(files() <= baseFiles_ + 2, "it holds " + std::to_string(files()) + " files");
        const long now = memory();
        if (baseMemory_ == 0) baseMemory_ = now;
        mostMemory_ = std::max(mostMemory_, now);
        require(now <= baseMemory_ + 512, "it grew to " + std::to_string(now) + " KiB");
    }

    std::string process() const { return "/proc/" + std::to_string(board_->daemon()->pid()); }
    long files() const {
        return std::distance(std::filesystem::directory_iterator(process() + "/fd"), {});
    }
    long memory() const {
        long pages = 0, resident = 0;
        FILE *file = fopen((process() + "/statm").c_str(), "r");
        require(file != nullptr && fscanf(file, "%ld %ld", &pages, &resident) == 2, "statm");
        fclose(file);
        return resident * sysconf(_SC_PAGESIZE) / 1024;
    }

    void tell() const {
        printf(
            "%zu keys, %u movements, %u commands, %u garbage datagrams, %u restarts; at most %ld "
            "KiB, %ld files\n",
            keys_, moves_, commands_, garbage_, restarts_, mostMemory_, mostFiles_);
        fflush(stdout);
    }

    std::mt19937 random_;
    std::unique_ptr<sim::Board> board_;
    std::string output_;  ///< a linked console; empty while there is none
    bool linked_ = false;
    long baseFiles_ = 0, mostFiles_ = 0, baseMemory_ = 0, mostMemory_ = 0;
    std::size_t keys_ = 0;
    unsigned moves_ = 0, commands_ = 0, garbage_ = 0, restarts_ = 0;
};

}  // namespace

int main(int argc, char **argv) {
    quillon::holdStandardStreams();
    const int minutes = argc > 1 ? atoi(argv[1]) : 0;
    const unsigned seed = argc > 2 ? static_cast<unsigned>(atoi(argv[2])) : 1;
    if (minutes <= 0 || argc > 3) {
        fprintf(stderr, "usage: quillon-soak MINUTES [SEED]\n");
        return 2;
    }
    return sim::runOnPrivateHost([&] {
        std::optional<Soak> soak;
        try {
            soak.emplace(seed);
            soak->run(std::chrono::minutes(minutes));
        } catch (const std::exception &error) {
            if (soak) soak->explain();
            fprintf(stderr, "quillon-soak: seed %u: %s\n", seed, error.what());
            return 1;
        }
        return 0;
    });
}
