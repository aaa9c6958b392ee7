#include "console/watch/watch.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <utility>

#include "console/report.h"
#include "console/watch/throttle.h"
#include "protocol/link_messages.h"
#include "terminal/printable.h"
#include <quillon/console_ports.h>
#include <quillon/questions.h>

namespace quillon {
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

// Where a terminal breaks a long line, foreign text must not look like a line of its own. So text
// that is longer than any message is cut, and rows of blanks become one.
std::string onOneLine(const std::string &words) {
    constexpr std::size_t kLongest = 200;
    std::string line;
    for (const char c : printable(words.substr(0, kLongest)))
        if (c != ' ' || line.empty() || line.back() != ' ') line += c;
    return line + (words.size() > kLongest ? "..." : "");
}

class Watch {
  public:
    explicit Watch(const WatchOptions &options)
        : options_(options),
          ports_(options.address, ConsolePorts::kSelf),
          questions_(options.endpoint),
          lines_(options.endpoint) {}

    void run(const volatile std::sig_atomic_t &stop) {
        fprintf(stderr, "quillon-console: watching at %s; Ctrl-C ends it\n",
                options_.address.c_str());
        if (const std::string trouble = ports_.trouble(); !trouble.empty())
            fprintf(stderr, "quillon-console: %s\n", trouble.c_str());
        bool inputOpen = options_.consent == WatchOptions::kAsk;
        while (stop == 0 && ferror(stdout) == 0) {
            std::vector<pollfd> fds{{inputOpen ? STDIN_FILENO : -1, POLLIN, 0}};
            ports_.addTo(fds);
            const bool restless = !questions_.empty() || flooded_;
            const int ready = poll(fds.data(), fds.size(), restless ? 200 : 1000);
            forgetOldQuestions();
            tellSurplus();
            if (ready <= 0) continue;
            ports_.serve([this](const DatagramSocket::Received &datagram) { take(datagram); });
            if (fds[0].revents != 0) inputOpen = readAnswers();
        }
    }

  private:
    void print(const DatagramSocket::Received &datagram, const std::string &words,
               const Report &report) {
        if (!lines_.admits(datagram.sender, Clock::now())) {
            flooded_ = true;
            return;
        }
        if (options_.json) {
            Report line{{"time", now("%FT%T%z")}, {"sender", datagram.sender}};
            line.update(report);
            quillon::print(line, true);
        } else {
            printf("%s  %-15s  %s\n", now("%T").c_str(), datagram.sender.c_str(),
                   onOneLine(words).c_str());
        }
        fflush(stdout);
    }

    // Once a second in a flood. The open questions are shown again, because they may have scrolled
    // out of sight.
    void tellSurplus() {
        constexpr std::chrono::seconds kPeriod(1);
        if (!flooded_ || Clock::now() - told_ < kPeriod) return;
        told_ = Clock::now();
        flooded_ = false;
        if (const unsigned surplus = lines_.takeSurplus(); surplus != 0) {
            flooded_ = true;
            if (options_.json)
                quillon::print({{"time", now("%FT%T%z")}, {"not_shown", surplus}}, true);
            else
                printf("%s  %u further messages are not shown\n", now("%T").c_str(), surplus);
            fflush(stdout);
        }
        if (questions_.empty()) return;
        if (questions_.surplus() != 0)
            fprintf(stderr, "%u further questions are not asked.\n", questions_.surplus());
        for (const Question &question : questions_.all())
            fprintf(stderr, "Question %u is open: %s\n", question.number,
                    printable(question.message.user).c_str());
    }

    void take(const DatagramSocket::Received &datagram) {
        const auto message = parseLinkMessage(datagram.text);
        if (!message) {
            print(datagram, "not understood: " + datagram.text, {{"text", datagram.text}});
            return;
        }
        const bool named = message->endpoint == datagram.sender;
        print(datagram,
              inWords(*message) + (named ? "" : " (it calls itself " + message->endpoint + ")"),
              reportOf(*message));
        if (message->kind != LinkMessage::kAsked) return;
        switch (options_.consent) {
            case WatchOptions::kSilent:
                return;
            case WatchOptions::kGrant:
            case WatchOptions::kRefuse:
                answer(*message, datagram, options_.consent == WatchOptions::kGrant);
                return;
            case WatchOptions::kAsk:
                if (const Question *question = questions_.add(*message, datagram, Clock::now()))
                    ask(*question);
                else
                    flooded_ = true;
        }
    }

