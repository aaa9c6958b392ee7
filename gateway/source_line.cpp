#include "gateway/source_line.h"

#include <algorithm>
#include <new>
#include <vector>

#include "gateway/resolve.h"

// Behind source_line.h, for Boost 1.74 needs <utility> before these.
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/connect.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/ssl/error.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace gateway {
namespace {

using Clock = std::chrono::steady_clock;
using Tcp = asio::ip::tcp;

asio::awaitable<void> sleep(asio::steady_timer &timer, Clock::time_point until) {
    boost::system::error_code ignored;
    timer.expires_at(until);
    co_await timer.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
}

std::string inWords(const std::exception &error) {
    if (dynamic_cast<const rfb::ProtocolError *>(&error) != nullptr)
        return std::string("it sends ") + error.what();
    if (dynamic_cast<const std::bad_alloc *>(&error) != nullptr)
        return "there is no memory for its picture";
    const auto *ofSystem = dynamic_cast<const boost::system::system_error *>(&error);
    if (ofSystem == nullptr) return error.what();
    for (const boost::system::error_code &end :
         {boost::system::error_code(asio::error::eof),
          boost::system::error_code(asio::ssl::error::stream_truncated),
          boost::system::error_code(asio::error::connection_reset),
          boost::system::error_code(asio::error::broken_pipe)})
        if (ofSystem->code() == end) return "the connection was closed";
    return ofSystem->code().message();
}

}  // namespace

struct SourceLine::Talk {
    Talk(asio::io_context &context, std::unique_ptr<Stream> way, std::unique_ptr<Source> with,
         std::chrono::seconds time)
        : stream(std::move(way)),
          source(std::move(with)),
          patience(time),
          wake(context),
          rest(context),
          deadline(context) {}

    void close(const std::string &why) {
        if (closed) return;
        closed = true;
        reason = why;
        stream->close();
        wake.cancel();
        rest.cancel();
        deadline.cancel();
    }

    const std::unique_ptr<Stream> stream;
    const std::unique_ptr<Source> source;
    const std::chrono::seconds patience;
    asio::steady_timer wake, rest, deadline;
    std::string reason;  ///< why it ended
    bool closed = false;
};

SourceLine::SourceLine(asio::io_context &context, Desk &desk, SourceAddress address,
                       std::chrono::seconds patience,
                       std::function<void(const std::string &)> report)
    : context_(context),
      desk_(desk),
      address_(std::move(address)),
      patience_(patience),
      report_(std::move(report)),
      pause_(context) {}

void SourceLine::look() {
    const bool before = std::exchange(watched_, !ending_ && desk_.watched());
    if (before != watched_) {
        pause_.cancel();
        if (!watched_ && talk_) talk_->close("");
        if (!watched_ && stopConnecting_) {
            stopped_ = true;
            stopConnecting_();
        }
    }
    if (!talk_ || talk_->closed || worked_ == desk_.worked()) return;
    worked_ = desk_.worked();
    talk_->source->stayAwake(Clock::now());
    if (talk_->source->due() <= Clock::now()) talk_->wake.cancel();
}

void SourceLine::end() {
    ending_ = true;
    look();
    pause_.cancel();
}

asio::awaitable<void> SourceLine::run() {
    constexpr std::chrono::seconds kFirst(1), kLongest(30);
    const auto self = shared_from_this();
    auto pause = kFirst;
    std::string told;
    Clock::time_point notBefore{};
    while (!ending_) {
        if (!watched_) {
            pause = kFirst;
            told.clear();
            co_await sleep(pause_, Clock::time_point::max());
            continue;
        }
        // Viewers that come and go do not make it try more often than once a second.
        if (Clock::now() < notBefore) {
            co_await sleep(pause_, notBefore);
            continue;
        }
        std::string why;
        const auto begin = Clock::now();
        notBefore = begin + kFirst;
        try {
            co_await talk();
        } catch (const std::exception &error) {
            why = inWords(error);
        }
        // Without a reason it ended because nobody watched.
        if (ending_ || !watched_ || why.empty()) continue;
        if (desk_.picture().state() == Picture::kLive && Clock::now() - begin > kLongest) {
            pause = kFirst;
            told.clear();
        }
        try {
            desk_.pictureLost(why);
        } catch (const std::bad_alloc &) {
            // Grey or not, it is tried again.
        }
        if (why != told) report_("No picture of " + desk_.setup().name + ": " + why + ".");
        told = why;
        co_await sleep(pause_, Clock::now() + pause);
        pause = std::min(kLongest, 2 * pause);
    }
}

asio::awaitable<std::unique_ptr<Stream>> SourceLine::connect() {
    if (!address_.path.empty()) {
        asio::local::stream_protocol::socket socket(context_);
        stopConnecting_ = [&socket] { socket.close(); };
        co_await socket.async_connect(asio::local::stream_protocol::endpoint(address_.path),
                                      asio::use_awaitable);
        co_return socketStream(asio::generic::stream_protocol::socket(std::move(socket)));
    }
    const auto found = co_await resolve(context_, address_.host, address_.port, stopConnecting_);
    Tcp::socket socket(context_);
    stopConnecting_ = [&socket] { socket.close(); };
    co_await asio::async_connect(socket, found, asio::use_awaitable);
    socket.set_option(Tcp::no_delay(true));
    watchClosely(socket.native_handle(), false);
    auto stream = socketStream(asio::generic::stream_protocol::socket(std::move(socket)));
    stopConnecting_ = [&stream] { stream->close(); };
    if (address_.tls) co_await stream->startTlsTo(address_.host, address_.authority);
    co_return stream;
}

// Ends with the reason as an exception.
asio::awaitable<void> SourceLine::talk() {
    const auto late = std::make_shared<bool>(false);
    asio::steady_timer deadline(context_);
    deadline.expires_after(patience_);
    deadline.async_wait([self = shared_from_this(), late](const boost::system::error_code &error) {
        if (error || !self->stopConnecting_) return;
        *late = true;
        self->stopConnecting_();
    });
    std::unique_ptr<Stream> stream;
    std::string failed;
    stopped_ = false;
    try {
        stream = co_await connect();
    } catch (const std::exception &error) {
        failed = inWords(error);
    }
    stopConnecting_ = nullptr;
    deadline.cancel();
    if (stopped_ || !watched_) co_return;
    if (*late)
        throw SourceError("it did not answer within " + std::to_string(patience_.count()) + " s");
    if (!stream) throw SourceError("it cannot be reached (" + failed + ")");
    talk_ = std::make_shared<Talk>(context_, std::move(stream),
                                   sourceAt(address_, desk_.picture(), patience_, Clock::now()),
                                   patience_);
    const auto talk = talk_;
    asio::co_spawn(context_, writeAll(talk), asio::detached);
    co_await readAll(talk);
    talk_.reset();
    throw SourceError(talk->reason);
}

asio::awaitable<void> SourceLine::readAll(std::shared_ptr<Talk> talk) {
    constexpr std::chrono::microseconds kLittle(300);
    try {
        std::vector<std::uint8_t> chunk(std::size_t{1} << 16U);
        Clock::duration busy{};
        while (!talk->closed) {
            std::size_t overhead = 0;
            const std::size_t count =
                co_await talk->stream->read(chunk.data(), chunk.size(), overhead);
            if (talk->closed) break;
            auto begin = Clock::now();
            talk->source->take(chunk.data(), count);
            for (bool more = true; more && !talk->closed;) {
                more = talk->source->work(begin);
                busy += Clock::now() - begin;
                // A source that keeps this thread busy gets half of its time.
                if (busy > kLittle)
                    co_await sleep(talk->rest, Clock::now() + std::exchange(busy, {}));
                begin = Clock::now();
            }
            talk->wake.cancel();
        }
    } catch (const std::exception &error) {
        talk->close(inWords(error));
    }
}

asio::awaitable<void> SourceLine::writeAll(std::shared_ptr<Talk> talk) {
    try {
        while (!talk->closed) {
            const rfb::Bytes bytes = talk->source->output(Clock::now());
            if (bytes.empty()) {
                co_await sleep(talk->wake, talk->source->due());
                continue;
            }
            talk->deadline.expires_after(talk->patience);
            talk->deadline.async_wait(
                [known = std::weak_ptr(talk)](const boost::system::error_code &error) {
                    const auto late = known.lock();
                    if (!error && late) late->close("it does not take what is sent");
                });
            co_await talk->stream->write(bytes);
            talk->deadline.cancel();
        }
    } catch (const boost::system::system_error &) {
        // The reader sees it, too, behind what the source said last.
    } catch (const std::exception &error) {
        talk->close(inWords(error));
    }
}

}  // namespace gateway
