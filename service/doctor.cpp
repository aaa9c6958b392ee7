// quillon-doctor: has this machine what the daemon needs?

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <linux/netlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <string>

#include "flash/serial_holder.h"
#include "main/board.h"
#include "protocol/ports.h"
#include "service/chip_probe.h"
#include "service/daemon_user.h"
#include "service/options.h"
#include "service/settings_guard.h"
#include "service/udp_ports.h"
#include "terminal/printable.h"
#include "terminal/program.h"

namespace {

namespace fs = std::filesystem;
using quillon::printable;

constexpr char kHardware[] = "/version/hardware_info", kNetwork[] = "/data/net.ini";

class Report {
  public:
    void good(const std::string &words) { say("ok     ", words); }
    void note(const std::string &words) { say("note   ", words); }
    /// The daemon cannot do its work like this.
    void bad(const std::string &words) {
        fit_ = false;
        say("WRONG  ", words);
    }
    void decide(bool ok, const std::string &yes, const std::string &no) {
        ok ? good(yes) : bad(no);
    }
    bool fit() const { return fit_; }

  private:
    static void say(const char *kind, const std::string &words) {
        printf("%s%s\n", kind, printable(words).c_str());
    }
    bool fit_ = true;
};

std::string because() {
    return std::string(": ") + strerror(errno);
}

// The daemon's own messages about what it reads are not the doctor's.
class SilentOutput {
  public:
    SilentOutput() : kept_((fflush(stdout), dup(STDOUT_FILENO))) {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    ~SilentOutput() {
        fflush(stdout);
        dup2(kept_, STDOUT_FILENO);
        close(kept_);
    }
    SilentOutput(const SilentOutput &) = delete;
    SilentOutput &operator=(const SilentOutput &) = delete;

  private:
    const int kept_;
};

// Empty without a file that names it.
std::string boardName() {
    const SilentOutput silent;
    char name[kBoardSize] = {};
    readHdVersion(name);
    return name;
}

std::string readBoard(Report &report) {
    std::string name = boardName();
    if (access(kHardware, R_OK) != 0)
        report.bad(std::string(kHardware) + because());
    else if (name.empty())
        report.bad(std::string(kHardware) + " has no \"board\": \"...\"");
    else if (isIdleBoard(name.c_str()))
        report.note("board " + name + ": the daemon has nothing to do on it, and idles");
    else
        report.good("board " + name +
                    (hasCh9329(name.c_str()) ? ", with a CH9329" : ", with a CH9350"));
    return name;
}

std::set<std::string> addressesOf(const char *interface) {
    std::set<std::string> found;
    ifaddrs *all = nullptr;
    if (getifaddrs(&all) != 0) return found;
    for (const ifaddrs *one = all; one != nullptr; one = one->ifa_next) {
        if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET ||
            strcmp(one->ifa_name, interface) != 0)
            continue;
        sockaddr_in address{};
        memcpy(&address, one->ifa_addr, sizeof address);
        char text[INET_ADDRSTRLEN] = "";
        found.insert(inet_ntop(AF_INET, &address.sin_addr, text, sizeof text));
    }
    freeifaddrs(all);
    return found;
}

// Its own address goes into every answer; a wrong one makes consoles ignore them.
void checkAddress(Report &report) {
    const auto own = addressesOf("eth0");
    if (if_nametoindex("eth0") == 0)
        report.bad("there is no network interface eth0; the daemon joins its group there");
    std::ifstream file(kNetwork);
    if (!file) {
        report.bad(std::string(kNetwork) + because());
        return;
    }
    constexpr char kKey[] = "kEth0Ip";
    std::string address;
    for (std::string line; address.empty() && std::getline(file, line);)
        if (const auto at = line.find(kKey); at != std::string::npos)
            address = line.substr(std::min(line.size(), at + strlen(kKey) + 1));
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1)
        report.bad(std::string(kNetwork) + " has no line kEth0Ip=ADDRESS");
    else
        report.decide(own.count(address) != 0, "eth0 has the address " + address,
                      std::string(kNetwork) + " says " + address + ", which eth0 does not have");
}

void checkPrograms(Report &report) {
    std::string missing;
    for (const char *name : {"sh", "cat", "awk"}) {
        bool found = false;
        for (const char *folder : {"/bin/", "/usr/bin/"})
            found = found || access((std::string(folder) + name).c_str(), X_OK) == 0;
        if (!found) missing += std::string(" ") + name;
    }
    report.decide(missing.empty(), "sh, cat and awk are there",
                  "these programs are missing, which read the address:" + missing);
}

