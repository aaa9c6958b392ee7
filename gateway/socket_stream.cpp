#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <optional>

#include "gateway/stream.h"

// Behind stream.h, for Boost 1.74 needs <utility> before these.
#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ssl/host_name_verification.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>

namespace gateway {
namespace {

using Socket = asio::generic::stream_protocol::socket;

class SocketStream : public Stream {
  public:
    explicit SocketStream(Socket socket) : socket_(std::move(socket)) {}

    asio::awaitable<std::size_t> read(std::uint8_t *to, std::size_t most, std::size_t &) override {
        if (tls_)
            co_return co_await tls_->async_read_some(asio::buffer(to, most), asio::use_awaitable);
        co_return co_await socket_.async_read_some(asio::buffer(to, most), asio::use_awaitable);
    }

    asio::awaitable<void> write(const rfb::Bytes &bytes) override {
        if (tls_)
            co_await asio::async_write(*tls_, asio::buffer(bytes), asio::use_awaitable);
        else
            co_await asio::async_write(socket_, asio::buffer(bytes), asio::use_awaitable);
    }

    asio::awaitable<void> startTls(std::shared_ptr<asio::ssl::context> context) override {
        context_ = std::move(context);
        tls_.emplace(socket_, *context_);
        co_await tls_->async_handshake(asio::ssl::stream_base::server, asio::use_awaitable);
    }

    asio::awaitable<void> startTlsTo(const std::string &host,
                                     const std::string &authority) override {
        context_ = std::make_shared<asio::ssl::context>(asio::ssl::context::tls_client);
        if (authority.empty())
            context_->set_default_verify_paths();
        else
            context_->load_verify_file(authority);
        SSL_CTX_set_min_proto_version(context_->native_handle(), TLS1_2_VERSION);
        tls_.emplace(socket_, *context_);
        tls_->set_verify_mode(asio::ssl::verify_peer);
        tls_->set_verify_callback(asio::ssl::host_name_verification(host));
        boost::system::error_code noAddress;
        asio::ip::make_address(host, noAddress);
        // An address is no name to choose a certificate by (RFC 6066).
        if (noAddress) SSL_set_tlsext_host_name(tls_->native_handle(), host.c_str());
        co_await tls_->async_handshake(asio::ssl::stream_base::client, asio::use_awaitable);
    }

    void close() override {
        boost::system::error_code ignored;
        socket_.shutdown(asio::socket_base::shutdown_both, ignored);
        socket_.close(ignored);
    }

    int socket() override { return socket_.native_handle(); }

  private:
    Socket socket_;
    std::shared_ptr<asio::ssl::context> context_;
    std::optional<asio::ssl::stream<Socket &>> tls_;
};

}  // namespace

std::unique_ptr<Stream> socketStream(Socket socket) {
    return std::make_unique<SocketStream>(std::move(socket));
}

void watchClosely(int socket, bool closely) {
    const int on = 1, idle = closely ? 1 : 30, interval = closely ? 1 : 10, count = 3;
    const unsigned patience = 60000;  // ms
    setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setsockopt(socket, IPPROTO_TCP, TCP_KEEPIDLE, &idle, sizeof idle);
    setsockopt(socket, IPPROTO_TCP, TCP_KEEPINTVL, &interval, sizeof interval);
    setsockopt(socket, IPPROTO_TCP, TCP_KEEPCNT, &count, sizeof count);
    setsockopt(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, &patience, sizeof patience);
}

std::chrono::milliseconds silence(int socket) {
    tcp_info info{};
    socklen_t size = sizeof info;
    if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return {};
    return std::chrono::milliseconds(info.tcpi_last_ack_recv);
}

}  // namespace gateway
