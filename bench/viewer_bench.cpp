// quillon-viewer-bench: what the gateway adds to a key's way, and what viewers cost. Written for
// the page docs/performance.md.

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/bench_board.h"
#include "gateway/rfb/protocol.h"
#include "sim/host/private_host.h"
#include "sim/host/process.h"

namespace {

using bench::BenchBoard;
using bench::Clock;
using namespace std::chrono_literals;

constexpr char kGateway[] = PROGRAM_DIR "/quillon-gateway";
constexpr char kFolder[] = "/data/sockets";

double milliseconds(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

double percentile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

// A viewer as far as its bytes go: it takes updates in Tight, and asks for the next one.
class Viewer {
  public:
    explicit Viewer(const std::string &endpoint) : fd_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = kFolder + ("/" + endpoint) + ".sock";
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
            throw std::runtime_error("cannot reach " + path);
        say("RFB 003.008\n\x01\x01");
        // Pixels in Tight, keys by scan code, fences.
        say(std::string("\x02\0\0\x03\0\0\0\x07\xff\xff\xfe\xfe\xff\xff\xfe\xc8", 16));
        ask();
    }
    ~Viewer() { close(fd_); }
    Viewer(const Viewer &) = delete;
    Viewer &operator=(const Viewer &) = delete;

    void key(std::uint8_t code, bool down) const {
        say(std::string("\xff\0\0", 3) + static_cast<char>(down ? 1 : 0) + std::string(7, '\0') +
            static_cast<char>(code));
    }
    void ask() const { say(std::string("\x03\x01\0\0\0\0\x07\x80\x04\x38", 10)); }
    /// Throws away what has come; true when there was something.
    bool drain() const {
        char bytes[65536];
        bool some = false;
        while (recv(fd_, bytes, sizeof bytes, MSG_DONTWAIT) > 0) some = true;
        return some;
    }

  private:
    void say(const std::string &bytes) const {
        if (send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0)
            throw std::runtime_error("the gateway closed a connection");
    }

    const int fd_;
};

// Viewers that are read in a thread, 30 times a second.
class Audience {
  public:
    ~Audience() {
        ending_ = true;
        if (thread_.joinable()) thread_.join();
    }
    void add(const std::string &endpoint) {
        viewers_.push_back(std::make_unique<Viewer>(endpoint));
    }
    void start() {
        thread_ = std::thread([this] {
            while (!ending_) {
                for (const auto &viewer : viewers_)
                    if (viewer->drain()) viewer->ask();
                std::this_thread::sleep_for(33ms);
            }
        });
    }
    const std::vector<std::unique_ptr<Viewer>> &viewers() const { return viewers_; }

  private:
    std::vector<std::unique_ptr<Viewer>> viewers_;
    std::atomic<bool> ending_{false};
    std::thread thread_;
};

class Gateway {
  public:
    explicit Gateway(const std::vector<std::string> &endpoints) {
        std::ofstream file("/data/gateway.toml");
        file << "[gateway]\nsocket_folder = \"" << kFolder
             << "\"\n[limits]\nviewers = 1000\nunfinished = 1000\n";
        for (std::size_t i = 0; i < endpoints.size(); ++i)
            file << "[endpoint.e" << i << "]\naddress = \"" << endpoints[i] << "\"\n";
        file.close();
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        pid_ = sim::launch(
            {{kGateway, "--config", "/data/gateway.toml"}, {}, "", -1, nowhere, -1, true});
        close(nowhere);
        const std::string last = kFolder + ("/e" + std::to_string(endpoints.size() - 1)) + ".sock";
        for (int i = 0; i < 500 && access(last.c_str(), F_OK) != 0; ++i)
            std::this_thread::sleep_for(20ms);
    }
    ~Gateway() {
        kill(pid_, SIGTERM);
        sim::awaitExit(pid_);
    }
    Gateway(const Gateway &) = delete;
    Gateway &operator=(const Gateway &) = delete;