void checkSettings(Report &report, const std::string &folder) {
    if (access(folder.c_str(), R_OK | W_OK | X_OK) != 0) {
        report.bad("cannot write in " + folder + because());
        return;
    }
    const auto state = service::compareSettings(folder);
    const bool exists = access((folder + "/" + service::kSettingsName).c_str(), F_OK) == 0;
    if (!exists)
        report.note(folder + ": no quillon.ini yet; the daemon makes one");
    else if (state.good)
        report.good(folder + ": " + state.words);
    else
        report.note(folder + ": " + state.words + "; see quillon-guard");
}

// Where the daemon looks for the chip.
std::string deviceOf(const std::string &board, const std::string &folder) {
    std::string port = "COM3";
    if (hasCh9329(board.c_str())) {
        port = service::settingIn(folder, "com_port", port);
        if (const char *forced = forcedPort(board.c_str()); forced != nullptr) port = forced;
    }
    return flash::deviceOf(port);
}

bool checkDevice(Report &report, const std::string &device) {
    struct stat info {};
    if (device.empty()) {
        report.bad("com_port in quillon.ini is none of COM0 to COM3");
        return false;
    }
    if (stat(device.c_str(), &info) != 0 || !S_ISCHR(info.st_mode)) {
        report.bad(device +
                   ", where the chip is, does not exist. Switch the serial port on in the "
                   "device tree");
        return false;
    }
    if (access(device.c_str(), R_OK | W_OK) != 0) {
        report.bad("cannot open " + device + because() + ". The user must be in group dialout");
        return false;
    }
    report.good(device + " can be opened");
    return true;
}

void checkMemory(Report &report, bool wanted) {
    const int fd = open("/dev/mem", O_RDWR | O_SYNC | O_CLOEXEC);
    if (!wanted)
        report.note(fd < 0 ? "/dev/mem cannot be opened, as you want it"
                           : "/dev/mem can be opened, which this board does not need");
    else
        report.decide(fd >= 0, "/dev/mem can be opened",
                      "cannot open /dev/mem" + because() +
                          ". Without it the daemon sets no pins and does not switch USB power; if "
                          "your boot loader does, see --without-memory");
    if (fd >= 0) close(fd);
}

bool canOpenVideo(int &error) {
    constexpr int kVideoProtocol = 21;
    constexpr unsigned kVideoGroup = 5;
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, kVideoProtocol);
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = 1U << (kVideoGroup - 1);
    const bool good =
        fd >= 0 && bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    error = errno;
    if (fd >= 0) close(fd);
    return good;
}

void checkVideo(Report &report, const std::string &board) {
    if (!hasVideoWatch(board.c_str())) return;
    int error = 0;
    if (canOpenVideo(error))
        report.good("the kernel can tell the size of the video input");
    else
        report.note(std::string("the kernel does not tell the size of the video input (") +
                    strerror(error) + "); positions are taken for 1920 x 1080");
}

void checkGroup(Report &report) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ip_mreqn group{};
    inet_pton(AF_INET, quillon::kEndpointGroup, &group.imr_multiaddr);
    group.imr_ifindex = static_cast<int>(if_nametoindex("eth0"));
    const bool joined = group.imr_ifindex != 0 &&
                        setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group) == 0;
    report.decide(joined, "eth0 can join the group of all endpoints",
                  "eth0 cannot join the group " + std::string(quillon::kEndpointGroup) +
                      ", so that nobody discovers this endpoint");
    close(fd);
}

struct Daemon {
    std::string process;  ///< its number; empty: it does not run
    unsigned user = 0;
    bool runs() const { return !process.empty(); }
};

// Anybody may call a program so; the daemon runs as root, as its own user, or as who asks.
Daemon findDaemon() {
    const std::set<unsigned> users{0, geteuid(), service::userNumber("quillon").value_or(0)};
    std::error_code error;
    for (const auto &process : fs::directory_iterator("/proc", error)) {
        const std::string id = process.path().filename();
        std::string name;
        struct stat owner {};
        if (id.find_first_not_of("0123456789") == std::string::npos &&
            std::getline(std::ifstream(process.path() / "comm"), name) && name == "quillon" &&
            stat(process.path().c_str(), &owner) == 0 && users.count(owner.st_uid) != 0)
            return {id, owner.st_uid};
    }
    return {};
}