    void answer(const LinkMessage &question, const DatagramSocket::Received &from, bool granted) {
        std::string why;
        if (ports_.answer(from, consentAnswer(options_.address, question, granted), why))
            print(from, granted ? "granted" : "refused", {{"granted", granted}});
        else
            fprintf(stderr, "quillon-console: %s\n", printable(why).c_str());
    }

    // An answer without a number counts only for a question that came alone, after some quiet; what
    // was typed before it may have been meant for another question. A number makes it clear.
    void ask(const Question &question) {
        if (questions_.size() == 1 && Clock::now() - changed_ >= kQuiet) {
            certain_ = question.number;
            tcflush(STDIN_FILENO, TCIFLUSH);
            typed_.clear();
        }
        changed_ = Clock::now();
        fprintf(stderr, "Question %u: give control of %s to %s? Type y or n and the number.%s\n",
                question.number,
                printable(endpointWords(question.from.sender, question.message)).c_str(),
                printable(question.message.user).c_str(),
                certain_ == question.number ? " The number may be left out." : "");
    }

    // False at the end of the input.
    bool readAnswers() {
        constexpr std::size_t kLongest = 64;
        char bytes[256];
        pollfd typed{STDIN_FILENO, POLLIN, 0};
        if (poll(&typed, 1, 0) == 0) return true;  // what was there has been thrown away
        const ssize_t n = read(STDIN_FILENO, bytes, sizeof bytes);
        if (n <= 0) return n < 0 && errno == EINTR;
        for (ssize_t i = 0; i < n; ++i) {
            if (bytes[i] != '\n') {
                if (typed_.size() < kLongest) typed_ += bytes[i];
                continue;
            }
            takeAnswer(std::exchange(typed_, ""));
        }
        return true;
    }

    // "y 3" or "y3"; "y" alone only while it is certain which question is meant.
    void takeAnswer(const std::string &line) {
        char letter = '\0', rest = '\0';
        unsigned number = 0;
        const int fields = sscanf(line.c_str(), " %c %u %c", &letter, &number, &rest);
        if (fields <= 0 || questions_.empty()) return;
        const bool bare = fields == 1 && line.find_last_not_of(" \t\r") == line.find(letter);
        if ((letter != 'y' && letter != 'n') || (fields != 2 && !bare)) {
            fprintf(stderr, "Type y or n and the number of the question.\n");
            return;
        }
        const bool certain = questions_.size() == 1 && questions_.front().number == certain_;
        const Question *question = questions_.find(!bare ? number : certain ? certain_ : 0);
        if (question == nullptr) {
            fprintf(stderr, bare ? "The questions have changed: type y or n and the number.\n"
                                 : "There is no such question any more.\n");
            return;
        }
        const Question answered = *question;
        questions_.remove(answered.number);
        changed_ = Clock::now();
        answer(answered.message, answered.from, letter == 'y');
    }

    void forgetOldQuestions() {
        while (const auto late = questions_.takeLate(Clock::now())) {
            changed_ = Clock::now();
            fprintf(stderr, "Question %u: too late, %s got no answer.\n", late->number,
                    printable(late->message.user).c_str());
        }
    }

    /// For so long after a change of the questions, an answer without a number may be meant for an
    /// earlier one.
    static constexpr std::chrono::seconds kQuiet{10};

    const WatchOptions &options_;
    ConsolePorts ports_;
    Questions questions_;
    unsigned certain_ = 0;  ///< number of the question that an answer without a number is for
    Clock::time_point changed_ = Clock::now() - kQuiet;  ///< when the questions last changed
    std::string typed_;                                  ///< the beginning of a line
    Throttle lines_;
    bool flooded_ = false;
    Clock::time_point told_{};  ///< when the surplus was shown last
};

}  // namespace

void watch(const WatchOptions &options, const volatile std::sig_atomic_t &stop) {
    Watch(options).run(stop);
}

}  // namespace quillon
