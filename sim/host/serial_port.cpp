#include "sim/host/serial_port.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "sim/host/device_folder.h"
#include "sim/host/paths.h"

namespace sim {
namespace {

constexpr std::size_t kFifo = 16;  // bytes that a UART hands over at once

void require(bool ok, const std::string &what) {
    if (!ok) throw std::runtime_error(what + ": " + strerror(errno));
}

Clock::duration wireTime(std::size_t count, int baud) {
    return std::chrono::nanoseconds(10'000'000'000LL * static_cast<long long>(count) /
                                    std::max(baud, 1));
}

int toNumber(speed_t flag) {
    switch (flag) {
        case B2400:
            return 2400;
        case B4800:
            return 4800;
        case B9600:
            return 9600;
        case B38400:
            return 38400;
        case B57600:
            return 57600;
        case B115200:
            return 115200;
        default:
            return 0;
    }
}

// No echo and no translation, so that nothing comes back before the host sets its own options.
void makeRaw(int fd) {
    termios options{};
    require(tcgetattr(fd, &options) == 0, "tcgetattr");
    cfmakeraw(&options);
    require(tcsetattr(fd, TCSANOW, &options) == 0, "tcsetattr");
}

void mountDevice(const std::string &terminal, const std::string &path) {
    umount2(path.c_str(), MNT_DETACH);  // of an earlier board
    const int target = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    require(target >= 0, path);
    close(target);
    require(mount(terminal.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0, path);
}

}  // namespace

SerialPort::SerialPort(const std::string &name, const std::string &devices, bool paced, Tap tap)
    : paced_(paced), tap_(std::move(tap)) {
    const std::string terminals = devices.empty() ? kPtyDir : "/dev/pts";
    master_ = open((terminals + "/ptmx").c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    // The system's own terminals may have theirs elsewhere only.
    if (master_ < 0 && !devices.empty())
        master_ = open("/dev/ptmx", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    require(master_ >= 0, "open a pseudo-terminal");
    int unlocked = 0, number = 0;
    require(ioctl(master_, TIOCSPTLCK, &unlocked) == 0 && ioctl(master_, TIOCGPTN, &number) == 0,
            "unlock a pseudo-terminal");
    const std::string slave = terminals + "/" + std::to_string(number);
    // Held open, so that the settings stay and the master sees no hang-up between two opens.
    keeper_ = open(slave.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    require(keeper_ >= 0, "open " + slave);
    makeRaw(keeper_);
    if (devices.empty()) {
        mountDevice(slave, "/dev/" + name);
        return;
    }
    require(shareWithGroup(keeper_, devices), "give " + slave + " to the group of " + devices);
    linkDevice(devices, name, slave);
    published_ = devices + "/" + name;
}

SerialPort::~SerialPort() {
    // The terminal will be somebody else's.
    if (!published_.empty()) unlink(published_.c_str());
    close(keeper_);
    close(master_);
}

int SerialPort::hostBaud() const {
    termios options{};
    return tcgetattr(keeper_, &options) == 0 ? toNumber(cfgetospeed(&options)) : 0;
}

Clock::duration SerialPort::jitter() const {
    // Without pacing the times are the PC's, which may run other processes in between.
    return paced_ ? Clock::duration::zero() : std::chrono::milliseconds(100);
}

void SerialPort::run(Clock::time_point now) {
    takeFromHost(now);
    deviceTime_ = now;
    if (SerialDevice *device = device_) device->run(*this, now);
    while (!toDevice_.empty() && toDevice_.front().at <= now) {
        handToDevice(toDevice_.front());
        toDevice_.pop_front();
    }
    while (!toHost_.empty() && toHost_.front().at <= now) {
        handToHost(toHost_.front());
        toHost_.pop_front();
    }
}

Clock::time_point SerialPort::due() const {
    SerialDevice *device = device_;
    auto first = device != nullptr ? device->due() : Clock::time_point::max();
    if (!toDevice_.empty()) first = toDevice_.front().at;
    if (!toHost_.empty()) first = std::min(first, toHost_.front().at);
    return first;
}

void SerialPort::takeFromHost(Clock::time_point now) {
    std::uint8_t bytes[4096];
    for (ssize_t n; (n = read(master_, bytes, sizeof bytes)) > 0;) {
        const auto count = static_cast<std::size_t>(n);
        const int baud = hostBaud();
        if (!paced_) {
            toDevice_.push_back({now, Bytes(bytes, bytes + count), baud});
            continue;
        }
        wireFree_ = std::max(wireFree_, now);
        for (std::size_t i = 0; i < count; ++i) {
            wireFree_ += wireTime(1, baud);
            toDevice_.push_back({wireFree_, Bytes{bytes[i]}, baud});
        }
    }
}

void SerialPort::handToDevice(const Chunk &chunk) {
    SerialDevice *device = device_;
    tap_(true, chunk.bytes);
    if (device == nullptr || device->baud() != chunk.baud) return;
    deviceTime_ = chunk.at;
    device->receive(*this, chunk.bytes.data(), chunk.bytes.size(), chunk.at);
}

void SerialPort::handToHost(const Chunk &chunk) {
    tap_(false, chunk.bytes);
    if (!open_ || hostBaud() != chunk.baud) return;
    // What does not fit is lost, as in a UART that nobody reads.
    [[maybe_unused]] const ssize_t n = write(master_, chunk.bytes.data(), chunk.bytes.size());
}

void SerialPort::send(const Bytes &bytes, int baud, Clock::duration delay) {
    // The device answers when the last bit has passed, not when this thread noticed it.
    answerFree_ = std::max(answerFree_, paced_ ? deviceTime_ : Clock::now()) + delay;
    if (!paced_) {
        toHost_.push_back({answerFree_, bytes, baud});
        return;
    }
    for (std::size_t i = 0; i < bytes.size(); i += kFifo) {
        const std::size_t end = std::min(i + kFifo, bytes.size());
        answerFree_ += wireTime(end - i, baud);
        toHost_.push_back(
            {answerFree_,
             Bytes(bytes.begin() + static_cast<long>(i), bytes.begin() + static_cast<long>(end)),
             baud});
    }
}

void SerialPort::hostClosed() {
    open_ = false;
    tcflush(keeper_, TCIFLUSH);
}

void SerialPort::powerCut() {
    tcflush(keeper_, TCIOFLUSH);
    takeFromHost(Clock::now());  // the flush leaves what this end has not read
    toDevice_.clear();
    toHost_.clear();
    wireFree_ = answerFree_ = {};
}

}  // namespace sim
