// A viewer from its first byte to its last: handshake, session, and what ends both.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "gateway/configuration.h"
#include "gateway/rfb/handshake.h"
#include "gateway/stream.h"
#include "gateway/viewer_session.h"

// Behind stream.h, for Boost 1.74 needs <utility> before these.
#include <boost/asio/steady_timer.hpp>

namespace gateway {

class ViewerLine : public std::enable_shared_from_this<ViewerLine> {
  public:
    struct Host {
        Desk &desk;
        const Limits &limits;
        /// What viewers of this listener have to show, and with what TLS.
        rfb::Credentials credentials;
        std::shared_ptr<asio::ssl::context> tls;
        std::string from;  ///< where the viewer comes from, for a person
        /// The viewer is through the handshake; false when there are too many.
        std::function<bool()> admit;
        /// How long to wait before a viewer with a wrong password is told so.
        std::function<std::chrono::milliseconds()> wrong;
        std::function<void(const std::string &)> report;
    };

    ViewerLine(asio::any_io_executor executor, std::unique_ptr<Stream> stream, Host host);

    /// Runs until the viewer leaves, or end() is called. Keeps the object alive.
    asio::awaitable<void> run();
    /// Lets go what the viewer holds, and closes the connection.
    void end();

  private:
    asio::awaitable<void> shakeHands();
    asio::awaitable<void> awaitSize();
    asio::awaitable<void> readAll();
    asio::awaitable<void> writeAll();
    asio::awaitable<std::size_t> readSome(std::uint8_t *to, std::size_t most);
    void setDeadline(std::chrono::seconds time);
    void take(const std::uint8_t *bytes, std::size_t count);
    void watchLine();

    const std::unique_ptr<Stream> stream_;
    const Host host_;
    std::optional<ViewerSession> session_;
    rfb::MessageReader reader_;
    asio::steady_timer wake_, deadline_, pause_, watch_;
    std::string reason_;  ///< why it ends, for the log
    double allowance_;    ///< bytes that may be read at once
    Desk::Time refilled_{};
    std::optional<Desk::Time> writing_;  ///< since when a write is under way
    bool came_ = false, closed_ = false, watched_ = false;
};

}  // namespace gateway