    double cpuSeconds() const {
        std::ifstream file("/proc/" + std::to_string(pid_) + "/stat");
        std::string word;
        long user = 0, system = 0;
        for (int i = 0; i < 13; ++i) file >> word;
        file >> user >> system;
        return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
    }
    long residentKiB() const {
        std::ifstream file("/proc/" + std::to_string(pid_) + "/status");
        for (std::string line; std::getline(file, line);)
            if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
        return 0;
    }

  private:
    pid_t pid_;
};

// Endpoints that answer as real ones do, and take records without a word.
class StandIns {
  public:
    explicit StandIns(unsigned count) {
        for (unsigned i = 0; i < count; ++i)
            for (const std::uint16_t port : {std::uint16_t{80}, std::uint16_t{41302}}) {
                addresses_.push_back("127.0." + std::to_string(1 + i / 200) + "." +
                                     std::to_string(1 + i % 200));
                sockaddr_in address{};
                address.sin_family = AF_INET;
                address.sin_port = htons(port);
                inet_pton(AF_INET, addresses_.back().c_str(), &address.sin_addr);
                const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
                if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
                    throw std::runtime_error("cannot be an endpoint at " + addresses_.back());
                sockets_.push_back({fd, POLLIN, 0});
            }
        thread_ = std::thread([this] { serve(); });
    }
    ~StandIns() {
        ending_ = true;
        thread_.join();
        for (const pollfd &each : sockets_) close(each.fd);
    }
    StandIns(const StandIns &) = delete;
    StandIns &operator=(const StandIns &) = delete;

    const std::string &address(unsigned i) const { return addresses_[2 * i]; }

  private:
    void serve() {
        const std::map<std::string, std::string> answers{{"link", "vi_w=1920&vi_h=1080&kvm=abs"},
                                                         {"syncled", "capslock=off&numlock=off"},
                                                         {"getKvmInfo", "per_enable=0\n"}};
        while (!ending_) {
            if (poll(sockets_.data(), sockets_.size(), 100) <= 0) continue;
            for (std::size_t i = 0; i < sockets_.size(); ++i) {
                if (sockets_[i].revents == 0) continue;
                char text[2048];
                sockaddr_in from{};
                socklen_t size = sizeof from;
                const ssize_t n = recvfrom(sockets_[i].fd, text, sizeof text, MSG_DONTWAIT,
                                           reinterpret_cast<sockaddr *>(&from), &size);
                if (n <= 0) continue;
                const std::string question(text, static_cast<std::size_t>(n));
                const auto known = answers.find(question);
                std::string answer = known == answers.end() ? "" : known->second;
                if (question == "query") answer = "query|" + addresses_[i] + "|0||0";
                if (!answer.empty())
                    sendto(sockets_[i].fd, answer.data(), answer.size(), 0,
                           reinterpret_cast<sockaddr *>(&from), size);
            }
        }
    }

    std::vector<std::string> addresses_;
    std::vector<pollfd> sockets_;
    std::atomic<bool> ending_{false};
    std::thread thread_;
};

// From a send to the last byte of the frame at the chip. Keys come when nothing is sent again.
std::vector<double> latencies(BenchBoard &board, int keys, const std::function<void(bool)> &press) {
    std::vector<double> times;
    for (int i = 0; i < keys; ++i) {
        board.waitUntilQuiet(230ms);
        const unsigned before = board.frames();
        const auto begin = Clock::now();
        press(i % 2 == 0);
        if (!board.waitForFrames(before + 1, 5s)) throw std::runtime_error("a key did not arrive");
        times.push_back(milliseconds(board.lastFrame() - begin));
    }
    return times;
}

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
void measureCost(unsigned endpoints, unsigned viewersEach, bool typing) {
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
    std::this_thread::sleep_for(8s);
    const double before = gateway.cpuSeconds();
    const auto begin = Clock::now();
    for (auto due = begin; due < begin + 10s; due += 125ms) {
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
        for (const bool typing : {false, true}) measureCost(1, 1, typing);
        for (const bool typing : {false, true}) measureCost(100, 2, typing);
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
