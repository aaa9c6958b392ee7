#include "stranger.h"

#include <grp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstring>
#include <thread>

namespace test {
namespace {

constexpr unsigned kNobody = 65534;

socklen_t nameIn(sockaddr_un &address, const char *name) {
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path + 1, name, strlen(name));
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + strlen(name));
}

}  // namespace

Stranger::Stranger(const std::function<void()> &deed) {
    int ends[2];
    if (pipe(ends) != 0) return;
    child_ = fork();
    if (child_ == 0) {
        char did = 0;
        if (setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 && setuid(kNobody) == 0) {
            deed();
            did = 1;
        }
        [[maybe_unused]] const ssize_t n = write(ends[1], &did, 1);
        for (;;) pause();
    }
    char did = 0;
    exists_ = read(ends[0], &did, 1) == 1 && did == 1;
    close(ends[0]);
    close(ends[1]);
}

Stranger::~Stranger() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
}

void listenAt(const char *abstractName, const char *answer) {
    sockaddr_un address{};
    const socklen_t size = nameIn(address, abstractName);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    bind(fd, reinterpret_cast<sockaddr *>(&address), size);
    listen(fd, 8);
    std::thread([fd, answer] {
        for (;;) {
            const int client = accept(fd, nullptr, nullptr);
            send(client, answer, strlen(answer), MSG_NOSIGNAL);
        }
    }).detach();
}

int connectTo(const char *abstractName) {
    sockaddr_un address{};
    const socklen_t size = nameIn(address, abstractName);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    connect(fd, reinterpret_cast<sockaddr *>(&address), size);
    return fd;
}

void hearAt(const char *abstractName) {
    char text[256];
    const int fd = connectTo(abstractName);
    while (recv(fd, text, sizeof text, 0) > 0) continue;
}

}  // namespace test
