#include "gateway/resolve.h"

#include <fcntl.h>
#include <netdb.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>

// Behind resolve.h, for Boost 1.74 needs <utility> before these.
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace gateway {
namespace {

namespace asio = boost::asio;
using Tcp = asio::ip::tcp;

// What the thread and who waits for it share.
struct Question {
    std::string host, port;
    std::vector<Tcp::endpoint> found;
    std::string error;  ///< empty: none
};

void ask(Question &question) {
    addrinfo wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    wanted.ai_flags = AI_ADDRCONFIG | AI_NUMERICSERV;
    addrinfo *all = nullptr;
    const int error = getaddrinfo(question.host.c_str(), question.port.c_str(), &wanted, &all);
    if (error != 0) question.error = error == EAI_SYSTEM ? strerror(errno) : gai_strerror(error);
    for (const addrinfo *one = all; one != nullptr; one = one->ai_next) {
        Tcp::endpoint endpoint;
        if (one->ai_addrlen > endpoint.capacity()) continue;
        memcpy(endpoint.data(), one->ai_addr, one->ai_addrlen);
        endpoint.resize(one->ai_addrlen);
        question.found.push_back(endpoint);
    }
    if (all != nullptr) freeaddrinfo(all);
}

}  // namespace

asio::awaitable<std::vector<Tcp::endpoint>> resolve(asio::io_context &context, std::string host,
                                                    std::string port,
                                                    std::function<void()> &cancel) {
    boost::system::error_code noAddress;
    const auto address = asio::ip::make_address(host, noAddress);
    if (!noAddress)
        co_return std::vector{Tcp::endpoint(address, static_cast<std::uint16_t>(std::stoi(port)))};
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw boost::system::system_error(errno, boost::system::system_category());
    asio::posix::stream_descriptor answered(context, ends[0]);
    const auto question =
        std::make_shared<Question>(Question{std::move(host), std::move(port), {}, ""});
    // The end of the thread closes the pipe, which is seen as something to read.
    try {
        std::thread([question, end = ends[1]] {
            ask(*question);
            close(end);
        }).detach();
    } catch (...) {
        close(ends[1]);
        throw;
    }
    cancel = [&answered] { answered.close(); };
    co_await answered.async_wait(asio::posix::stream_descriptor::wait_read, asio::use_awaitable);
    cancel = nullptr;
    // It may be cancelled when the answer is there.
    if (!answered.is_open()) throw boost::system::system_error(asio::error::operation_aborted);
    if (!question->error.empty()) throw std::runtime_error(question->error);
    if (question->found.empty()) throw std::runtime_error("its name has no address");
    co_return question->found;
}

}  // namespace gateway
