// Browsers on one listening socket.
#pragma once

#include <functional>
#include <memory>

#include "gateway/stream.h"
#include "gateway/web/door.h"

// Behind stream.h, for Boost 1.74 needs <utility> before these.
#include <boost/asio/ip/tcp.hpp>

namespace gateway {

/// Runs a viewer that came by WebSocket until it ends.
using RunViewer =
    std::function<asio::awaitable<void>(std::unique_ptr<Stream>, std::string endpoint)>;

/// Answers the requests of one connection, until a viewer begins, the browser leaves or patience is
/// over. usedToken: called when an address with a token was opened.
asio::awaitable<void> serveBrowser(std::shared_ptr<asio::ip::tcp::socket> socket, WebDoor &door,
                                   std::chrono::seconds patience, RunViewer runViewer,
                                   std::function<void()> usedToken);

}  // namespace gateway
