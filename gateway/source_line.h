// The way to a source of pictures: opened while somebody watches, and opened again when it is lost.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "gateway/desk.h"
#include "gateway/source/source_address.h"
#include "gateway/stream.h"

// Behind stream.h, for Boost 1.74 needs <utility> before these.
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

namespace gateway {

class SourceLine : public std::enable_shared_from_this<SourceLine> {
  public:
    /// desk must outlive the context's last call. patience: for a whole picture, or an answer.
    SourceLine(asio::io_context &context, Desk &desk, SourceAddress address,
               std::chrono::seconds patience, std::function<void(const std::string &)> report);

    /// Runs until end() is called. Keeps the object alive.
    asio::awaitable<void> run();
    /// Somebody came, left, or did something.
    void look();
    void end();

  private:
    /// One connection.
    struct Talk;

    asio::awaitable<void> talk();
    asio::awaitable<std::unique_ptr<Stream>> connect();
    static asio::awaitable<void> readAll(std::shared_ptr<Talk> talk);
    static asio::awaitable<void> writeAll(std::shared_ptr<Talk> talk);

    asio::io_context &context_;
    Desk &desk_;
    const SourceAddress address_;
    const std::chrono::seconds patience_;
    const std::function<void(const std::string &)> report_;
    asio::steady_timer pause_;
    std::shared_ptr<Talk> talk_;
    std::function<void()> stopConnecting_;
    Desk::Time worked_{};
    bool watched_ = false, stopped_ = false, ending_ = false;
};

}  // namespace gateway
