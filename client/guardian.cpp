#include <quillon/guardian.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>

namespace quillon {

Guardian::Guardian(const std::function<void()> &cleanUp) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::runtime_error(std::string("pipe: ") + strerror(errno));
    child_ = fork();
    if (child_ < 0) throw std::runtime_error(std::string("fork: ") + strerror(errno));
    if (child_ > 0) {
        close(ends[0]);
        pipe_ = ends[1];
        return;
    }
    // What ends the other process, and the shell that takes the terminal back, must not end this.
    for (const int sig : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGTTOU, SIGPIPE})
        signal(sig, SIG_IGN);
    close(ends[1]);
    char goodbye = 0;
    ssize_t n = 0;
    do n = read(ends[0], &goodbye, 1);
    while (n < 0 && errno == EINTR);
    try {
        if (n == 0) cleanUp();
    } catch (const std::exception &) {
        _exit(1);  // there is nobody to tell
    }
    _exit(0);
}

Guardian::~Guardian() {
    const char goodbye = 1;
    [[maybe_unused]] const ssize_t n = write(pipe_, &goodbye, 1);
    close(pipe_);
    while (waitpid(child_, nullptr, 0) < 0 && errno == EINTR) continue;
}

}  // namespace quillon
