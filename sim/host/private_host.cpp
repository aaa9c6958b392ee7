#include "sim/host/private_host.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>

#include "sim/host/paths.h"
#include "sim/host/process.h"

namespace sim {
namespace {

const std::string kOldRoot = "/.old";

void require(bool ok, const std::string &what) {
    if (!ok) throw std::runtime_error(what + ": " + strerror(errno));
}

void makeDir(const std::string &path) {
    require(mkdir(path.c_str(), 0755) == 0 || errno == EEXIST, "mkdir " + path);
}

void mountAt(const char *type, const std::string &path, unsigned long flags, const char *data) {
    makeDir(path);
    require(mount(type, path.c_str(), type, flags, data) == 0, std::string("mount ") + type);
}

void bindAt(const std::string &from, const std::string &to) {
    require(mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, "bind " + to);
}

void bindDir(const std::string &path) {
    makeDir(path);
    bindAt(kOldRoot + path, path);
}

void bindFile(const std::string &path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    require(fd >= 0, "create " + path);
    close(fd);
    bindAt(kOldRoot + path, path);
}

void bindTopLevel() {
    // These are made new: the PC's own /version and /data stay out of reach.
    const std::set<std::string> made{".", "..", "dev", "proc", "version", "data"};
    DIR *root = opendir(kOldRoot.c_str());
    require(root != nullptr, "read the root folder");
    while (const dirent *entry = readdir(root)) {
        const std::string path = std::string("/") + entry->d_name;
        struct stat info {};
        if (made.count(entry->d_name) != 0 || path == kPrivateDir || path == kOldRoot) continue;
        if (lstat((kOldRoot + path).c_str(), &info) != 0) continue;
        if (S_ISDIR(info.st_mode)) bindDir(path);
        if (S_ISREG(info.st_mode)) bindFile(path);
        if (!S_ISLNK(info.st_mode)) continue;
        char target[4096] = "";
        if (readlink((kOldRoot + path).c_str(), target, sizeof target - 1) > 0)
            require(symlink(target, path.c_str()) == 0, "link " + path);
    }
    closedir(root);
}

void makeDev() {
    mountAt("tmpfs", "/dev", MS_NOSUID, "mode=0755");
    for (const char *node : {"null", "zero", "full", "random", "urandom", "tty"})
        bindFile(std::string("/dev/") + node);
    bindDir("/dev/pts");
    require(symlink("pts/ptmx", "/dev/ptmx") == 0, "link /dev/ptmx");
    mountAt("tmpfs", "/dev/shm", MS_NOSUID | MS_NODEV, "mode=1777");
    require(symlink("/proc/self/fd", "/dev/fd") == 0 &&
                symlink("/proc/self/fd/0", "/dev/stdin") == 0 &&
                symlink("/proc/self/fd/1", "/dev/stdout") == 0 &&
                symlink("/proc/self/fd/2", "/dev/stderr") == 0,
            "link /dev/fd");
}

void makeProc() {
    makeDir("/proc");
    if (mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) == 0) return;
    // A container that hides parts of its /proc does not allow a new one.
    bindAt(kOldRoot + "/proc", "/proc");
}

void makeTools() {
    makeDir(kToolDir);
    const std::string reboot = std::string(kToolDir) + "/reboot";
    std::ofstream(reboot) << "#!/bin/sh\necho 'a private host does not reboot the PC'\n";
    require(chmod(reboot.c_str(), 0755) == 0, "make " + reboot);
}

void assembleRoot() {
    char cwd[4096];
    if (getcwd(cwd, sizeof cwd) == nullptr) strcpy(cwd, "/");
    require(mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) == 0, "detach the mounts");
    require(mount("tmpfs", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") == 0,
            "mount the new root");
    makeDir("/tmp" + kOldRoot);
    require(syscall(SYS_pivot_root, "/tmp", ("/tmp" + kOldRoot).c_str()) == 0, "pivot_root");
    require(chdir("/") == 0, "chdir");

    bindTopLevel();
    makeDev();
    makeProc();
    makeDir("/version");
    makeDir("/data");
    makeDir(kPrivateDir);
    makeTools();
    mountAt("devpts", kPtyDir, MS_NOSUID | MS_NOEXEC, "newinstance,ptmxmode=0666,mode=0600");
    require(umount2(kOldRoot.c_str(), MNT_DETACH) == 0, "leave the old root");
    rmdir(kOldRoot.c_str());
    if (chdir(cwd) != 0) require(chdir("/") == 0, "chdir");
}

void writeText(const char *path, const std::string &text) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    require(fd >= 0, path);
    const bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    require(ok, path);
}

