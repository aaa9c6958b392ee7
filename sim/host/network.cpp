#include "sim/host/network.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <thread>

#include "sim/host/process.h"

namespace sim {
namespace {

// Bytes in the receive queue of the socket on a port, as the kernel's table has it.
std::optional<unsigned long> receiveQueue(unsigned port) {
    FILE *table = fopen("/proc/self/net/udp", "re");
    if (table == nullptr) return std::nullopt;
    std::optional<unsigned long> found;
    char line[512];
    while (!found && fgets(line, sizeof line, table) != nullptr) {
        unsigned localPort = 0;
        unsigned long queued = 0;
        constexpr char kFormat[] = "%*d: %*8x:%4x %*8x:%*4x %*2x %*8x:%8lx";
        if (sscanf(line, kFormat, &localPort, &queued) == 2 && localPort == port) found = queued;
    }
    fclose(table);
    return found;
}

}  // namespace

void makeEth0(const std::vector<std::string> &addresses) {
    if (if_nametoindex("eth0") != 0) runTool({"ip", "link", "del", "eth0"}, "");
    std::string commands =
        "link add eth0 type veth peer name wire0\n"
        "link set eth0 up\n"
        "link set wire0 up\n";
    for (const std::string &address : addresses)
        commands += "addr add " + address + "/24 brd + dev eth0\n";
    commands += "route add 224.0.0.0/4 dev eth0\n";
    runTool({"ip", "-batch", "-"}, commands);
}

namespace {

constexpr char kThisNetwork[] = "/proc/thread-self/ns/net";

int openNetwork() {
    const int fd = open(kThisNetwork, O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw std::runtime_error(std::string(kThisNetwork) + ": " + strerror(errno));
    return fd;
}

void enterNetwork(int fd) {
    if (setns(fd, CLONE_NEWNET) != 0)
        throw std::runtime_error(std::string("cannot change the network: ") + strerror(errno));
}

}  // namespace

ConsoleNetwork::ConsoleNetwork(const std::vector<std::string> &addresses) : board_(openNetwork()) {
    // A thread of its own, so that this one stays where it is.
    std::thread maker([this] {
        if (unshare(CLONE_NEWNET) == 0) own_ = open(kThisNetwork, O_RDONLY | O_CLOEXEC);
    });
    maker.join();
    if (own_ < 0) throw std::runtime_error("the kernel refuses a second network");
    runTool({"ip", "link", "set", "wire0", "netns",
             "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(own_)},
            "");
    std::string commands = "link set lo up\nlink set wire0 up\n";
    for (const std::string &address : addresses)
        commands += "addr add " + address + "/24 brd + dev wire0\n";
    commands += "route add 224.0.0.0/4 dev wire0\n";
    run([&] { runTool({"ip", "-batch", "-"}, commands); });
}

ConsoleNetwork::~ConsoleNetwork() {
    close(own_);
    close(board_);
}

void ConsoleNetwork::run(const std::function<void()> &what) const {
    enterNetwork(own_);
    try {
        what();
    } catch (...) {
        enterNetwork(board_);
        throw;
    }
    enterNetwork(board_);
}

bool udpPortBound(unsigned port) {
    return receiveQueue(port).has_value();
}

unsigned long udpBytesWaiting(unsigned port) {
    return receiveQueue(port).value_or(0);
}

}  // namespace sim
