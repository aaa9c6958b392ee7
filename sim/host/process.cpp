#include "sim/host/process.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/close_range.h>
#include <linux/securebits.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>

#include "sim/host/paths.h"

namespace sim {
namespace {

// The merged environment for execvpe(). Made before the fork: beside other threads, the child must
// not allocate memory.
class Environment {
  public:
    Environment(const std::vector<std::string> &additions, bool pathOnly) {
        for (char **entry = environ; *entry != nullptr; ++entry)
            if (!pathOnly || std::string(*entry).rfind("PATH=", 0) == 0)
                texts_.emplace_back(*entry);
        for (const std::string &addition : additions) {
            const std::string name = addition.substr(0, addition.find('=') + 1);
            for (std::size_t i = 0; i < texts_.size(); ++i)
                if (texts_[i].rfind(name, 0) == 0)
                    texts_.erase(texts_.begin() + static_cast<long>(i));
            texts_.push_back(addition);
        }
        pointers_.reserve(texts_.size() + 1);
        for (std::string &text : texts_) pointers_.push_back(text.data());
        pointers_.push_back(nullptr);
    }
    char **pointers() { return pointers_.data(); }

  private:
    std::vector<std::string> texts_;
    std::vector<char *> pointers_;
};

void toDescriptor(int from, int to) {
    if (from >= 0) dup2(from, to);
}

// An empty folder in the place of each where users and their programs keep things; the others can
// only be read.
bool hideFiles() {
    if (syscall(SYS_unshare, CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return false;
    mount_attr readOnly{};
    readOnly.attr_set = MOUNT_ATTR_RDONLY;
    if (syscall(SYS_mount_setattr, AT_FDCWD, "/", AT_RECURSIVE, &readOnly, sizeof readOnly) != 0)
        return false;
    for (const char *folder :
         {"/home", "/root", "/run", "/data", kPrivateDir, "/dev/shm", "/tmp", "/var/tmp"})
        if (mount("tmpfs", folder, "tmpfs", MS_NOSUID | MS_NODEV, "size=1g,mode=1777") != 0 &&
            errno != ENOENT)
            return false;
    return true;
}

// The system's own calls: those of the C library tell all threads, which do not exist here.
bool giveUpRights(unsigned nobody) {
    constexpr unsigned kLastCapability = 63;
    constexpr unsigned kNoRoot = SECBIT_NOROOT | SECBIT_NOROOT_LOCKED;
    if (!hideFiles()) return false;
    for (unsigned n = 0; n <= kLastCapability; ++n) prctl(PR_CAPBSET_DROP, n, 0, 0, 0);
    prctl(PR_SET_SECUREBITS, kNoRoot, 0, 0, 0);
    const bool inNoGroup = syscall(SYS_setgroups, 0, nullptr) == 0;
    // In a user namespace with one user there is no other, and setgroups() is refused.
    if (syscall(SYS_setresgid, nobody, nobody, nobody) != 0 && errno != EINVAL) return false;
    const bool other = syscall(SYS_setresuid, nobody, nobody, nobody) == 0;
    if (other ? !inNoGroup : errno != EINVAL) return false;
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[2]{};
    return syscall(SYS_capset, &header, none) == 0 && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

// A user that nobody else is, from the range for users of a service's life time.
unsigned randomNobody() {
    constexpr unsigned kFirst = 61184, kCount = 4336;
    unsigned random = 0;
    if (getrandom(&random, sizeof random, GRND_NONBLOCK) != sizeof random)
        random = static_cast<unsigned>(getpid());
    return kFirst + random % kCount;
}

// Runs between fork and exec, so it makes only calls that are safe beside other threads.
[[noreturn]] void become(const Launch &what, char *const *arguments, char **environment,
                         unsigned nobody, int report) {
    if (what.ownSession) setsid();
    for (int sig = 1; sig < NSIG; ++sig) signal(sig, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    toDescriptor(what.input, STDIN_FILENO);
    toDescriptor(what.output, STDOUT_FILENO);
    toDescriptor(what.error, STDERR_FILENO);
    // Other threads may be opening something, and the caller may have left something open.
    constexpr unsigned kFirst = 3, kLast = ~0U;
    if (what.withoutRights) syscall(SYS_close_range, kFirst, kLast, CLOSE_RANGE_CLOEXEC);
    for (const int fd : what.descriptors) fcntl(fd, F_SETFD, 0);
    const bool may = !what.withoutRights || giveUpRights(nobody);
    if (may && (what.directory.empty() || chdir(what.directory.c_str()) == 0))
        execvpe(arguments[0], arguments, environment);
    const int error = errno;
    [[maybe_unused]] const ssize_t n = write(report, &error, sizeof error);
    _exit(127);
}

std::string readAll(int fd) {
    std::string text;
    char chunk[4096];
    for (ssize_t n; (n = read(fd, chunk, sizeof chunk)) > 0;)
        text.append(chunk, static_cast<std::size_t>(n));
    return text;
}

}  // namespace

pid_t launch(const Launch &what) {
    std::vector<std::string> texts = what.arguments;
    std::vector<char *> arguments;
    arguments.reserve(texts.size() + 1);
    for (std::string &text : texts) arguments.push_back(text.data());
    arguments.push_back(nullptr);
    Environment environment(what.environment, what.withoutRights);

    int report[2];  // closed by a successful exec
    if (pipe2(report, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe: " + std::string(strerror(errno)));
    const unsigned nobody = randomNobody();
    const pid_t pid = fork();
    if (pid == 0) become(what, arguments.data(), environment.pointers(), nobody, report[1]);
    close(report[1]);
    int error = pid < 0 ? errno : 0;
    if (pid > 0 && read(report[0], &error, sizeof error) > 0) awaitExit(pid);
    close(report[0]);
    if (error != 0)
        throw std::runtime_error("cannot start " + what.arguments[0] + ": " + strerror(error));
    return pid;
}

int awaitExit(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) continue;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void runTool(const std::vector<std::string> &arguments, const std::string &input) {
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe: " + std::string(strerror(errno)));
    Launch tool;
    tool.arguments = arguments;
    tool.input = in[0];
    tool.output = tool.error = out[1];
    const pid_t pid = launch(tool);
    close(in[0]);
    close(out[1]);
    const bool fed = write(in[1], input.data(), input.size()) == static_cast<ssize_t>(input.size());
    close(in[1]);
    const std::string said = readAll(out[0]);
    close(out[0]);
    if (awaitExit(pid) != 0 || !fed) throw std::runtime_error(arguments[0] + ": " + said);
}

}  // namespace sim
