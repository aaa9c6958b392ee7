// A gateway with viewers and endpoints that are not there, for measurements.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/bench_board.h"
#include "gateway/rfb/protocol.h"
#include "sim/host/process.h"

namespace bench {

using namespace std::chrono_literals;

constexpr char kGateway[] = PROGRAM_DIR "/quillon-gateway";
constexpr char kFolder[] = "/data/sockets";
/// With fewer keys than these it is only to be seen that the measurements work.
constexpr int kFew = 20;

inline double milliseconds(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

inline double percentile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

// A viewer as far as its bytes go: it takes updates in Tight, and asks for the next one.
class Viewer {
  public:
    explicit Viewer(const std::string &endpoint) : Viewer(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = kFolder + ("/" + endpoint) + ".sock";
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
            throw std::runtime_error("cannot reach " + path);
        say("RFB 003.008\n\x01\x01");
        want();
    }
    virtual ~Viewer() { close(fd_); }
    Viewer(const Viewer &) = delete;
    Viewer &operator=(const Viewer &) = delete;

    void key(std::uint8_t code, bool down) const {
        say(std::string("\xff\0\0", 3) + static_cast<char>(down ? 1 : 0) + std::string(7, '\0') +
            static_cast<char>(code));
    }
    void ask() const { say(std::string("\x03\x01\0\0\0\0\x07\x80\x04\x38", 10)); }
    /// Throws away what has come; returns how many bytes.
    std::size_t drain() const {
        char bytes[65536];
        std::size_t all = 0;
        for (ssize_t n = 0; (n = take(bytes, sizeof bytes)) > 0;)
            all += static_cast<std::size_t>(n);
        return all;
    }
    /// Waits until something comes; when that was.
    Clock::time_point await() const {
        pollfd readable{fd_, POLLIN, 0};
        if (poll(&readable, 1, 10000) != 1) throw std::runtime_error("nothing comes");
        return Clock::now();
    }

  protected:
    /// fd: a socket, which is connected afterwards; the caller says the rest of the handshake.
    explicit Viewer(int fd) : fd_(fd) {}
    int fd() const { return fd_; }
    // Pixels in Tight with JPEGs, keys by scan code, fences, other sizes.
    void want() const {
        const std::int32_t encodings[] = {7, -26, -258, -312, -308};
        gateway::rfb::Bytes message{2, 0, 0, 5};
        for (const std::int32_t one : encodings)
            gateway::rfb::append32(message, static_cast<std::uint32_t>(one));
        say({message.begin(), message.end()});
        ask();
    }
    virtual void say(const std::string &bytes) const {
        if (send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0)
            throw std::runtime_error("the gateway closed a connection");
    }
    virtual ssize_t take(char *bytes, std::size_t most) const {
        return recv(fd_, bytes, most, MSG_DONTWAIT);
    }

  private:
    const int fd_;
};

// Viewers that are read in a thread, up to 100 times a second.
class Audience {
  public:
    ~Audience() {
        ending_ = true;
        if (thread_.joinable()) thread_.join();
    }
    void add(const std::string &endpoint) { add(std::make_unique<Viewer>(endpoint)); }
    void add(std::unique_ptr<Viewer> viewer) { viewers_.push_back(std::move(viewer)); }
    void start() {
        thread_ = std::thread([this] {
            while (!ending_) {
                for (const auto &viewer : viewers_)
                    if (const std::size_t count = viewer->drain(); count > 0) {
                        bytes_ += count;
                        viewer->ask();
                    }
                std::this_thread::sleep_for(10ms);
            }
        });
    }
    const std::vector<std::unique_ptr<Viewer>> &viewers() const { return viewers_; }
    /// That all of them have got.
    std::size_t bytes() const { return bytes_; }

  private:
    std::vector<std::unique_ptr<Viewer>> viewers_;
    std::atomic<bool> ending_{false};
    std::atomic<std::size_t> bytes_{0};
    std::thread thread_;
};

class Gateway {
  public:
    /// general: lines of the table gateway; keys: those of an endpoint beside its address.
    explicit Gateway(const std::vector<std::string> &endpoints, const std::string &general = "",
                     const std::function<std::string(std::size_t)> &keys = {}) {
        std::ofstream file("/data/gateway.toml");
        file << "[gateway]\nsocket_folder = \"" << kFolder << "\"\n"
             << general << "[limits]\nviewers = 1000\nunfinished = 1000\n";
        for (std::size_t i = 0; i < endpoints.size(); ++i)
            file << "[endpoint.e" << i << "]\naddress = \"" << endpoints[i] << "\"\n"
                 << (keys ? keys(i) : "");
        file.close();
        const int said = open("/data/said", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        pid_ =
            sim::launch({{kGateway, "--config", "/data/gateway.toml"}, {}, "", -1, said, -1, true});
        close(said);
        // Its last line, when it listens everywhere.
        for (const auto end = Clock::now() + 60s; !saidThat("Ctrl-C ends the gateway.");) {
            const bool ended = waitpid(pid_, nullptr, WNOHANG) != 0;
            if (ended || Clock::now() > end) {
                if (!ended) kill(pid_, SIGKILL);
                throw std::runtime_error("the gateway did not start");
            }
            std::this_thread::sleep_for(10ms);
        }
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
    static bool saidThat(const std::string &wanted) {
        std::ifstream file("/data/said");
        for (std::string line; std::getline(file, line);)
            if (line == wanted) return true;
        return false;
    }

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
    /// Records that the last one of them has got, and when the newest came.
    unsigned records() const { return records_; }
    Clock::time_point newestRecord() const { return Clock::time_point(newest_.load()); }

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
                // Records begin with bytes that are no letters.
                if (i + 2 == sockets_.size() && (text[0] < 'a' || text[0] > 'z')) {
                    newest_ = Clock::now().time_since_epoch();
                    ++records_;
                }
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
    std::atomic<unsigned> records_{0};
    std::atomic<Clock::duration> newest_{Clock::duration{}};
    std::thread thread_;
};

// From a send to the last byte of the frame at the chip. Keys come when nothing is sent again.
inline std::vector<double> latencies(BenchBoard &board, int keys,
                                     const std::function<void(bool)> &press) {
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

}  // namespace bench
