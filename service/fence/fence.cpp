// quillon-fence: the rules in the kernel, and going back to the former ones.

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <system_error>

#include "service/fence/fence_list.h"
#include "service/fence/rules.h"
#include "service/options.h"
#include "service/settings_guard.h"
#include "terminal/printable.h"
#include "terminal/program.h"

namespace {

using service::FenceList;

constexpr char kPlace[] = "/run/quillon-fence";
constexpr char kPending[] = "/run/quillon-fence/pending";  ///< exists while a confirmation is due
constexpr unsigned kGoesBackAfter = 60;                    ///< seconds

// The system's own nft, whatever PATH says: root runs this.
std::string nft(const std::string &arguments) {
    for (const char *path : {"/usr/sbin/nft", "/sbin/nft"})
        if (access(path, X_OK) == 0) return path + (" " + arguments);
    throw std::runtime_error("there is no nft; install the package nftables");
}

// Gives rules to nft, which says on standard error what it does not like; with "-c " it only looks.
bool feed(const std::string &rules, const std::string &how = "") {
    FILE *pipe = popen(nft(how + "-f -").c_str(), "we");
    if (pipe == nullptr) throw std::system_error(errno, std::generic_category(), "cannot run nft");
    const bool written = fwrite(rules.data(), 1, rules.size(), pipe) == rules.size();
    return pclose(pipe) == 0 && written;
}

// What nft prints; empty when it fails, as for a table that does not exist.
std::string ask(const std::string &arguments) {
    FILE *pipe = popen((nft(arguments) + " 2>/dev/null").c_str(), "re");
    if (pipe == nullptr) throw std::system_error(errno, std::generic_category(), "cannot run nft");
    std::string text;
    char chunk[4096];
    for (std::size_t size; (size = fread(chunk, 1, sizeof chunk, pipe)) > 0;)
        text.append(chunk, size);
    return pclose(pipe) == 0 ? text : "";
}

std::string table(const std::string &verb) {
    return verb + " table " + service::kFenceTable;
}

void needRoot() {
    if (geteuid() != 0) throw std::runtime_error("only root may change the rules");
}

void put(const std::string &rules) {
    if (!feed(rules)) throw std::runtime_error("nft refused the rules; nothing was changed");
}

void goBackTo(const std::string &former) {
    const std::string without = table("add") + "\n" + table("delete") + "\n";
    if (!feed(without + former)) feed(without);  // rather open than shut for ever
}

// True while the file that makePending() made is there.
bool isPending(int fd) {
    struct stat info {};
    return fstat(fd, &info) == 0 && info.st_nlink != 0;
}

// The file exists while a confirmation is due, and is locked while somebody waits for it. Whoever
// removes it decides: confirm, or the process that then goes back.
int makePending() {
    if (mkdir(kPlace, 0700) != 0 && errno != EEXIST)
        throw std::system_error(errno, std::generic_category(), kPlace);
    for (;;) {
        const int fd = open(kPending, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0) throw std::system_error(errno, std::generic_category(), kPending);
        if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
            close(fd);
            throw std::runtime_error(
                "the last apply waits for quillon-fence confirm; wait until it "
                "is taken back, or confirm it");
        }
        if (isPending(fd)) return fd;
        close(fd);  // removed between the two calls
    }
}

// Whether a confirmation is due, and somebody is there to take the rules back.
const char *pendingWords() {
    const int fd = open(kPending, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return "The fence stands.";
    const bool waits = flock(fd, LOCK_SH | LOCK_NB) != 0;
    close(fd);
    return waits
               ? "The fence stands, and waits for quillon-fence confirm."
               : "The fence stands. It was not confirmed, and the process that would take it back "
                 "is gone: quillon-fence confirm, or quillon-fence off.";
}

[[noreturn]] void waitAndGoBack(int pending, const std::string &former) {
    // The person may have locked themselves out, and their terminal with them.
    setsid();
    for (const int sig : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE}) signal(sig, SIG_IGN);
    const int null = open("/dev/null", O_RDWR);
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) dup2(null, fd);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(kGoesBackAfter);
    while (isPending(pending) && std::chrono::steady_clock::now() < end) poll(nullptr, 0, 200);
    // A confirmation that comes now finds nothing to confirm.
    if (!isPending(pending) || unlink(kPending) != 0) _exit(0);
    try {
        goBackTo(former);
    } catch (const std::exception &) {
        _exit(1);
    }
    _exit(0);
}

