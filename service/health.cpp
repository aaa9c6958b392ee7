// quillon-health: does the daemon of this machine still answer? A timer runs it; its exit status is
// all that the service manager needs, so it has no rights of its own.

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

#include "protocol/ports.h"
#include "protocol/requests.h"
#include "service/options.h"
#include "service/settings_guard.h"
#include "service/udp_ports.h"
#include "software_config.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

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

    /// Asks, and waits a second for the answer.
    bool answered() {
        constexpr char kAnswer[] = "query|";
        [[maybe_unused]] const ssize_t sent =
            send(fd_, quillon::kHolderQuestion, strlen(quillon::kHolderQuestion), MSG_DONTWAIT);
        const auto end = Clock::now() + seconds(1);
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
    std::string port = std::to_string(quillon::kRecordPort);
    read_ini(folder + "/" + service::kSettingsName).find_value("udpserver_port=", port);
    return static_cast<unsigned>(atoi(port.c_str())) & 0xFFFF;
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
    if (sockets.size() > 1) {
        printf(
            "WARNING: %zu programs share UDP port %u, so that the daemon may not hear its "
            "operators. Find the one that does not belong there (ss -ulpn).\n",
            sockets.size(), quillon::kOperatorPort);
        return false;
    }
    daemon = sockets.front();
    return true;
}

int judge(const service::HealthOptions &options) {
    service::UdpSocket daemon{};
    if (!findDaemon(daemon)) return 0;
    Question question;
    const auto end = Clock::now() + seconds(options.patience);
    unsigned long waiting = 0;  ///< bytes in its queue after the question before
    do {
        if (question.answered()) {
            puts("The daemon answers.");
            lookForRecordPort(options.folder);
            return 0;
        }
        service::UdpSocket now{};
        if (!findDaemon(now)) return 0;
        if (now.inode != daemon.inode) {
            puts("The daemon has just been started again.");
            return 0;
        }
        // While the holder of control is asked for consent, other commands wait for 10 s; somebody
        // who applies again and again must not cause a restart. A queue that did not grow by the
        // question was read from, unless it is full.
        constexpr unsigned long kNearlyFull = 100'000;
        if (now.waiting <= waiting && now.waiting < kNearlyFull) {
            puts("The daemon is busy with the commands of operators.");
            return 0;
        }
        waiting = now.waiting;
    } while (Clock::now() < end);
    printf("The daemon has UDP port %u and has not answered for %u s. It has to be restarted.\n",
           quillon::kOperatorPort, options.patience);
    return 1;
}

}  // namespace

int main(int argc, char **argv) {
    CLI::App app{"", "quillon-health"};
    service::HealthOptions options;
    service::describeHealth(app, options);
    return service::runProgram(app, argc, argv, [&] { return judge(options); });
}