// always: the daemon has the port from the moment when its chip answers.
void checkPort(Report &report, unsigned port, const std::string &use, const Daemon &daemon,
               bool always = true) {
    const std::string words = "UDP port " + std::to_string(port) + " (" + use + ")";
    const auto number = static_cast<std::uint16_t>(port);
    const auto sockets = service::udpSocketsAt(number);
    if (sockets.size() > 1) {
        report.bad(words + " is shared by " + std::to_string(sockets.size()) + " sockets");
        return;
    }
    if (!sockets.empty()) {
        const bool its = daemon.runs() && sockets.front().user == daemon.user;
        report.decide(its, words + " is in use, as it should be while the daemon runs",
                      words + " is taken by another program");
        return;
    }
    if (daemon.runs() && always) {
        report.bad(words +
                   " is not in use although the daemon runs: it waits for its chip, or "
                   "could not have the port. See its log");
        return;
    }
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(number);
    const bool free = bind(fd, reinterpret_cast<const sockaddr *>(&own), sizeof own) == 0;
    report.decide(free, words + " is free", words + " cannot be used" + because());
    close(fd);
}

void checkPorts(Report &report, const std::string &folder, const Daemon &daemon) {
    const std::string usual = std::to_string(quillon::kRecordPort);
    const int records = atoi(service::settingIn(folder, "udpserver_port", usual).c_str());
    checkPort(report, static_cast<unsigned>(records) & 0xFFFF, "records", daemon);
    checkPort(report, quillon::kOperatorPort, "operators", daemon);
    checkPort(report, quillon::kConsentPort, "consent", daemon);
    checkPort(report, quillon::kAnnouncePort, "announcements", daemon);
    // Only while permissions were on at its start.
    checkPort(report, quillon::kHeartbeatPort, "heartbeats", daemon, false);
}

void checkChip(Report &report, const std::string &board, const std::string &device) {
    const bool framed = hasCh9329(board.c_str());
    const auto found = service::probeChip(device, framed);
    const std::string name = framed ? "the CH9329" : "the CH9350";
    if (!found)
        report.bad(name + " does not answer at " + device +
                   ", neither at 115200 nor at 9600 bits per second. Look at its power and wires");
    else
        report.good(name + " answers at " + std::to_string(found->speed) + " bits per second" +
                    (!framed           ? ""
                     : found->computer ? "; it is plugged into a computer that is on"
                                       : "; no computer is on at its USB plug"));
}

std::string holder(Report &report, const std::string &device) {
    try {
        return device.empty() ? "" : flash::holderOf(device);
    } catch (const std::exception &error) {
        report.note(std::string(error.what()) + ", so the chip is not asked");
        return "somebody";
    }
}

int conclude(const Report &report) {
    puts(report.fit() ? "This machine is fit for the daemon."
                      : "This machine is not fit for the daemon.");
    return report.fit() ? 0 : 1;
}

int examine(const service::DoctorOptions &options) {
    Report report;
    // Only root sees who has the serial port, so it is asked first.
    const Daemon daemon = findDaemon();
    const std::string device = deviceOf(boardName(), options.folder);
    const std::string held = daemon.runs() ? "the daemon" : holder(report, device);

    std::string user = options.user;
    if (user.empty() && geteuid() == 0 && service::userNumber("quillon")) user = "quillon";
    if (!user.empty()) {
        service::becomeUser(user);
        report.note("looking as the user " + user);
    }
    report.note(daemon.runs() ? "the daemon runs as process " + daemon.process
                              : "the daemon does not run");
    const std::string board = readBoard(report);
    checkAddress(report);
    checkPrograms(report);
    if (!board.empty() && isIdleBoard(board.c_str())) return conclude(report);
    checkSettings(report, options.folder);
    checkGroup(report);
    checkPorts(report, options.folder, daemon);
    checkMemory(report, !options.withoutMemory);
    checkVideo(report, board);
    const bool opens = checkDevice(report, device);
    if (opens && !options.keepChipAlone && held.empty())
        checkChip(report, board, device);
    else if (opens && !held.empty() && held != "somebody")
        report.note("the chip is not asked, because " + held + " has its serial port");
    return conclude(report);
}

}  // namespace

int main(int argc, char **argv) {
    CLI::App app{"", "quillon-doctor"};
    service::DoctorOptions options;
    service::describeDoctor(app, options);
    return quillon::runProgram(app, argc, argv, [&] { return examine(options); });
}
