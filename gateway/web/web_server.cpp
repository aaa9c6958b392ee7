#include "gateway/web/web_server.h"

// Behind web_server.h, for Boost 1.74 needs <utility> before these.
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/websocket/stream.hpp>

namespace gateway {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
using Tcp = asio::ip::tcp;

constexpr std::size_t kMostHeader = 16384;

// RFB in binary messages of WebSocket, whose borders mean nothing.
class WebSocketStream : public Stream {
  public:
    explicit WebSocketStream(Tcp::socket socket) : socket_(std::move(socket)) {
        constexpr std::size_t kMostMessage = 16U << 20U;  // it is read in pieces
        socket_.read_message_max(kMostMessage);
        socket_.binary(true);
        // Pings and the like come between the bytes.
        socket_.control_callback(
            [this](beast::websocket::frame_type, beast::string_view) { countFrame(); });
    }

    asio::awaitable<void> accept(const WebRequest &request) {
        co_await socket_.async_accept(request, asio::use_awaitable);
    }
    asio::awaitable<std::size_t> read(std::uint8_t *to, std::size_t most,
                                      std::size_t &overhead) override {
        constexpr std::size_t kFrame = 64;  // what a frame without bytes costs
        std::size_t count = 0;
        while (count == 0) {
            count = co_await socket_.async_read_some(asio::buffer(to, most), asio::use_awaitable);
            countFrame();
        }
        overhead += kFrame * std::exchange(frames_, 0U);
        co_return count;
    }
    asio::awaitable<void> write(const rfb::Bytes &bytes) override {
        co_await socket_.async_write(asio::buffer(bytes), asio::use_awaitable);
    }
    asio::awaitable<void> startTls(std::shared_ptr<asio::ssl::context>) override {
        throw boost::system::system_error(asio::error::operation_not_supported);
        co_return;
    }
    asio::awaitable<void> startTlsTo(const std::string &, const std::string &) override {
        throw boost::system::system_error(asio::error::operation_not_supported);
        co_return;
    }
    void close() override {
        boost::system::error_code ignored;
        beast::get_lowest_layer(socket_).shutdown(Tcp::socket::shutdown_both, ignored);
        beast::get_lowest_layer(socket_).close(ignored);
    }
    int socket() override { return beast::get_lowest_layer(socket_).native_handle(); }

  private:
    // Ends a connection that sends frames without bytes, and nothing else.
    void countFrame() {
        constexpr unsigned kMost = 1000;
        if (++frames_ > kMost) close();
    }

    beast::websocket::stream<Tcp::socket> socket_;
    unsigned frames_ = 0;  ///< since read() returned
};

}  // namespace

asio::awaitable<void> serveBrowser(std::shared_ptr<Tcp::socket> socket, WebDoor &door,
                                   std::chrono::seconds patience, RunViewer runViewer,
                                   std::function<void()> usedToken) {
    // For all requests of a connection; a browser makes another one.
    asio::steady_timer deadline(socket->get_executor());
    deadline.expires_after(patience);
    deadline.async_wait([socket](const boost::system::error_code &error) {
        boost::system::error_code ignored;
        if (!error) socket->close(ignored);
    });
    beast::flat_buffer buffer(2 * kMostHeader);
    for (;;) {
        http::request_parser<http::empty_body> parser;
        parser.header_limit(kMostHeader);
        parser.body_limit(0);
        co_await http::async_read(*socket, buffer, parser, asio::use_awaitable);
        const WebRequest request = parser.release();
        WebDoor::Answer answer = door.answer(request);
        if (answer.usedToken) usedToken();
        if (answer.viewerOf) {
            // What a browser sends before the answer is no WebSocket.
            if (buffer.size() != 0) co_return;
            deadline.cancel();
            auto stream = std::make_unique<WebSocketStream>(std::move(*socket));
            co_await stream->accept(request);
            co_await runViewer(std::move(stream), *answer.viewerOf);
            co_return;
        }
        co_await http::async_write(*socket, answer.response, asio::use_awaitable);
        if (!answer.response.keep_alive()) co_return;
    }
}

}  // namespace gateway
