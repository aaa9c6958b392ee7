#include "gateway/source/multipart.h"

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <utility>

namespace gateway {
namespace {

std::string borderOf(const std::string &boundary) {
    const std::size_t letters = boundary.find_first_not_of('-');
    if (letters == std::string::npos || boundary.size() > 200)
        throw rfb::ProtocolError("a stream without a boundary between its pictures");
    return "--" + boundary.substr(letters);
}

}  // namespace

MultipartReader::MultipartReader(const std::string &boundary, std::size_t most)
    : border_(borderOf(boundary)), most_(most) {}

void MultipartReader::take(const std::uint8_t *bytes, std::size_t count) {
    buffer_.insert(buffer_.end(), bytes, bytes + count);
    while ((this->*step_)()) {
    }
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(begin_));
    looked_ -= std::min(looked_, begin_);
    begin_ = 0;
}

std::optional<rfb::Bytes> MultipartReader::newest() {
    return std::exchange(newest_, std::nullopt);
}

bool MultipartReader::leftOut() {
    return std::exchange(leftOut_, false);
}

std::size_t MultipartReader::find(const std::string &what, std::size_t from) const {
    const auto found = std::search(buffer_.begin() + static_cast<std::ptrdiff_t>(from),
                                   buffer_.end(), what.begin(), what.end());
    return found == buffer_.end() ? std::string::npos
                                  : static_cast<std::size_t>(found - buffer_.begin());
}

void MultipartReader::drop(std::size_t count) {
    begin_ += count;
    looked_ = std::max(looked_, begin_);
}

void MultipartReader::finish(std::size_t size) {
    const auto begin = buffer_.begin() + static_cast<std::ptrdiff_t>(begin_);
    newest_.emplace(begin, begin + static_cast<std::ptrdiff_t>(size));
    drop(size);
}

// The line with it, up to its end.
bool MultipartReader::findBorder() {
    const std::size_t border = find(border_, looked_);
    if (border == std::string::npos) {
        const std::size_t size = buffer_.size() - begin_;
        drop(size - std::min(size, border_.size()));
        return false;
    }
    const std::size_t end = find("\n", border);
    looked_ = border;
    drop(border - begin_);
    if (end == std::string::npos) {
        if (buffer_.size() - begin_ > border_.size() + 100)
            throw rfb::ProtocolError("a boundary whose line does not end");
        return false;
    }
    drop(end - begin_);
    step_ = &MultipartReader::readHeader;
    return true;
}

// From the end of the border's line on, so that there may be no header at all; up to an empty line.
bool MultipartReader::readHeader() {
    constexpr std::size_t kMost = 8192;
    std::string line;
    step_ = &MultipartReader::readUntilBorder;
    tooLong_ = false;
    for (std::size_t at = begin_ + 1; at < buffer_.size(); ++at) {
        if (buffer_[at] != '\n') {
            line += static_cast<char>(buffer_[at]);
            continue;
        }
        boost::algorithm::trim(line);
        if (line.empty()) {
            drop(at + 1 - begin_);
            return true;
        }
        readLength(line);
        line.clear();
        if (at - begin_ > kMost) break;
    }
    if (buffer_.size() - begin_ > kMost)
        throw rfb::ProtocolError("a header of a picture that does not end");
    step_ = &MultipartReader::readHeader;
    return false;
}

// What is no number counts as not there.
void MultipartReader::readLength(const std::string &line) {
    constexpr char kLength[] = "content-length:";
    if (!boost::algorithm::istarts_with(line, kLength)) return;
    const std::string number = boost::algorithm::trim_copy(line.substr(sizeof kLength - 1));
    std::size_t size = 0;
    step_ = &MultipartReader::readUntilBorder;
    if (number.find_first_not_of("0123456789") != std::string::npos ||
        !boost::conversion::try_lexical_convert(number, size))
        return;
    size_ = size;
    step_ = size <= most_ ? &MultipartReader::readCounted : &MultipartReader::skip;
    leftOut_ = leftOut_ || size > most_;
}

bool MultipartReader::readCounted() {
    if (buffer_.size() - begin_ < size_) return false;
    finish(size_);
    step_ = &MultipartReader::findBorder;
    return true;
}

bool MultipartReader::skip() {
    const std::size_t count = std::min(size_, buffer_.size() - begin_);
    drop(count);
    size_ -= count;
    if (size_ > 0) return false;
    step_ = &MultipartReader::findBorder;
    return true;
}

bool MultipartReader::readUntilBorder() {
    const std::size_t border = find(border_, looked_);
    if (border == std::string::npos) {
        looked_ = std::max(begin_, buffer_.size() - std::min(buffer_.size(), border_.size()));
        if (buffer_.size() - begin_ > most_ + border_.size()) {
            tooLong_ = leftOut_ = true;
            drop(looked_ - begin_);
        }
        return false;
    }
    if (!tooLong_) finish(border - begin_);
    step_ = &MultipartReader::findBorder;
    return true;
}

}  // namespace gateway
