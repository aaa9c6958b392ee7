// Addresses of a host's name, without waiting for the system longer than one wants to.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <functional>
#include <string>
#include <utility>
#include <vector>

// Behind <utility>, which Boost 1.74 forgets to include.
#include <boost/asio/awaitable.hpp>

namespace gateway {

/// Asks the system in a thread that nobody waits for, because it cannot be stopped, and a dead name
/// server takes many seconds. cancel: is set to what ends the waiting. Throws std::runtime_error in
/// words.
boost::asio::awaitable<std::vector<boost::asio::ip::tcp::endpoint>> resolve(
    boost::asio::io_context &context, std::string host, std::string port,
    std::function<void()> &cancel);

}  // namespace gateway
