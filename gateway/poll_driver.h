// Calls what is written for poll(): when one of its sockets has something, or its time has come.
#pragma once

#include <poll.h>

#include <chrono>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

// Boost 1.74 forgets to include <utility>, so it stands before.
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

namespace gateway {

class PollDriver {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// ready must stay callable as long as the object lives.
    PollDriver(boost::asio::io_context &context, std::function<void()> ready)
        : context_(context), timer_(context), ready_(std::move(ready)) {}
    ~PollDriver();

    /// The sockets to wait for from now on; what was waited for before stays when it throws
    /// std::system_error. Copies of the descriptors are waited for, so the sockets may be closed
    /// before.
    void watch(const std::vector<pollfd> &sockets);
    /// When to call at the latest; Time::max() for never.
    void callAt(Time time);
    /// Waits for nothing any more.
    void stop();

  private:
    void wait(boost::asio::posix::stream_descriptor &socket);

    boost::asio::io_context &context_;
    boost::asio::steady_timer timer_;
    const std::function<void()> ready_;
    std::vector<std::unique_ptr<boost::asio::posix::stream_descriptor>> sockets_;
    Time time_ = Time::max();  ///< that the timer is set to; max: it is not set
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace gateway
