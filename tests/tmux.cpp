#include "tmux.h"

#include <cstdio>
#include <stdexcept>

#include "support.h"

namespace test {
namespace {

std::string quoted(const std::string &text) {
    std::string all = "'";
    for (const char c : text) all += c == '\'' ? "'\\''" : std::string(1, c);
    return all + "'";
}

}  // namespace

// A server for each, for one that ends is no place to start in.
Tmux::Tmux(const std::string &command, int columns, int rows) {
    static int count = 0;
    tmux_ = "LC_ALL=C.UTF-8 TERM=xterm tmux -u -f /dev/null -S /data/tmux" +
            std::to_string(++count) + " ";
    const Outcome outcome = run(tmux_ + "new-session -d -x " + std::to_string(columns) + " -y " +
                                std::to_string(rows) + " " + quoted(command));
    if (outcome.status != 0) throw std::runtime_error(outcome.said);
}

Tmux::~Tmux() {
    run(tmux_ + "kill-server");
}

void Tmux::press(const std::string &keys) {
    run(tmux_ + "send-keys " + keys);
}

void Tmux::send(const std::string &bytes) {
    std::string codes;
    for (const char c : bytes) {
        char code[8];
        snprintf(code, sizeof code, " %02x", static_cast<unsigned char>(c));
        codes += code;
    }
    run(tmux_ + "send-keys -H" + codes);
}

void Tmux::paste(const std::string &text) {
    run(tmux_ + "set-buffer " + quoted(text) + " \\; paste-buffer -p");
}

void Tmux::resize(int columns, int rows) {
    run(tmux_ + "resize-window -x " + std::to_string(columns) + " -y " + std::to_string(rows));
}

std::string Tmux::screen() {
    return run(tmux_ + "capture-pane -p").said;
}

bool Tmux::shows(const std::string &text, std::chrono::milliseconds timeout) {
    return comesTrue([&] { return holds(screen(), text); }, timeout);
}

std::string Tmux::modes() {
    const std::string said =
        run(tmux_ + "display -p '#{mouse_all_flag} #{mouse_sgr_flag} #{alternate_on}'").said;
    return said.substr(0, said.find('\n'));
}

}  // namespace test