void unshareAll() {
    constexpr int kSpaces = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC;
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (user == 0 && unshare(kSpaces) == 0) return;
    require(unshare(kSpaces | CLONE_NEWUSER) == 0,
            "the kernel refuses private namespaces; as root, allow them with "
            "\"sysctl -w kernel.unprivileged_userns_clone=1\" or, where AppArmor guards them, "
            "\"sysctl -w kernel.apparmor_restrict_unprivileged_userns=0\"");
    writeText("/proc/self/setgroups", "deny");
    writeText("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    writeText("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

pid_t child = -1;

void passOn(int sig) {
    kill(child, sig);
}

// Waits for the child, passes signals on to it, and reaps orphans.
int awaitChild() {
    struct sigaction pass {};
    pass.sa_handler = passOn;
    for (const int sig : {SIGINT, SIGTERM, SIGHUP}) sigaction(sig, &pass, nullptr);
    int status = 0;
    for (pid_t gone = 0; gone != child;) {
        gone = waitpid(-1, &status, 0);
        if (gone < 0 && errno != EINTR) return 1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

pid_t forkOrThrow() {
    fflush(nullptr);
    const pid_t pid = fork();
    require(pid >= 0, "fork");
    // From an earlier host of this process; the child has nobody to pass signals on to.
    struct sigaction now {};
    for (const int sig : {SIGINT, SIGTERM, SIGHUP})
        if (pid == 0 && sigaction(sig, nullptr, &now) == 0 && now.sa_handler == passOn)
            signal(sig, SIG_DFL);
    return pid;
}

// Three processes: one that makes the namespaces, so that the caller keeps its own; the first one
// in them, whose end ends all the others there; and body, which as the first one would not get the
// usual signals and could not be traced. Each dies with the one before it.

[[noreturn]] void runFirst(const std::function<int()> &body) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
        assembleRoot();
        putToolsInPath();
        runTool({"ip", "link", "set", "lo", "up"}, "");
        child = forkOrThrow();
    } catch (const std::exception &error) {
        fprintf(stderr, "cannot set up the private host: %s\n", error.what());
        _exit(1);
    }
    if (child == 0) exit(body());
    _exit(awaitChild());
}

[[noreturn]] void runInNamespaces(const std::function<int()> &body) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    try {
        unshareAll();
        child = forkOrThrow();
    } catch (const std::exception &error) {
        fprintf(stderr, "%s\n", error.what());
        _exit(1);
    }
    if (child == 0) runFirst(body);
    _exit(awaitChild());
}

}  // namespace

void putToolsInPath() {
    // Without a PATH there must be no empty entry, which would mean the current folder.
    const char *path = getenv("PATH");
    const std::string own = path != nullptr && *path != '\0' ? std::string(":") + path : "";
    setenv("PATH", (kToolDir + own + ":/usr/sbin:/usr/bin:/sbin:/bin").c_str(), 1);
}

int runOnPrivateHost(const std::function<int()> &body) {
    termios terminal{};
    const bool onTerminal = tcgetattr(STDIN_FILENO, &terminal) == 0;
    try {
        child = forkOrThrow();
    } catch (const std::exception &error) {
        fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    if (child == 0) runInNamespaces(body);
    const int status = awaitChild();
    if (onTerminal && tcgetpgrp(STDIN_FILENO) == getpgrp())
        tcsetattr(STDIN_FILENO, TCSANOW, &terminal);
    return status;
}

}  // namespace sim
