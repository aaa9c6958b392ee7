#include "tests/guest/guest.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <stdexcept>

#include "sim/host/process.h"

namespace test {
namespace {

using std::chrono::seconds;

constexpr char kNoEcho[] = "stty -F /dev/ttyS1 raw -echo; PS1=; PS2=; set +m; exec 2>&1; ";

// QEMU must not outlive a test program that is ended.
volatile pid_t machine = 0;

void endMachine(int sig) {
    kill(machine, SIGKILL);
    _exit(128 + sig);
}

// One end stays here, the other is for QEMU.
void makePair(sim::Descriptor &here, sim::Descriptor &there) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::runtime_error("no socket pair");
    here = sim::Descriptor(ends[0]);
    there = sim::Descriptor(ends[1]);
}

}  // namespace

Guest::Guest(const std::string &folder) : folder_(folder) {
    sim::Descriptor qmp, qmpThere, shellThere;
    makePair(qmp, qmpThere);
    makePair(shell_, shellThere);
    sim::runTool({"mke2fs", "-q", "-t", "ext4", "-F", folder + "/settings.img", "32M"}, "");
    sim::Launch qemu;
    qemu.directory = folder;
    qemu.arguments = {
        "sh", "-c",
        "exec qemu-system-x86_64 -nodefaults -display none -accel tcg -smp 2 -cpu max -m 512 "
        "-kernel vmlinuz -initrd initrd.gz -no-reboot "
        "-append 'console=ttyS0 mitigations=off quiet panic=5' "
        "-drive file=root.img,format=raw,if=virtio,snapshot=on "
        "-drive file=packages.img,format=raw,if=virtio,snapshot=on "
        "-drive file=settings.img,format=raw,if=virtio "
        "-serial file:console.log -serial chardev:shell -mon chardev=qmp,mode=control "
        "-chardev socket,id=shell,fd=" +
            std::to_string(shellThere.get()) +
            " -chardev socket,id=qmp,fd=" + std::to_string(qmpThere.get())};
    qemu.descriptors = {qmpThere.get(), shellThere.get()};
    pid_ = sim::launch(qemu);
    machine = pid_;
    for (const int sig : {SIGINT, SIGTERM, SIGHUP}) signal(sig, endMachine);
    // Else its end would not be seen here.
    qmpThere.reset();
    shellThere.reset();
    qmp_.emplace(dup(qmp.get()));
    reader_ = std::thread([this] {
        pollfd readable{qmp_->descriptor(), POLLIN, 0};
        while (poll(&readable, 1, -1) >= 0 && qmp_->read([](const std::string &) {})) continue;
        qmp_->end();
    });
    qmp_->execute("qmp_capabilities", sim::Qmp::Json::object(), -1, seconds(30));
    // The terminal echoes until bash has read this line.
    for (int tries = 0; tries < 60; ++tries) {
        const std::string hello = std::string(kNoEcho) + "echo is\"\"here\n";
        if (write(shell_.get(), hello.data(), hello.size()) < 0) break;
        if (!readUntil("ishere\n", seconds(5)).empty()) {
            readUntil("nothing", seconds(1));
            return;
        }
    }
    throw std::runtime_error("the guest has no shell; see " + folder + "/console.log");
}

Guest::~Guest() {
    kill(pid_, SIGKILL);
    sim::awaitExit(pid_);
    reader_.join();
}

// What comes up to and with the end; empty when that does not come in time.
std::string Guest::readUntil(const std::string &end, seconds patience) {
    const auto until = std::chrono::steady_clock::now() + patience;
    std::string all;
    while (all.find(end) == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            until - std::chrono::steady_clock::now());
        pollfd readable{shell_.get(), POLLIN, 0};
        char chunk[4096];
        if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) <= 0) return "";
        const ssize_t size = read(shell_.get(), chunk, sizeof chunk);
        if (size <= 0) throw std::runtime_error("the guest has ended");
        all.append(chunk, static_cast<std::size_t>(size));
    }
    return all;
}

Guest::Outcome Guest::run(const std::string &line, seconds patience) {
    const std::string end = "end" + std::to_string(++commands_) + "of";
    // The text of the command does not hold the end as it is printed.
    const std::string command = line + "\necho \"\"" + end + "\"\"command $?\n";
    const auto begin = std::chrono::steady_clock::now();
    if (write(shell_.get(), command.data(), command.size()) != static_cast<ssize_t>(command.size()))
        throw std::runtime_error("the guest does not read");
    const std::string mark = end + "command ";
    std::string all = readUntil(mark, patience);
    if (all.empty()) return {};
    while (all.back() != '\n') all += readUntil("\n", seconds(5));
    const std::size_t at = all.find(mark);
    Outcome outcome{atoi(all.c_str() + at + mark.size()), all.substr(0, at)};
    if (!outcome.said.empty() && outcome.said.back() == '\n') outcome.said.pop_back();
    printf("%6.1f s  %s  -> %d\n",
           std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count(),
           line.c_str(), outcome.status);
    if (outcome.status != 0 && !outcome.said.empty()) printf("%s\n", outcome.said.c_str());
    fflush(stdout);
    return outcome;
}

void Guest::copySettingsDisk(const std::string &to) {
    qmp_->execute("stop", sim::Qmp::Json::object(), -1, seconds(30));
    sim::runTool({"cp", "--sparse=always", folder_ + "/settings.img", to}, "");
    qmp_->execute("cont", sim::Qmp::Json::object(), -1, seconds(30));
}

}  // namespace test
