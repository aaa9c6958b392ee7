// quillon-health: does the daemon of this machine still answer? A timer runs it; its exit status is
// all that the service manager needs, so it has no rights of its own.

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "protocol/ports.h"
#include "protocol/requests.h"
#include "service/daemon_user.h"
#include "service/options.h"
#include "service/settings_guard.h"
#include "service/udp_ports.h"
#include "terminal/program.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

// The exit status that asks for a restart. Not 1, with which any program may fail.
constexpr int kHangs = 10;

// Asks the operator port on the loopback interface.
class Question {
  public:
    Question() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in daemon{};
        daemon.sin_family = AF_INET;
        daemon.sin_port = htons(quillon::kOperatorPort);
        daemon.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (fd_ < 0 || connect(fd_, reinterpret_cast<sockaddr *>(&daemon), sizeof daemon) != 0)
            throw std::runtime_error(std::string("cannot ask: ") + strerror(errno));
    }
    ~Question() { close(fd_); }
    Question(const Question &) = delete;
    Question &operator=(const Question &) = delete;

    void ask() {
        [[maybe_unused]] const ssize_t sent =
            send(fd_, quillon::kHolderQuestion, strlen(quillon::kHolderQuestion), MSG_DONTWAIT);
    }

    /// True when an answer comes in this time.
    bool answered(std::chrono::milliseconds time) {
        constexpr char kAnswer[] = "query|";
        const auto end = Clock::now() + time;
        char answer[128];
        for (;;) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
            pollfd readable{fd_, POLLIN, 0};
            if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) <= 0)
                return false;
            const ssize_t size = recv(fd_, answer, sizeof answer, MSG_DONTWAIT);
            if (size >= static_cast<ssize_t>(strlen(kAnswer)) &&
                memcmp(answer, kAnswer, strlen(kAnswer)) == 0)
                return true;
        }
    }

  private:
    const int fd_;
};

unsigned recordPort(const std::string &folder) {
    const std::string usual = std::to_string(quillon::kRecordPort);
    return static_cast<unsigned>(
               atoi(service::settingIn(folder, "udpserver_port", usual).c_str())) &
           0xFFFF;
}

// The daemon goes on without this port when it cannot be bound, and then nobody can type.
void lookForRecordPort(const std::string &folder) {
    const unsigned port = recordPort(folder);
    if (service::udpSocketsAt(static_cast<std::uint16_t>(port)).empty())
        printf(
            "WARNING: no program has UDP port %u, where consoles send keyboard and mouse. "
            "Look for \"bind error\" in the daemon's log.\n",
            port);
}

// The daemon runs as the same user as this check, or else root asks for it.
bool mayBeDaemons(unsigned user) {
    if (geteuid() != 0) return user == geteuid();
    return user == 0 || user == service::userNumber("quillon").value_or(0);
}

// The daemon's socket, alone at its port; false, with the reason on standard output, when there is
// nothing to judge.
bool findDaemon(service::UdpSocket &daemon) {
    const auto sockets = service::udpSocketsAt(quillon::kOperatorPort);
    if (sockets.empty()) {
        printf(
            "No program has UDP port %u: the daemon does not run, waits for its chip, or has "
            "nothing to do on this board.\n",
            quillon::kOperatorPort);
        return false;
    }
    if (sockets.size() > 1 || !mayBeDaemons(sockets.front().user)) {
        printf(
            "WARNING: %s UDP port %u, so that the daemon may not hear its operators. Find the "
            "one that does not belong there (ss -ulpn).\n",
            sockets.size() > 1 ? "several programs share" : "a program of another user has",
            quillon::kOperatorPort);
        return false;
    }
    daemon = sockets.front();
    return true;
}

enum class Seen { kAnswer, kReading, kNothing, kOther };

// Asks once and looks for a second. While the holder of control is asked for consent, other
// commands wait for 10 s; somebody who applies again and again must not cause a restart. So it
// counts, too, when the daemon reads: its queue gets shorter, or does not grow by the question.
Seen look(Question &question, service::UdpSocket &daemon) {
    // Into a queue that is nearly full nothing more is put, so that it is seen getting shorter.
    constexpr unsigned long kNearlyFull = 100'000;
    const bool asks = daemon.waiting < kNearlyFull;
    const unsigned long before = daemon.waiting;
    if (asks) question.ask();
    unsigned long most = before;
    for (int slice = 0; slice < 10; ++slice) {
        if (question.answered(std::chrono::milliseconds(100))) return Seen::kAnswer;
        service::UdpSocket now{};
        if (!findDaemon(now)) return Seen::kOther;
        if (now.inode != daemon.inode) {
            puts("The daemon has just been started again.");
            return Seen::kOther;
        }
        if (now.waiting < most || (asks && now.waiting <= before)) return Seen::kReading;
        most = now.waiting;
    }
    daemon.waiting = most;
    return Seen::kNothing;
}

int judge(const service::HealthOptions &options) {
    service::UdpSocket daemon{};
    if (!findDaemon(daemon)) return 0;
    Question question;
    const auto end = Clock::now() + seconds(options.patience);
    do {
        switch (look(question, daemon)) {
            case Seen::kAnswer:
                puts("The daemon answers.");
                lookForRecordPort(options.folder);
                return 0;
            case Seen::kReading:
                puts("The daemon is busy with the commands of operators.");
                return 0;
            case Seen::kOther:
                return 0;
            case Seen::kNothing:
                break;
        }
    } while (Clock::now() < end);
    printf("The daemon has UDP port %u and has not answered for %u s. It has to be restarted.\n",
           quillon::kOperatorPort, options.patience);
    return kHangs;
}

}  // namespace

int main(int argc, char **argv) {
    CLI::App app{"", "quillon-health"};
    service::HealthOptions options;
    service::describeHealth(app, options);
    return quillon::runProgram(app, argc, argv, [&] { return judge(options); });
}
