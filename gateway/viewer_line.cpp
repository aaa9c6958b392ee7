#include "gateway/viewer_line.h"

#include <algorithm>

#include "gateway/secrets.h"

// Behind viewer_line.h, for Boost 1.74 needs <utility> before these.
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace gateway {
namespace {

using Clock = std::chrono::steady_clock;

rfb::Challenge freshChallenge() {
    rfb::Challenge challenge{};
    fillRandom(challenge.data(), challenge.size());
    return challenge;
}

}  // namespace

ViewerLine::ViewerLine(asio::any_io_executor executor, std::unique_ptr<Stream> stream, Host host)
    : stream_(std::move(stream)),
      host_(std::move(host)),
      wake_(executor),
      deadline_(executor),
      pause_(executor),
      watch_(executor),
      allowance_(host_.limits.inputRate) {}

void ViewerLine::setDeadline(std::chrono::seconds time) {
    deadline_.expires_after(time);
    deadline_.async_wait([line = weak_from_this()](const boost::system::error_code &error) {
        const auto self = line.lock();
        if (error || !self) return;
        self->reason_ = "it was too slow";
        self->end();
    });
}

void ViewerLine::end() {
    if (closed_) return;
    closed_ = true;
    session_.reset();
    stream_->close();
    wake_.cancel();
    pause_.cancel();
    watch_.cancel();
    deadline_.cancel();
}

asio::awaitable<void> ViewerLine::run() {
    const auto self = shared_from_this();
    try {
        co_await shakeHands();
        co_await readAll();
    } catch (const rfb::ProtocolError &error) {
        reason_ = std::string("it sent ") + error.what();
    } catch (const boost::system::system_error &) {
        // Gone, or the deadline has said why.
    } catch (const std::exception &error) {
        reason_ = error.what();
    }
    end();
    if (came_ || !reason_.empty())
        host_.report("A viewer of " + host_.desk.setup().name + " left: " + host_.from +
                     (reason_.empty() ? "." : "; " + reason_ + "."));
}

// A flood waits in its own connection.
asio::awaitable<std::size_t> ViewerLine::readSome(std::uint8_t *to, std::size_t most) {
    const double rate = host_.limits.inputRate;
    const auto now = Clock::now();
    if (refilled_ != Desk::Time{})
        allowance_ = std::min(
            rate, allowance_ + rate * std::chrono::duration<double>(now - refilled_).count());
    refilled_ = now;
    if (allowance_ < 0) {
        pause_.expires_after(std::chrono::ceil<std::chrono::milliseconds>(
            std::chrono::duration<double>(-allowance_ / rate)));
        boost::system::error_code ignored;
        co_await pause_.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
    }
    std::size_t overhead = 0;
    const std::size_t count = co_await stream_->read(to, most, overhead);
    // Viewers send the clipboard by themselves, which must not delay the keys behind it.
    constexpr std::size_t kSkippedForOne = 64;
    const std::size_t counted = reader_.skipping() ? count / kSkippedForOne + 1 : count;
    allowance_ -= static_cast<double>(counted + overhead);
    co_return count;
}

asio::awaitable<void> ViewerLine::shakeHands() {
    constexpr std::size_t kMost = 2048;
    setDeadline(host_.limits.handshake);
    rfb::Handshake handshake(host_.credentials, freshChallenge());
    rfb::Bytes in, out = handshake.greeting();
    for (auto state = rfb::Handshake::kGoesOn; state != rfb::Handshake::kDone;) {
        if (state == rfb::Handshake::kRefused) {
            reason_ = handshake.reason();
            boost::system::error_code ignored;
            const auto wait = host_.wrong();
            setDeadline(std::chrono::ceil<std::chrono::seconds>(wait) + host_.limits.handshake);
            pause_.expires_after(wait);
            co_await pause_.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
        }
        if (!out.empty()) co_await stream_->write(out);
        out.clear();
        if (state == rfb::Handshake::kRefused) throw std::runtime_error(reason_);
        if (state == rfb::Handshake::kStartTls) co_await stream_->startTls(host_.tls);
        const std::size_t size = in.size();
        in.resize(kMost);
        std::size_t overhead = 0;
        in.resize(size + co_await stream_->read(in.data() + size, kMost - size, overhead));
        state = handshake.take(in, out);
        if (state == rfb::Handshake::kGoesOn && in.size() == kMost)
            throw rfb::ProtocolError("no handshake");
    }
    if (closed_) co_return;
    if (!host_.admit()) throw std::runtime_error("there are too many viewers");
    came_ = true;
    session_.emplace(host_.desk, host_.from, host_.limits.updateSize, [this] { wake_.cancel(); });
    host_.report("A viewer of " + host_.desk.setup().name + " came: " + host_.from + ".");
    co_await awaitSize();
    if (closed_) co_return;
    const rfb::Bytes screen = session_->screen();
    rfb::appendBytes(out, screen);
    co_await stream_->write(out);
    deadline_.cancel();
    watchClosely(stream_->socket(), false);
    take(in.data(), in.size());
    asio::co_spawn(
        wake_.get_executor(),
        [](std::shared_ptr<ViewerLine> line) -> asio::awaitable<void> {
            co_await line->writeAll();
        }(shared_from_this()),
        asio::detached);
}

// An endpoint answers within a millisecond, or to the second question half a second later; and not
// every viewer can follow another size.
asio::awaitable<void> ViewerLine::awaitSize() {
    constexpr std::chrono::milliseconds kPatience(2000);
    const auto end = Clock::now() + kPatience;
    while (session_ && !host_.desk.sizeKnown() && Clock::now() < end) {
        wake_.expires_at(end);
        boost::system::error_code ignored;
        co_await wake_.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
    }
}

void ViewerLine::take(const std::uint8_t *bytes, std::size_t count) {
    reader_.feed(bytes, count);
    while (session_) {
        const auto message = reader_.next();
        if (!message) break;
        session_->take(*message, Clock::now());
    }
    if (!session_) return;
    session_->send(Clock::now());
    if (session_->holding() == watched_) return;
    watched_ = !watched_;
    watchClosely(stream_->socket(), watched_);
    if (watched_) watchLine();
}

// The kernel ends a connection only some time after the last data that it could not deliver.
void ViewerLine::watchLine() {
    constexpr std::chrono::milliseconds kPeriod(200);
    watch_.expires_after(kPeriod);
    watch_.async_wait([line = weak_from_this()](const boost::system::error_code &error) {
        constexpr std::chrono::milliseconds kPatience(3000);
        const auto self = line.lock();
        if (error || !self || self->closed_ || !self->session_ || !self->watched_) return;
        self->session_->watch(Clock::now(), self->writing_);
        self->watched_ = self->session_->holding();
        if (!self->watched_) return watchClosely(self->stream_->socket(), false);
        if (silence(self->stream_->socket()) < kPatience) return self->watchLine();
        self->reason_ = "its machine did not answer for 3 s";
        self->end();
    });
}

asio::awaitable<void> ViewerLine::readAll() {
    std::array<std::uint8_t, 4096> chunk;
    while (!closed_) {
        const std::size_t count = co_await readSome(chunk.data(), chunk.size());
        take(chunk.data(), count);
    }
}

asio::awaitable<void> ViewerLine::writeAll() {
    try {
        while (session_) {
            const rfb::Bytes bytes = session_->output(Clock::now());
            if (!bytes.empty()) {
                setDeadline(host_.limits.send);
                writing_ = Clock::now();
                co_await stream_->write(bytes);
                writing_.reset();
                deadline_.cancel();
                continue;
            }
            wake_.expires_at(session_->due());
            boost::system::error_code ignored;
            co_await wake_.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
        }
    } catch (const rfb::ProtocolError &error) {
        reason_ = error.what();
    } catch (const boost::system::system_error &) {
        // The reader sees it, too.
    } catch (const std::exception &error) {
        reason_ = error.what();
    }
    end();
}

}  // namespace gateway
