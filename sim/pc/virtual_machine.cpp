#include "sim/pc/virtual_machine.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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
        if (access(folder.append("/").append(program).c_str(), X_OK) == 0) return true;
    return false;
}

struct Pair {
    Descriptor own, other;
};

Pair socketPair() {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) fail("socketpair");
    return {Descriptor(fds[0]), Descriptor(fds[1])};
}

// A file or a disk. Others may wait for ever when they are opened or read.
Descriptor openFile(const std::string &path) {
    Descriptor fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!fd || fstat(fd.get(), &info) != 0) fail("cannot open " + path);
    if (!S_ISREG(info.st_mode) && !S_ISBLK(info.st_mode))
        throw std::runtime_error(path + " is no file");
    return fd;
}

// Descriptors that only QEMU keeps.
class Handed {
  public:
    // Its number, as text. QEMU opens a file again by its descriptor: its folder may be closed to
    // it.
    std::string add(Descriptor fd) {
        all_.push_back(std::move(fd));
        return std::to_string(all_.back().get());
    }
    std::vector<int> all() const {
        std::vector<int> numbers;
        for (const Descriptor &fd : all_) numbers.push_back(fd.get());
        return numbers;
    }

  private:
    std::vector<Descriptor> all_;
};

// "qcow2" or "raw". Throws for a qcow2 that names another file, which whoever made it has chosen.
std::string imageFormat(const Descriptor &file, const std::string &path) {
    constexpr std::size_t kVersionAt = 7, kBackingAt = 8, kFeaturesEnd = 79;
    constexpr unsigned kExternalData = 4;
    unsigned char head[80]{};
    if (pread(file.get(), head, sizeof head, 0) < 4 || memcmp(head, "QFI\xFB", 4) != 0)
        return "raw";
    const bool backed = std::any_of(head + kBackingAt, head + kBackingAt + 8,
                                    [](unsigned char byte) { return byte != 0; });
    if (backed || (head[kVersionAt] >= 3 && (head[kFeaturesEnd] & kExternalData) != 0))
        throw std::runtime_error(path +
                                 " is a qcow2 image that needs another file; \"qemu-img "
                                 "convert\" makes one that stands alone");
    return "qcow2";
}

using Words = std::vector<std::string>;

void append(Words &words, const Words &more) {
    words.insert(words.end(), more.begin(), more.end());
}

void appendDrive(Words &words, Handed &handed, const std::string &path, bool cdrom) {
    Descriptor file = openFile(path);
    const std::string format = cdrom ? "raw" : imageFormat(file, path);
    append(words, {"-add-fd", "set=1,fd=" + handed.add(std::move(file)), "-drive",
                   "file=/dev/fdset/1,if=ide,format=" + format +
                       (cdrom ? ",media=cdrom,readonly=on" : ",snapshot=on")});
}

Words bootWords(const PcOptions &options, Handed &handed) {
    // The firmware asks for Esc for a minute, the longest time it knows; where something boots
    // behind it, as long as a person needs to look.
    const Words uhci{"-device", "piix3-usb-uhci,id=usb"};
    Words words;
    switch (options.boot) {
        case Boot::kBios:
            append(words, {"-m", "32", "-boot", "menu=on,splash-time=60000"});
            append(words, uhci);
            break;
        case Boot::kGrub:
            append(words, {"-m", "96", "-boot", "menu=on,order=c,splash-time=20000", "-device",
                           "qemu-xhci,id=usb"});
            appendDrive(words, handed, options.folder + kGrubDisk, false);
            break;
        case Boot::kLinux:
            append(words,
                   {"-m", "96", "-device", "qemu-xhci,id=usb", "-kernel",
                    "/proc/self/fd/" + handed.add(openFile(options.folder + kKernel)), "-initrd",
                    "/proc/self/fd/" + handed.add(openFile(options.folder + kInitrd)), "-append",
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
    for (const std::string &path : files) try {
            const Descriptor file = openFile(path);
            if (options.boot == Boot::kDisk) imageFormat(file, path);
        } catch (const std::runtime_error &error) {
            return error.what() +
                   std::string(options.image.empty() ? "; scripts/computer makes it" : "");
        }
    return "";
}

Descriptor openState(const PcOptions &options) {
    return openFile(stateFile(options));
}

std::string stateFile(const PcOptions &options) {
    return options.folder + "/linux.state";
}

bool hasState(const PcOptions &options) {
    struct stat state {
    }, source{};
    const std::string file = stateFile(options);
    if (access(file.c_str(), R_OK) != 0 || stat(file.c_str(), &state) != 0) return false;
    for (const char *from : {kKernel, kInitrd})
        if (stat((options.folder + from).c_str(), &source) != 0 || source.st_mtime > state.st_mtime)
            return false;
    return true;
}

VirtualMachine::VirtualMachine(const PcOptions &options, int state) {
    Handed handed;
    Pair qmp = socketPair(), usb = socketPair();
    qmp_.emplace(qmp.own.release());
    usb_ = std::move(usb.own);
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
                "socket,id=qmp,fd=" + handed.add(std::move(qmp.other)),
                "-mon",
                "chardev=qmp,mode=control",
                "-chardev",
                "socket,id=hid,fd=" + handed.add(std::move(usb.other))};
    for (std::size_t n = 0; n < kSerialLines; ++n) {
        Pair line = socketPair();
        serial_[n] = std::move(line.own);
        const std::string name = "serial" + std::to_string(n);
        append(words, {"-chardev", "socket,id=" + name + ",fd=" + handed.add(std::move(line.other)),
                       "-serial", "chardev:" + name});
    }
    append(words, bootWords(options, handed));
    if (state >= 0) {
        Descriptor copy(fcntl(state, F_DUPFD_CLOEXEC, 0));
        append(words, {"-incoming", "fd:" + handed.add(std::move(copy))});
    }

    int output[2];
    if (pipe2(output, O_CLOEXEC) != 0) fail("pipe");
    output_ = Descriptor(output[0]);
    const Descriptor end(output[1]), nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
    Launch qemu;
    qemu.arguments = words;
    qemu.directory = "/";
    qemu.input = nothing.get();
    qemu.output = qemu.error = end.get();
    qemu.ownSession = true;
    qemu.descriptors = handed.all();
    qemu.withoutRights = true;
    pid_ = launch(qemu);
}

VirtualMachine::~VirtualMachine() {
    if (pid_ <= 0) return;
    kill();
    awaitExit(pid_);
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
    failed_ = WIFEXITED(status) && WEXITSTATUS(status) != 0;
    if (WIFSIGNALED(status))
        return std::string("it was killed by the signal \"") + strsignal(WTERMSIG(status)) + "\"";
    return WEXITSTATUS(status) == 0
               ? "it switched itself off"
               : "QEMU ended with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace sim
