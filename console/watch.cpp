#include "watch.h"

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>

#include "console_ports.h"
#include "link_messages.h"
#include "questions.h"
#include "report.h"

namespace console {
namespace {

using Clock = std::chrono::steady_clock;

std::string now(const char *format) {
    const std::time_t seconds = std::time(nullptr);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    strftime(text, sizeof text, format, &local);
    return text;
}

class Watch {
  public:
    explicit Watch(const WatchOptions &options)
        : options_(options), ports_(options.address, ConsolePorts::kSelf) {}

    void run(const volatile std::sig_atomic_t &stop) {
        fprintf(stderr, "quillon-console: watching at %s; Ctrl-C ends it\n",
                options_.address.c_str());
        bool inputOpen = options_.consent == WatchOptions::kAsk;
        while (stop == 0) {
            std::vector<pollfd> fds{{inputOpen ? STDIN_FILENO : -1, POLLIN, 0}};
            ports_.addTo(fds);
            const int ready = poll(fds.data(), fds.size(), questions_.empty() ? -1 : 200);
            forgetOldQuestions();
            if (ready <= 0) continue;
            ports_.serve([this](const DatagramSocket::Received &datagram) { take(datagram); });
            if (fds[0].revents != 0) inputOpen = readAnswer();
        }
    }

  private:
    void print(const DatagramSocket::Received &datagram, const std::string &words,
               const Report &report) const {
        if (options_.json) {
            Report line{{"time", now("%FT%T%z")}, {"sender", datagram.sender}};
            line.update(report);
            console::print(line, true);
        } else {
            printf("%s  %-15s  %s\n", now("%T").c_str(), datagram.sender.c_str(),
                   printable(words).c_str());
        }
        fflush(stdout);
    }

    void take(const DatagramSocket::Received &datagram) {
        const auto message = parseLinkMessage(datagram.text);
        if (!message) {
            print(datagram, "not understood: " + datagram.text, {{"text", datagram.text}});
            return;
        }
        print(datagram, inWords(*message), reportOf(*message));
        if (message->kind != LinkMessage::kAsked) return;
        switch (options_.consent) {
            case WatchOptions::kSilent:
                return;
            case WatchOptions::kGrant:
            case WatchOptions::kRefuse:
                answer(*message, datagram, options_.consent == WatchOptions::kGrant);
                return;
            case WatchOptions::kAsk: {
                const bool first = questions_.empty();
                questions_.add(*message, datagram, Clock::now());
                if (first) ask();
            }
        }
    }

    void answer(const LinkMessage &question, const DatagramSocket::Received &from, bool granted) {
        std::string why;
        if (ports_.answer(from, consentAnswer(options_.address, question, granted), why))
            print(from, granted ? "granted" : "refused", {{"granted", granted}});
        else
            fprintf(stderr, "quillon-console: %s\n", why.c_str());
    }

    void ask() const {
        fprintf(stderr, "Give %s to %s? [y/n] ", printable(questions_.front().from.sender).c_str(),
                printable(questions_.front().message.user).c_str());
    }

    // False at the end of the input.
    bool readAnswer() {
        char line[64];
        const ssize_t n = read(STDIN_FILENO, line, sizeof line);
        if (n <= 0) return false;
        if (questions_.empty()) return true;
        if (line[0] == 'y' || line[0] == 'n') {
            const Question question = questions_.front();
            questions_.remove(question);
            answer(question.message, question.from, line[0] == 'y');
        }
        if (!questions_.empty()) ask();
        return true;
    }

    void forgetOldQuestions() {
        while (questions_.takeLate(Clock::now())) {
            fprintf(stderr, "\ntoo late\n");
            if (!questions_.empty()) ask();
        }
    }

    const WatchOptions &options_;
    ConsolePorts ports_;
    Questions questions_;  ///< the first one is on the terminal
};

}  // namespace

void watch(const WatchOptions &options, const volatile std::sig_atomic_t &stop) {
    Watch(options).run(stop);
}

}  // namespace console
