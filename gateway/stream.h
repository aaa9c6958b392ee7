// The connection of a viewer, or to a source of pictures, whatever it runs over.
#pragma once

#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/ssl/context.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

// Boost 1.74 forgets to include <utility>, so it stands before.
#include <boost/asio/awaitable.hpp>

#include "gateway/rfb/protocol.h"

namespace gateway {

namespace asio = boost::asio;

/// At most one read and one write at a time. Both throw boost::system::system_error, also after
/// close().
class Stream {
  public:
    virtual ~Stream() = default;
    /// Reads one byte at least, and most at most. overhead grows by what came around them.
    virtual asio::awaitable<std::size_t> read(std::uint8_t *to, std::size_t most,
                                              std::size_t &overhead) = 0;
    /// bytes must live until it is done.
    virtual asio::awaitable<void> write(const rfb::Bytes &bytes) = 0;
    /// Begins TLS, as the server. Throws boost::system::system_error.
    virtual asio::awaitable<void> startTls(std::shared_ptr<asio::ssl::context> context) = 0;
    /// Begins TLS, as the client of a host, which has to have a certificate for its name.
    /// authority: a file in PEM with what is believed, empty for what this machine believes. Throws
    /// boost::system::system_error.
    virtual asio::awaitable<void> startTlsTo(const std::string &host,
                                             const std::string &authority) = 0;
    virtual void close() = 0;
    /// The socket below, for its options.
    virtual int socket() = 0;
};

/// A TCP or unix socket.
std::unique_ptr<Stream> socketStream(asio::generic::stream_protocol::socket socket);

/// Whether the kernel asks the other machine every second if it is there, so that silence() tells,
/// or else every half minute. It ends a connection that is cut off after a minute. Nothing for a
/// socket that is not TCP's.
void watchClosely(int socket, bool closely);
/// How long ago the other machine answered; 0 for a socket that is not TCP's. A program that stands
/// still has a machine that answers.
std::chrono::milliseconds silence(int socket);

}  // namespace gateway
