#include "gateway/source/mjpeg_source.h"

#include <openssl/evp.h>

#include <array>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/rfc7230.hpp>
#include <boost/beast/http/write.hpp>
#include <optional>
#include <sstream>
#include <utility>

#include "gateway/source/multipart.h"

namespace gateway {
namespace {

namespace http = boost::beast::http;

std::string inBase64(const std::string &text) {
    std::string encoded((text.size() + 2) / 3 * 4 + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char *>(encoded.data()),
                                     reinterpret_cast<const unsigned char *>(text.data()),
                                     static_cast<int>(text.size()));
    encoded.resize(static_cast<std::size_t>(size));
    return encoded;
}

std::string boundaryOf(const http::fields &header) {
    const std::string type(header[http::field::content_type]);
    if (!boost::algorithm::istarts_with(type, "multipart/"))
        throw SourceError("the server sends \"" + type.substr(0, 100) +
                          "\" instead of a stream of pictures (multipart/x-mixed-replace)");
    const std::string parameters = type.substr(std::min(type.size(), type.find(';')));
    for (const auto &[name, value] : http::param_list(parameters))
        if (boost::algorithm::iequals(name, "boundary")) {
            std::string boundary(value);
            if (boundary.size() > 1 && boundary.front() == '"' && boundary.back() == '"')
                boundary = boundary.substr(1, boundary.size() - 2);
            return boundary;
        }
    return "";
}

}  // namespace

class MjpegSource::Response {
  public:
    Response() {
        constexpr std::uint32_t kMostHeader = 16384;
        parser_.header_limit(kMostHeader);
        parser_.body_limit(boost::none);
        parser_.eager(true);
    }

    void take(const std::uint8_t *bytes, std::size_t count) {
        constexpr std::size_t kMostWaiting = 1 << 20U;
        in_.insert(in_.end(), bytes, bytes + count);
        // A line of the header, or of a chunk, that does not end.
        if (in_.size() > kMostWaiting) throw rfb::ProtocolError("an answer without lines");
        while (!in_.empty() && parse()) {
        }
    }
    /// None before the header.
    std::optional<MultipartReader> &parts() { return parts_; }

  private:
    bool parse() {
        auto &body = parser_.get().body();
        body.data = piece_.data();
        body.size = piece_.size();
        boost::system::error_code error;
        const std::size_t used = parser_.put(boost::asio::buffer(in_), error);
        in_.erase(in_.begin(), in_.begin() + static_cast<std::ptrdiff_t>(used));
        const bool goesOn = !error || error == http::error::need_buffer;
        if (!goesOn && error != http::error::need_more)
            throw rfb::ProtocolError("no answer of HTTP (" + error.message() + ")");
        if (parser_.is_header_done() && !parts_) readHeader();
        if (parts_) parts_->take(piece_.data(), piece_.size() - body.size);
        if (parser_.is_done()) throw SourceError("the stream ended");
        return goesOn && used > 0;
    }

    void readHeader() {
        const unsigned status = parser_.get().result_int();
        if (status == 401 || status == 403)
            throw SourceError("the server wants another user or password (HTTP " +
                              std::to_string(status) + "; Basic is spoken here)");
        if (status != 200)
            throw SourceError("the server answers \"HTTP " + std::to_string(status) + "\"");
        parts_.emplace(boundaryOf(parser_.get()), rfb::kMostJpegBytes);
    }

    http::response_parser<http::buffer_body> parser_;
    rfb::Bytes in_;
    std::array<std::uint8_t, 16384> piece_{};
    std::optional<MultipartReader> parts_;
};

MjpegSource::MjpegSource(rfb::Canvas &canvas, const Setup &setup, Time now)
    : canvas_(canvas),
      patience_(setup.patience),
      response_(std::make_unique<Response>()),
      shown_(now) {
    http::request<http::empty_body> request(http::verb::get, setup.target, 11);
    request.set(http::field::host, setup.host);
    request.set(http::field::user_agent, "quillon-gateway");
    request.set(http::field::connection, "close");
    if (!setup.user.empty())
        request.set(http::field::authorization,
                    "Basic " + inBase64(setup.user + ":" + setup.password));
    std::ostringstream text;
    text << request;
    rfb::appendBytes(out_, text.str());
}

MjpegSource::~MjpegSource() = default;

void MjpegSource::take(const std::uint8_t *bytes, std::size_t count) {
    response_->take(bytes, count);
}

bool MjpegSource::work(Time now) {
    auto &parts = response_->parts();
    if (!parts) return false;
    if (parts->leftOut()) trouble_ = "it sends pictures of more than 4 MiB";
    auto bytes = parts->newest();
    if (!bytes) return false;
    try {
        rfb::Jpeg jpeg = rfb::checkedJpeg(std::move(*bytes));
        if (!rfb::Canvas::fits(jpeg.width, jpeg.height))
            throw std::runtime_error("a JPEG of " + std::to_string(jpeg.width) + "x" +
                                     std::to_string(jpeg.height));
        canvas_.show(std::move(jpeg));
        shown_ = now;
        trouble_.clear();
    } catch (const std::runtime_error &error) {
        trouble_ = std::string("it sends ") + error.what();
    }
    return false;
}

rfb::Bytes MjpegSource::output(Time now) {
    if (now - shown_ >= patience_)
        throw SourceError("no whole picture came for " + std::to_string(patience_.count() / 1000) +
                          " s" + (trouble_.empty() ? "" : "; " + trouble_));
    return std::exchange(out_, {});
}

Source::Time MjpegSource::due() const {
    return out_.empty() ? shown_ + patience_ : Time{};
}

}  // namespace gateway
