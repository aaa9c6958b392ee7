// What a viewer sends after the handshake.
#pragma once

#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

#include "gateway/rfb/pixel_format.h"

namespace gateway::rfb {

struct SetEncodings {
    std::vector<std::int32_t> wanted;  ///< the one that the viewer likes best first
};
struct UpdateRequest {
    bool incremental;  ///< only what has changed
    std::uint16_t x, y, width, height;
};
struct KeyEvent {
    bool down;
    std::uint32_t keysym;               ///< X11's name for the key or its character
    std::optional<std::uint32_t> code;  ///< scan code, see input/scan_codes.h
};
struct PointerEvent {
    std::uint8_t buttons;  ///< bit 0 left, 1 middle, 2 right, 3 to 6 the wheel
    std::uint16_t x, y;    ///< in relative mode movements with 0x7FFF added
};
struct FenceEvent {
    std::uint32_t flags;
    Bytes payload;  ///< 64 bytes at most
};
/// The viewer wants another size of the picture.
struct SetDesktopSize {};

using ViewerMessage = std::variant<PixelFormat, SetEncodings, UpdateRequest, KeyEvent, PointerEvent,
                                   FenceEvent, SetDesktopSize>;

/// Bytes in, messages out. Keeps less than the longest message, 2052 bytes; texts of the
/// clipboard are skipped as they come. An object is for one thread at a time.
class MessageReader {
  public:
    void feed(const std::uint8_t *bytes, std::size_t count);
    /// The next message that is complete. Throws ProtocolError for what is no message, and what is
    /// too long.
    std::optional<ViewerMessage> next();
    /// It is inside of what is only skipped.
    bool skipping() const { return skipping_ != 0; }

  private:
    bool skip();
    std::optional<ViewerMessage> parse(const std::uint8_t *bytes, std::size_t count,
                                       std::size_t &used);

    Bytes buffer_;
    std::size_t begin_ = 0, skipping_ = 0;
};

}  // namespace gateway::rfb
