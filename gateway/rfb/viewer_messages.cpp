#include "gateway/rfb/viewer_messages.h"

#include <algorithm>
#include <string>

namespace gateway::rfb {
namespace {

enum MessageType : std::uint8_t {
    kSetPixelFormat = 0,
    kSetEncodings = 2,
    kUpdateRequest = 3,
    kKeyEvent = 4,
    kPointerEvent = 5,
    kCutText = 6,
    kFenceMessage = 248,
    kSetDesktopSize = 251,
    kQemu = 255
};

constexpr std::size_t kMostEncodings = 512, kMostFence = 64;
constexpr std::size_t kMostText = 16U << 20U;

std::uint16_t half(const std::uint8_t *bytes) {
    return static_cast<std::uint16_t>(read16(bytes));
}

}  // namespace

void MessageReader::feed(const std::uint8_t *bytes, std::size_t count) {
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(begin_));
    begin_ = 0;
    buffer_.insert(buffer_.end(), bytes, bytes + count);
}

// Drops what is to be skipped; false while not all of it has come.
bool MessageReader::skip() {
    const std::size_t now = std::min(skipping_, buffer_.size() - begin_);
    begin_ += now;
    skipping_ -= now;
    return skipping_ == 0;
}

std::optional<ViewerMessage> MessageReader::next() {
    for (;;) {
        if (!skip() || begin_ == buffer_.size()) return std::nullopt;
        std::size_t used = 0;
        auto message = parse(buffer_.data() + begin_, buffer_.size() - begin_, used);
        begin_ += used;
        if (message || used == 0) return message;
    }
}

// used stays 0 while the message is not complete, and is set without a message for one that does
// not count.
std::optional<ViewerMessage> MessageReader::parse(const std::uint8_t *bytes, std::size_t count,
                                                  std::size_t &used) {
    const auto complete = [&](std::size_t size) {
        if (count < size) return false;
        used = size;
        return true;
    };
    switch (bytes[0]) {
        case kSetPixelFormat:
            if (!complete(4 + kPixelFormatSize)) return std::nullopt;
            return parsePixelFormat(bytes + 4);
        case kSetEncodings: {
            if (count < 4) return std::nullopt;
            const std::size_t number = read16(bytes + 2);
            if (number > kMostEncodings)
                throw ProtocolError("a list of " + std::to_string(number) + " encodings");
            if (!complete(4 + 4 * number)) return std::nullopt;
            SetEncodings message;
            for (std::size_t i = 0; i < number; ++i)
                message.wanted.push_back(static_cast<std::int32_t>(read32(bytes + 4 + 4 * i)));
            return message;
        }
        case kUpdateRequest:
            if (!complete(10)) return std::nullopt;
            return UpdateRequest{bytes[1] != 0, half(bytes + 2), half(bytes + 4), half(bytes + 6),
                                 half(bytes + 8)};
        case kKeyEvent:
            if (!complete(8)) return std::nullopt;
            return KeyEvent{bytes[1] != 0, read32(bytes + 4), std::nullopt};
        case kPointerEvent:
            if (!complete(6)) return std::nullopt;
            return PointerEvent{bytes[1], half(bytes + 2), half(bytes + 4)};
        case kCutText: {
            if (!complete(8)) return std::nullopt;
            // A negative length is that of the extended clipboard, which is not offered.
            const auto length = static_cast<std::int32_t>(read32(bytes + 4));
            const auto size = static_cast<std::size_t>(length < 0 ? -std::int64_t{length} : length);
            if (size > kMostText) throw ProtocolError("a text of the clipboard that is too long");
            skipping_ = size;
            return std::nullopt;
        }
        case kFenceMessage: {
            if (count < 9) return std::nullopt;
            if (bytes[8] > kMostFence) throw ProtocolError("a fence that is too long");
            if (!complete(9U + bytes[8])) return std::nullopt;
            return FenceEvent{read32(bytes + 4), Bytes(bytes + 9, bytes + used)};
        }
        case kSetDesktopSize: {
            constexpr std::size_t kScreen = 16;
            if (count < 8) return std::nullopt;
            used = 8;
            skipping_ = kScreen * bytes[6];
            return SetDesktopSize{};
        }
        case kQemu:
            if (count < 2) return std::nullopt;
            if (bytes[1] != 0)
                throw ProtocolError("a message of QEMU's that was not offered, number " +
                                    std::to_string(bytes[1]));
            if (!complete(12)) return std::nullopt;
            return KeyEvent{read16(bytes + 2) != 0, read32(bytes + 4), read32(bytes + 8)};
        default:
            throw ProtocolError("a message of type " + std::to_string(bytes[0]) +
                                ", which was not offered");
    }
}

}  // namespace gateway::rfb
