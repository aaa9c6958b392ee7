// Numbers of the Remote Framebuffer protocol (RFB): RFC 6143, and for what came after it the
// registry at the Internet Assigned Numbers Authority. All integers on the wire are big-endian.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <vector>

namespace gateway::rfb {

using Bytes = std::vector<std::uint8_t>;

/// Encodings and pseudo-encodings, as a viewer lists them.
enum Encoding : std::int32_t {
    kRaw = 0,
    kCopyRect = 1,
    kHextile = 5,
    kTight = 7,
    kZrle = 16,
    kQualityLevel0 = -32,  ///< the worst JPEG of ten levels, up to -23
    kDesktopSize = -223,
    kLastRectangle = -224,
    kRelativePointer = -257,    ///< QEMU's pointer motion change
    kExtendedKeyEvents = -258,  ///< QEMU's: a key by its scan code
    kLedState = -261,           ///< QEMU's: bit 0 Scroll Lock, 1 Num Lock, 2 Caps Lock
    kExtendedDesktopSize = -308,
    kFence = -312
};

/// Bits of a fence: the viewer answers a request, at once or when all before it is done.
enum FenceFlag : std::uint32_t {
    kFenceBlockBefore = 1U << 0U,
    kFenceBlockAfter = 1U << 1U,
    kFenceSyncNext = 1U << 2U,
    kFenceRequest = 1U << 31U
};

/// What a viewer sent cannot be of this protocol, or is beyond a bound; the connection ends.
class ProtocolError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

inline void append8(Bytes &to, unsigned value) {
    to.push_back(static_cast<std::uint8_t>(value));
}
inline void append16(Bytes &to, unsigned value) {
    append8(to, value >> 8U);
    append8(to, value);
}
inline void append32(Bytes &to, std::uint32_t value) {
    append16(to, value >> 16U);
    append16(to, value & 0xFFFFU);
}
template <class Text>
void appendBytes(Bytes &to, const Text &bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

inline unsigned read16(const std::uint8_t *bytes) {
    return static_cast<unsigned>(bytes[0] << 8) | bytes[1];
}
inline std::uint32_t read32(const std::uint8_t *bytes) {
    return static_cast<std::uint32_t>(read16(bytes)) << 16U | read16(bytes + 2);
}

}  // namespace gateway::rfb
