// The program quillon-gateway, beside the daemon on a board.
#pragma once

#include <csignal>
#include <optional>
#include <string>

#include "tests/support/support.h"

namespace test {

class GatewayProgram {
  public:
    /// Starts it with these words of a shell, and waits until it serves. program: the gateway, or a
    /// program that starts it; NAME=VALUE may stand before it.
    explicit GatewayProgram(const std::string &arguments,
                            const std::string &program = "quillon-gateway") {
        static int count = 0;
        log_ = "/data/gateway" + std::to_string(++count) + ".log";
        program_.emplace("env XDG_RUNTIME_DIR=/data " + program + " " + arguments + " >" + log_ +
                         " 2>&1");
        EXPECT_TRUE(says("Ctrl-C ends")) << said();
    }
    ~GatewayProgram() {
        if (program_->pid() > 0) end(SIGINT);
    }
    GatewayProgram(const GatewayProgram &) = delete;
    GatewayProgram &operator=(const GatewayProgram &) = delete;

    int end(int signal) { return program_->end(signal); }
    pid_t pid() const { return program_->pid(); }

    std::string said() const { return readFile(log_); }
    bool says(const std::string &text) {
        return comesTrue([&] { return holds(said(), text); }, std::chrono::seconds(30));
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
    std::optional<Background> program_;
};

}  // namespace test
