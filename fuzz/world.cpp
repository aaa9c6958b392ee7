#include "fuzz/world.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "main/data_server.h"
#include "myserial.h"
#include "software_config.h"
#include "state.h"
#include "udpsocket/udpsocket.h"
#include "upload.h"

namespace world {

std::deque<std::string> serialInput, datagrams;
std::string serialOutput;
std::vector<std::string> sent;
std::function<void()> onSleep;

namespace {

// Above every descriptor of the fuzzer itself, and below FD_SETSIZE.
constexpr int kSerial = 900, kFirstSocket = 901, kLast = 1000;
int nextSocket = kFirstSocket;
std::chrono::nanoseconds elapsed{};
thread_local bool isTarget = false;  // in this thread sleep() is simulated

bool isOurs(int fd) {
    return fd >= kSerial && fd < kLast;
}

void pass(std::chrono::microseconds time) {
    elapsed += time;
    if (onSleep) onSleep();
}

ssize_t take(std::deque<std::string> &from, void *buffer, std::size_t size, bool whole) {
    if (from.empty()) {
        errno = EAGAIN;
        return -1;
    }
    std::string &first = from.front();
    const std::size_t count = std::min(size, first.size());
    memcpy(buffer, first.data(), count);
    first.erase(0, count);
    if (whole || first.empty()) from.pop_front();
    return static_cast<ssize_t>(count);
}

}  // namespace

void reset() {
    isTarget = true;
    serialInput.clear();
    datagrams.clear();
    serialOutput.clear();
    sent.clear();
    onSleep = nullptr;
    curtInfo = {};
    curLink_num = 0;
    strcpy(curLocalIp, "192.168.1.10");
    per = rel_enable = query_link = outCapsLock = outNumLock = false;
    version = true;
    vi_w = 1920;
    vi_h = 1080;
    l_isupdata = l_broadnum = 0;
    MySerial::fd_ = kSerial;
    static SoftwareConfig fresh;
    for (int id = 0; id < SoftwareConfig::kSoftWareConfigIDMax; ++id) {
        const auto item = static_cast<SoftwareConfig::SoftWareConfigID>(id);
        Singleton<SoftwareConfig>::getInstance()->SetConfig(item, fresh.GetConfig(item));
    }
    multiSocket = applySocket = htBeatSocket = &socket();
}

std::deque<std::string> chunks(FuzzedDataProvider &input) {
    std::deque<std::string> all;
    while (input.remaining_bytes() > 0) {
        std::string chunk = input.ConsumeBytesAsString(input.ConsumeIntegral<std::uint8_t>());
        if (!chunk.empty()) all.push_back(std::move(chunk));
    }
    return all;
}

UDPSocket &socket() {
    static UDPSocket *one = [] {
        auto *made = new UDPSocket;
        made->CreateUDPServer(1, 10, true, true);
        return made;
    }();
    return *one;
}

}  // namespace world

// The wrapped calls. Those on the fuzzer's own descriptors go on to the system.

using namespace world;

std::chrono::steady_clock::time_point steadyNow() __asm__(
    "__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point steadyNow() {
    return std::chrono::steady_clock::time_point(elapsed);
}

extern "C" {

int LLVMFuzzerInitialize(int *, char ***) {
    if (freopen("/dev/null", "w", stdout) == nullptr) abort();
    return 0;
}

ssize_t __real_read(int, void *, size_t);
ssize_t __wrap_read(int fd, void *buffer, size_t size) {
    return isOurs(fd) ? take(serialInput, buffer, size, false) : __real_read(fd, buffer, size);
}

ssize_t __real_write(int, const void *, size_t);
ssize_t __wrap_write(int fd, const void *bytes, size_t size) {
    if (!isOurs(fd)) return __real_write(fd, bytes, size);
    serialOutput.append(static_cast<const char *>(bytes), size);
    return static_cast<ssize_t>(size);
}

int __wrap_select(int, fd_set *readable, fd_set *, fd_set *, timeval *wait) {
    bool ready = false;
    for (int fd = kSerial; fd < kLast; ++fd) {
        if (!FD_ISSET(fd, readable)) continue;
        ready = !(fd == kSerial ? serialInput : datagrams).empty();
        if (!ready) FD_CLR(fd, readable);
    }
    if (ready || wait == nullptr) return ready ? 1 : -1;
    pass(std::chrono::seconds(wait->tv_sec) + std::chrono::microseconds(wait->tv_usec));
    *wait = {};
    return 0;
}

int __wrap_socket(int, int, int) {
    return nextSocket++;
}
int __wrap_setsockopt(int, int, int, const void *, socklen_t) {
    return 0;
}
int __wrap_bind(int, const sockaddr *, socklen_t) {
    return 0;
}

ssize_t __wrap_sendto(int, const void *bytes, size_t size, int, const sockaddr *, socklen_t) {
    sent.emplace_back(static_cast<const char *>(bytes), size);
    return static_cast<ssize_t>(size);
}

ssize_t __wrap_recvfrom(int, void *buffer, size_t size, int, sockaddr *from, socklen_t *fromSize) {
    sockaddr_in console{};
    console.sin_family = AF_INET;
    console.sin_port = htons(5000);
    console.sin_addr.s_addr = htonl(0xC0A80114);
    memcpy(from, &console, std::min<std::size_t>(*fromSize, sizeof console));
    return take(datagrams, buffer, size, true);
}

int __wrap_usleep(useconds_t time) {
    pass(std::chrono::microseconds(time));
    return 0;
}

// The fuzzer's own threads sleep too, and must really do so.
unsigned __real_sleep(unsigned);
unsigned __wrap_sleep(unsigned seconds) {
    if (!isTarget) return __real_sleep(seconds);
    pass(std::chrono::seconds(seconds));
    return 0;
}

int __wrap_system(const char *) {
    return 0;
}
int __wrap_msgsnd(int, const void *bytes, size_t size, int) {
    sent.emplace_back(static_cast<const char *>(bytes) + sizeof(long), size);
    return 0;
}

void *__wrap_HI_MPI_SYS_Mmap(unsigned long long, unsigned) {
    static unsigned reg;
    return &reg;
}
int __wrap_HI_MPI_SYS_Munmap(void *, unsigned) {
    return 0;
}
}
