#include "gateway/reporter.h"

#include <poll.h>
#include <unistd.h>

#include "terminal/printable.h"

namespace gateway {

// A pipe that can take something takes a line of this length at once.
bool Reporter::write(const std::string &line) {
    constexpr std::size_t kLongest = 1000;
    pollfd writable{STDOUT_FILENO, POLLOUT, 0};
    if (poll(&writable, 1, 0) != 1 || (writable.revents & POLLOUT) == 0) return false;
    const std::string text = quillon::printable(line.substr(0, kLongest)) + "\n";
    return ::write(STDOUT_FILENO, text.data(), text.size()) > 0;
}

void Reporter::tell(const std::string &line) {
    if (lost_ > 0 && write(std::to_string(lost_) + " lines were left out.")) lost_ = 0;
    if (!write(line)) ++lost_;
}

void Reporter::operator()(const std::string &line) {
    constexpr unsigned kMostInSecond = 20;
    const auto now = Clock::now();
    if (now - second_ >= std::chrono::seconds(1)) {
        second_ = now;
        inSecond_ = 0;
    }
    if (++inSecond_ > kMostInSecond)
        ++lost_;
    else
        tell(line);
}

}  // namespace gateway
