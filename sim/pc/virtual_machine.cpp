#include "sim/pc/virtual_machine.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "sim/host/process.h"

namespace sim {
namespace {

constexpr char kQemu[] = "qemu-system-x86_64";
constexpr char kKernel[] = "/vmlinuz", kInitrd[] = "/initrd.gz", kGrubDisk[] = "/grub.img";

[[noreturn]] void fail(const std::string &what) {
    throw std::runtime_error(what + ": " + strerror(errno));
}

bool inPath(const std::string &program) {
    const char *path = getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');)
        if (access((folder + "/" + program).c_str(), X_OK) == 0) return true;
    return false;
}

struct Pair {
    int own, other;
};

Pair socketPair() {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) fail("socketpair");
    return {fds[0], fds[1]};
}

// Descriptors that only QEMU keeps.
class Handed {
  public:
    ~Handed() {
        for (const int fd : all_) close(fd);
    }
    int add(int fd) {
        all_.push_back(fd);
        return fd;
    }
    // A file that QEMU opens again by its descriptor: its folder may be closed to nobody.
    std::string file(const std::string &path) {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) fail("cannot open " + path);
        return std::to_string(add(fd));
    }
    const std::vector<int> &all() const { return all_; }

  private:
    std::vector<int> all_;
};

bool isQcow2(const std::string &path) {
    char magic[4] = "";
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool is =
        read(fd, magic, sizeof magic) == sizeof magic && memcmp(magic, "QFI\xFB", 4) == 0;
    close(fd);
    return is;
}

using Words = std::vector<std::string>;

void append(Words &words, const Words &more) {
    words.insert(words.end(), more.begin(), more.end());
}

void appendDrive(Words &words, Handed &handed, const std::string &path, bool cdrom) {
    append(words, {"-add-fd", "set=1,fd=" + handed.file(path), "-drive",
                   std::string("file=/dev/fdset/1,if=ide,format=") +
                       (!cdrom && isQcow2(path) ? "qcow2" : "raw") +
                       (cdrom ? ",media=cdrom,readonly=on" : ",snapshot=on")});
}

Words bootWords(const PcOptions &options, Handed &handed) {
    // The firmware asks for Esc for a minute, the longest time it knows.
    const Words uhci{"-device", "piix3-usb-uhci,id=usb"};
    Words words;
    switch (options.boot) {
        case Boot::kBios:
            append(words, {"-m", "32", "-boot", "menu=on,splash-time=60000"});
            append(words, uhci);
            break;
        case Boot::kGrub:
            append(words, {"-m", "32", "-boot", "order=c"});
            append(words, uhci);
            appendDrive(words, handed, options.folder + kGrubDisk, false);
            break;
        case Boot::kLinux:
            append(words, {"-m", "96", "-device", "qemu-xhci,id=usb", "-kernel",
                           "/proc/self/fd/" + handed.file(options.folder + kKernel), "-initrd",
                           "/proc/self/fd/" + handed.file(options.folder + kInitrd), "-append",
                           "console=tty0 nokaslr quiet no-scroll"});
            break;
        case Boot::kDisk:
        case Boot::kIso:
            append(words, {"-m", "1024"});
            append(words, uhci);
            appendDrive(words, handed, options.image, options.boot == Boot::kIso);
            break;
    }
    return words;
}

}  // namespace

std::string missingFor(const PcOptions &options) {
    if (!inPath(kQemu))
        return std::string(kQemu) + " is missing; Debian's package qemu-system-x86 has it";
    Words files;
    if (options.boot == Boot::kGrub) files = {options.folder + kGrubDisk};
    if (options.boot == Boot::kLinux) files = {options.folder + kKernel, options.folder + kInitrd};
    if (!options.image.empty()) files = {options.image};
    for (const std::string &file : files)
        if (access(file.c_str(), R_OK) != 0)
            return "cannot read " + file + ": " + strerror(errno) +
                   (options.image.empty() ? "; scripts/computer makes it" : "");
    return "";
}

std::string stateFile(const PcOptions &options) {
    return options.folder + "/linux.state";
}

bool hasState(const PcOptions &options) {
    struct stat state {
    }, source{};
    if (stat(stateFile(options).c_str(), &state) != 0) return false;
    for (const char *file : {kKernel, kInitrd})
        if (stat((options.folder + file).c_str(), &source) != 0 || source.st_mtime > state.st_mtime)
            return false;
    return true;
}

VirtualMachine::VirtualMachine(const PcOptions &options, int state) {
    Handed handed;
    const Pair qmp = socketPair();
    qmp_.emplace(qmp.own);
    const Pair usb = socketPair();
    usb_ = usb.own;
    Words words{kQemu,
                "-nodefaults",
                "-no-user-config",
                "-machine",
                "pc",
                "-accel",
                "tcg,tb-size=32",
                "-vga",
                "std",
                "-display",
                "none",
                "-nic",
                "none",
                "-vnc",
                "none",
                "-S",
                "-sandbox",
                "on,obsolete=deny,elevateprivileges=deny,spawn=deny,resourcecontrol=deny",
                "-chardev",
                "socket,id=qmp,fd=" + std::to_string(handed.add(qmp.other)),
                "-mon",
                "chardev=qmp,mode=control",
                "-chardev",
                "socket,id=hid,fd=" + std::to_string(handed.add(usb.other))};
    for (std::size_t n = 0; n < kSerialLines; ++n) {
        const Pair line = socketPair();
        serial_[n] = line.own;
        const std::string name = "serial" + std::to_string(n);
        append(words,
               {"-chardev", "socket,id=" + name + ",fd=" + std::to_string(handed.add(line.other)),
                "-serial", "chardev:" + name});
    }
    append(words, bootWords(options, handed));
    if (state >= 0) append(words, {"-incoming", "fd:" + std::to_string(handed.add(dup(state)))});

    int output[2];
    if (pipe2(output, O_CLOEXEC) != 0) fail("pipe");
    output_ = output[0];
    handed.add(output[1]);
    const int nothing = handed.add(open("/dev/null", O_RDWR | O_CLOEXEC));
    Launch qemu;
    qemu.arguments = words;
    qemu.directory = "/";
    qemu.input = nothing;
    qemu.output = qemu.error = output[1];
    qemu.ownSession = true;
    qemu.descriptors = handed.all();
    qemu.withoutRights = true;
    pid_ = launch(qemu);
}

VirtualMachine::~VirtualMachine() {
    if (pid_ > 0) {
        kill();
        awaitExit(pid_);
    }
    for (const int fd : {usb_, output_, serial_[0], serial_[1]})
        if (fd >= 0) close(fd);
}

void VirtualMachine::kill() const {
    if (pid_ > 0) ::kill(pid_, SIGKILL);
}

std::string VirtualMachine::awaitEnd() {
    using std::chrono::milliseconds;
    constexpr milliseconds kTick(10), kPatience(3000);
    int status = 0;
    for (milliseconds waited{}; waitpid(pid_, &status, WNOHANG) != pid_; waited += kTick) {
        if (waited == kPatience) kill();
        std::this_thread::sleep_for(kTick);
    }
    pid_ = 0;
    if (WIFSIGNALED(status))
        return std::string("it was killed by the signal \"") + strsignal(WTERMSIG(status)) + "\"";
    return WEXITSTATUS(status) == 0
               ? "it switched itself off"
               : "QEMU ended with status " + std::to_string(WEXITSTATUS(status));
}

int VirtualMachine::takeUsb() {
    const int fd = usb_;
    usb_ = -1;
    return fd;
}

}  // namespace sim
