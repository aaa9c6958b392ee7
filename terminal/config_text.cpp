#include "terminal/config_text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace quillon {

std::optional<std::string> readConfigText(const std::string &file) {
    constexpr off_t kLargest = 1 << 20;
    const int fd = open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0 && (errno == ENOENT || errno == ENOTDIR)) return std::nullopt;
    if (fd < 0) throw std::runtime_error(file + ": " + strerror(errno));
    struct stat status {};
    const bool small =
        fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= kLargest;
    std::string text(small ? static_cast<std::size_t>(status.st_size) : 0, '\0');
    const ssize_t size = small ? read(fd, text.data(), text.size()) : -1;
    close(fd);
    if (size < 0) throw std::runtime_error(file + " is not a file of 1 MiB at most");
    text.resize(static_cast<std::size_t>(size));
    return text;
}

void refuseForeignLetters(const std::string &text, const std::string &name) {
    std::istringstream lines(text);
    std::size_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        const std::size_t first = line.find_first_not_of(" \t");
        if (first != std::string::npos && line[first] == '#') continue;
        if (std::any_of(line.begin(), line.end(), [](unsigned char c) { return c > 0x7E; }))
            throw std::runtime_error(name + ", line " + std::to_string(number) +
                                     ": only a line of comment may hold letters beyond ASCII");
    }
}

}  // namespace quillon
