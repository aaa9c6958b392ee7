#include "watch.h"

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <deque>
#include <system_error>

#include "datagram_socket.h"
#include "link_messages.h"
#include "report.h"
#include "watch_relay.h"

namespace console {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint16_t kHeartbeatPort = 41237;
constexpr std::chrono::milliseconds kAtOnce(0);
constexpr std::chrono::seconds kConsentTime(10);  // how long an endpoint waits for it

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
        : options_(options),
          link_(options.address, kLinkPort, options.address, DatagramSocket::kAlone),
          group_(kAllConsoles, kLinkPort, options.address),
          heartbeats_(options.address, kHeartbeatPort, options.address),
          relay_(options.address) {}

    void run(const volatile std::sig_atomic_t &stop) {
        fprintf(stderr, "quillon-console: watching at %s; Ctrl-C ends it\n",
                options_.address.c_str());
        bool inputOpen = options_.consent == WatchOptions::kAsk;
        while (stop == 0) {
            pollfd fds[] = {{link_.fd(), POLLIN, 0},
                            {group_.fd(), POLLIN, 0},
                            {heartbeats_.fd(), POLLIN, 0},
                            {relay_.fd(), POLLIN, 0},
                            {inputOpen ? STDIN_FILENO : -1, POLLIN, 0}};
            const int ready = poll(fds, 5, questions_.empty() ? -1 : 200);
            forgetOldQuestions();
            if (ready <= 0) continue;
            while (const auto datagram = link_.receive(kAtOnce)) {
                relay_.pass(datagram->text);
                take(*datagram);
            }
            while (const auto datagram = group_.receive(kAtOnce)) take(*datagram);
            while (const auto ping = heartbeats_.receive(kAtOnce))
                if (ping->text == "heart") send(heartbeats_, *ping, "ackheart");
            if (fds[3].revents != 0) relay_.admit();
            if (fds[4].revents != 0) inputOpen = readAnswer();
        }
    }

  private:
    struct Question {
        LinkMessage message;
        DatagramSocket::Received from;
        Clock::time_point until;
    };

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
        const Question question{*message, datagram, Clock::now() + kConsentTime};
        switch (options_.consent) {
            case WatchOptions::kSilent:
                return;
            case WatchOptions::kGrant:
            case WatchOptions::kRefuse:
                answer(question, options_.consent == WatchOptions::kGrant);
                return;
            case WatchOptions::kAsk:
                questions_.push_back(question);
                if (questions_.size() == 1) ask();
        }
    }

    void answer(const Question &question, bool granted) {
        if (send(link_, question.from, consentAnswer(options_.address, question.message, granted)))
            print(question.from, granted ? "granted" : "refused", {{"granted", granted}});
    }

    // A network that is down for a while is no reason to stop watching.
    static bool send(DatagramSocket &socket, const DatagramSocket::Received &to,
                     const std::string &text) {
        try {
            socket.send(to.sender, to.senderPort, text);
            return true;
        } catch (const std::system_error &error) {
            fprintf(stderr, "quillon-console: %s\n", error.what());
            return false;
        }
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
            answer(questions_.front(), line[0] == 'y');
            questions_.pop_front();
        }
        if (!questions_.empty()) ask();
        return true;
    }

    void forgetOldQuestions() {
        while (!questions_.empty() && Clock::now() > questions_.front().until) {
            fprintf(stderr, "\ntoo late\n");
            questions_.pop_front();
            if (!questions_.empty()) ask();
        }
    }

    const WatchOptions &options_;
    DatagramSocket link_, group_, heartbeats_;
    WatchRelay relay_;
    std::deque<Question> questions_;  ///< the first one is on the terminal
};

}  // namespace

void watch(const WatchOptions &options, const volatile std::sig_atomic_t &stop) {
    Watch(options).run(stop);
}

}  // namespace console
