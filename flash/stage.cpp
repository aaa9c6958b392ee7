#include "flash/stage.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <system_error>
#include <thread>

#include "main/chip_setup.h"
#include "myserial.h"
#include "software_config.h"
#include "state.h"
#include "upload.h"

namespace flash {
namespace {

// Reads the microcontroller's board list, "(...)"; incomplete when the upload ended first or a
// read failed.
std::string readBoardList(const std::atomic<bool> &ended) {
    constexpr std::size_t kMostBytes = 128;
    std::string list;
    while (!ended && list.size() < kMostBytes && (list.empty() || list.back() != ')')) {
        if (sharedLoad(l_isupdata) != 2) {
            usleep(1000);
            continue;
        }
        char piece[64];
        const int count = MySerial::nread(piece, sizeof piece, 0);
        if (count < 0) break;
        list.append(piece, static_cast<std::size_t>(count));
        list.erase(0, list.find('('));  // bytes before the list
    }
    return list;
}

int runStage(const std::string &file) {
    Singleton<SoftwareConfig>::getInstance()->ReadConfig();
    openPort();
    if (MySerial::fd_ < 0) return 1;
    MySerial::discardInput();  // unread bytes of an earlier upload
    std::atomic<bool> ended{false};
    std::thread upload([&] {
        uploadFile(file.c_str());
        ended = true;
    });
    std::string list = readBoardList(ended);
    initUploadANDloop(list.data());
    upload.join();
    MySerial::close_port();
    return 0;
}

}  // namespace

Stage::Stage(const std::string &file) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    fflush(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        // The parent handles these: it ends this process and reports how the boards are left.
        for (const int sig : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) signal(sig, SIG_IGN);
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
        int status = 1;
        try {
            status = runStage(file);
        } catch (const std::exception &error) {
            puts(error.what());
        }
        fflush(nullptr);
        _exit(status);
    }
    const int error = errno;
    close(ends[1]);
    log_ = ends[0];
    if (pid_ > 0) return;
    close(log_);
    throw std::system_error(error, std::generic_category(), "fork");
}

Stage::~Stage() {
    if (pid_ > 0) kill(pid_, SIGKILL);
    end();
    close(log_);
}

std::string Stage::end() {
    int status = 0;
    if (pid_ <= 0 || waitpid(pid_, &status, 0) != pid_) return "";
    pid_ = -1;
    return WIFEXITED(status) ? "status " + std::to_string(WEXITSTATUS(status))
                             : "signal " + std::to_string(WTERMSIG(status));
}

}  // namespace flash