// A port that is not in the list is open to everybody.
void warnAboutPort(const FenceList &list) {
    const std::string own = std::to_string(list.recordPort);
    const std::string used = service::settingIn(service::kStateFolder, "udpserver_port", own);
    if (used != own)
        printf(
            "WARNING: the daemon takes records at port %s (udpserver_port), and the list guards "
            "port %s. Set record_port.\n",
            quillon::printable(used).c_str(), own.c_str());
}

int check(const FenceList &list, const std::string &file) {
    printf("%s: %zu consoles, %zu operators, %zu senders as software, on %s; records at port %u\n",
           quillon::printable(file).c_str(), list.consoles.size(), list.operators.size(),
           list.software.size(), list.interface.c_str(), static_cast<unsigned>(list.recordPort));
    for (const std::string &odd : service::oddities(list))
        printf("note: %s\n", quillon::printable(odd).c_str());
    warnAboutPort(list);
    return 0;
}

int apply(const service::FenceOptions &options) {
    const FenceList list = service::readFenceList(options.file);
    const std::string rules = service::fenceRules(list);
    needRoot();
    if (!feed(rules, "-c ")) throw std::runtime_error("nft refused the rules; nothing was changed");
    warnAboutPort(list);
    if (options.keep) {
        unlink(kPending);  // of an earlier apply, which must not take these rules back
        put(rules);
        puts("The fence stands.");
        return 0;
    }
    const std::string former = ask(table("list"));
    const int pending = makePending();
    fflush(nullptr);
    // Before the rules, so that whatever happens to this process they go back.
    const pid_t guard = fork();
    if (guard == 0) waitAndGoBack(pending, former);
    try {
        if (guard < 0) throw std::system_error(errno, std::generic_category(), "fork");
        put(rules);
    } catch (...) {
        unlink(kPending);
        throw;
    }
    printf(
        "The fence stands for %u s. If everything that should works still works, write:\n"
        "    quillon-fence confirm\n"
        "Otherwise do nothing: the former rules come back.\n",
        kGoesBackAfter);
    return 0;
}

int confirm() {
    needRoot();
    if (ask(table("list")).empty() || unlink(kPending) != 0)
        throw std::runtime_error("nothing waits for a confirmation; the rules may have gone back");
    puts(
        "The fence stays, until the next start of this machine. For ever:\n"
        "    systemctl enable quillon-fence");
    return 0;
}

int off() {
    needRoot();
    unlink(kPending);
    const bool stood = !ask(table("list")).empty();
    if (stood) put(table("delete") + "\n");
    puts(stood ? "The fence is gone." : "There is no fence.");
    return 0;
}

int status() {
    needRoot();
    const std::string text = ask("-j list counters " + table(""));
    if (text.empty()) {
        puts("There is no fence: everybody reaches the daemon.");
        return 1;
    }
    puts(pendingWords());
    const auto answer = nlohmann::json::parse(text, nullptr, false);
    if (answer.is_discarded() || !answer.contains("nftables"))
        throw std::runtime_error("nft gave an answer that is no list of counters");
    for (std::size_t i = 0; i < service::kFenceReasonCount; ++i) {
        const service::FenceReason &reason = service::kFenceReasons[i];
        for (const auto &entry : answer["nftables"])
            if (entry.contains("counter") && entry["counter"].value("name", "") == reason.counter)
                printf("%12llu  %s\n", entry["counter"].value("packets", 0ULL), reason.words);
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    CLI::App app{"", "quillon-fence"};
    service::FenceOptions options;
    service::describeFence(app, options);
    return quillon::runProgram(app, argc, argv, [&] {
        if (app.got_subcommand("check"))
            return check(service::readFenceList(options.file), options.file);
        if (app.got_subcommand("show")) {
            fputs(service::fenceRules(service::readFenceList(options.file)).c_str(), stdout);
            return 0;
        }
        if (app.got_subcommand("apply")) return apply(options);
        if (app.got_subcommand("confirm")) return confirm();
        if (app.got_subcommand("off")) return off();
        return status();
    });
}
