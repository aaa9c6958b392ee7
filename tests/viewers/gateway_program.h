// The program quillon-gateway, beside the daemon on a board.
#pragma once

#include <csignal>
#include <string>

#include "sim/host/process.h"
#include "tests/support/support.h"

namespace test {

class GatewayProgram {
  public:
    /// Starts it with these words of a shell, and waits until it serves.
    explicit GatewayProgram(const std::string &arguments,
                            const std::string &program = "quillon-gateway") {
        static int count = 0;
        log_ = "/data/gateway" + std::to_string(++count) + ".log";
        pid_ = sim::launch(
            {{"sh", "-c",
              "XDG_RUNTIME_DIR=/data exec " + program + " " + arguments + " >" + log_ + " 2>&1"},
             {},
             "",
             -1,
             -1,
             -1,
             true});
        EXPECT_TRUE(says("Ctrl-C ends")) << said();
    }
    ~GatewayProgram() {
        if (pid_ > 0) end(SIGINT);
    }
    GatewayProgram(const GatewayProgram &) = delete;
    GatewayProgram &operator=(const GatewayProgram &) = delete;

    /// Its exit status.
    int end(int signal) {
        kill(pid_, signal);
        return sim::awaitExit(std::exchange(pid_, -1));
    }
    pid_t pid() const { return pid_; }

    std::string said() const { return readFile(log_); }
    bool says(const std::string &text) {
        return comesTrue([&] { return holds(said(), text); }, std::chrono::seconds(10));
    }
    /// The rest of the last line with these words before it; empty without one.
    std::string after(const std::string &words) const {
        const std::string all = said();
        const std::size_t begin = all.rfind(words);
        if (begin == std::string::npos) return "";
        return all.substr(begin + words.size(), all.find('\n', begin) - begin - words.size());
    }
    std::string browserAddress() const { return after("once: "); }
    std::string socketPath() const { return after("on this machine: "); }

  private:
    std::string log_;
    pid_t pid_ = -1;
};

}  // namespace test
