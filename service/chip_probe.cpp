#include "service/chip_probe.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

namespace service {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using namespace std::string_literals;

struct Speed {
    int number;
    speed_t flag;
};
constexpr Speed kSpeeds[] = {{115200, B115200}, {9600, B9600}};

std::string readFor(int fd, milliseconds time) {
    std::string all;
    const auto end = Clock::now() + time;
    for (;;) {
        const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now());
        pollfd readable{fd, POLLIN, 0};
        if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) <= 0)
            return all;
        char bytes[64];
        const ssize_t size = read(fd, bytes, sizeof bytes);
        if (size <= 0) return all;
        all.append(bytes, static_cast<std::size_t>(size));
        if (all.size() >= 64) return all;  // a line that never falls silent
    }
}

void setSpeed(int fd, speed_t speed) {
    termios line{};
    if (tcgetattr(fd, &line) != 0) throw std::runtime_error("it is no serial line");
    cfmakeraw(&line);
    line.c_cflag |= CLOCAL | CREAD;
    cfsetspeed(&line, speed);
    if (tcsetattr(fd, TCSANOW, &line) != 0) throw std::runtime_error("it takes no speed");
    tcflush(fd, TCIOFLUSH);
}

}  // namespace

std::optional<ProbedChip> probeChip(const std::string &device, bool isCh9329) {
    // Request, first bytes of the answer, and the length of the whole answer.
    const std::string request = isCh9329 ? "\x57\xAB\0\x01\0\x03"s : "\x57\xAB\x80\x40"s;
    const std::string head = isCh9329 ? "\x57\xAB\0\x81\x08"s : "\x57\xAB\x12"s;
    const std::size_t whole = isCh9329 ? 14 : 11;
    constexpr std::size_t kUsbAt = 6;  // byte of the CH9329's answer: 1 while a computer is on

    const int fd = open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) throw std::runtime_error("cannot open " + device + ": " + strerror(errno));
    std::optional<ProbedChip> found;
    try {
        for (const Speed &speed : kSpeeds) {
            setSpeed(fd, speed.flag);
            if (write(fd, request.data(), request.size()) < 0) continue;
            const std::string answer = readFor(fd, milliseconds(1000));
            const std::size_t at = answer.find(head);
            if (at == std::string::npos || answer.size() - at < whole) continue;
            found = ProbedChip{speed.number, isCh9329 && answer[at + kUsbAt] == 1};
            break;
        }
    } catch (const std::runtime_error &error) {
        close(fd);
        throw std::runtime_error(device + ": " + error.what());
    }
    close(fd);
    return found;
}

}  // namespace service
