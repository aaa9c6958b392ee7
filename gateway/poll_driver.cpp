#include "gateway/poll_driver.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace gateway {

PollDriver::~PollDriver() {
    *alive_ = false;
}

void PollDriver::watch(const std::vector<pollfd> &sockets) {
    decltype(sockets_) watched;
    for (const pollfd &socket : sockets) {
        const int copy = fcntl(socket.fd, F_DUPFD_CLOEXEC, 0);
        if (copy < 0) throw std::system_error(errno, std::generic_category(), "cannot wait");
        watched.push_back(std::make_unique<boost::asio::posix::stream_descriptor>(context_));
        boost::system::error_code error;
        watched.back()->assign(copy, error);
        if (!error) continue;
        close(copy);
        throw boost::system::system_error(error, "cannot wait");
    }
    sockets_ = std::move(watched);
    for (const auto &socket : sockets_) wait(*socket);
}

void PollDriver::stop() {
    sockets_.clear();
    callAt(Time::max());
}

void PollDriver::wait(boost::asio::posix::stream_descriptor &socket) {
    using Descriptor = boost::asio::posix::stream_descriptor;
    socket.async_wait(Descriptor::wait_read,
                      [this, alive = alive_, &socket](const boost::system::error_code &error) {
                          if (error || !*alive) return;
                          // Before the call, which may replace the sockets.
                          wait(socket);
                          ready_();
                      });
}

void PollDriver::callAt(Time time) {
    if (time == time_) return;
    time_ = time;
    timer_.cancel();
    if (time == Time::max()) return;
    timer_.expires_at(time);
    timer_.async_wait([this, alive = alive_](const boost::system::error_code &error) {
        if (error || !*alive) return;
        time_ = Time::max();
        ready_();
    });
}

}  // namespace gateway
