#include "sim/host/registers.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "sim/host/device_folder.h"

namespace sim {
namespace {

constexpr char kDevMem[] = "/dev/mem";
constexpr off_t kSize = 0x12300000;                                 // all registers lie below
constexpr std::uint32_t kUartFlags = 0x12130018, kUartIdle = 0x90;  // both FIFOs empty

}  // namespace

Registers::Registers(const std::string &devices) {
    if (!devices.empty()) published_ = devices + "/mem";
    const std::string path = devices.empty() ? kDevMem : published_;
    struct stat former {};
    if (!devices.empty() && lstat(path.c_str(), &former) == 0 &&
        (!S_ISREG(former.st_mode) || former.st_size != kSize))
        throw std::runtime_error(path + " exists and is not ours");
    unlink(path.c_str());
    fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd_ < 0 || ftruncate(fd_, kSize) != 0 ||
        (!devices.empty() && !shareWithGroup(fd_, devices)))
        throw std::runtime_error("cannot make " + path + ": " + strerror(errno));
    set(kUartFlags, kUartIdle);
}

Registers::~Registers() {
    if (!published_.empty()) unlink(published_.c_str());
    close(fd_);
}

std::uint32_t Registers::get(std::uint32_t address) const {
    std::uint32_t value = 0;
    if (pread(fd_, &value, sizeof value, address) != sizeof value) value = 0;
    return value;
}

void Registers::set(std::uint32_t address, std::uint32_t value) {
    if (pwrite(fd_, &value, sizeof value, address) != sizeof value)
        throw std::runtime_error("cannot set a register: " + std::string(strerror(errno)));
}

bool Registers::shadowDevMem() const {
    struct stat ours {
    }, theirs{};
    return fstat(fd_, &ours) == 0 && lstat(kDevMem, &theirs) == 0 && S_ISREG(theirs.st_mode) &&
           ours.st_dev == theirs.st_dev && ours.st_ino == theirs.st_ino;
}

}  // namespace sim
