#include "flash/serial_holder.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace flash {
namespace {

namespace fs = std::filesystem;

bool holds(const fs::path &process, const std::string &device) {
    std::error_code error;
    for (const auto &link : fs::directory_iterator(process / "fd", error)) {
        std::error_code gone;
        if (fs::read_symlink(link.path(), gone) == device) return true;
    }
    if (error == std::errc::permission_denied)
        throw std::runtime_error("cannot see whether another process has " + device +
                                 "; only root can");
    return false;  // not open there, or the process has ended
}

}  // namespace

std::string deviceOf(const std::string &port) {
    const bool known =
        port.size() == 4 && port.rfind("COM", 0) == 0 && port[3] >= '0' && port[3] <= '3';
    return known ? std::string("/dev/ttyAMA") + port[3] : "";
}

std::string holderOf(const std::string &device) {
    for (const auto &process : fs::directory_iterator("/proc")) {
        const std::string id = process.path().filename();
        if (id.find_first_not_of("0123456789") != std::string::npos) continue;
        if (id == std::to_string(getpid()) || !holds(process.path(), device)) continue;
        std::string name;
        std::ifstream(process.path() / "comm") >> name;
        return "process " + id + " (" + name.append(")");
    }
    return "";
}

}  // namespace flash
