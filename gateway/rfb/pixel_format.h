// How a viewer wants its pixels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <tuple>

#include "gateway/rfb/protocol.h"

namespace gateway::rfb {

/// A pixel of the gateway: 0x00RRGGBB.
using Pixel = std::uint32_t;

/// A rectangle of pixels; rows begin stride pixels apart.
struct Pixels {
    const Pixel *first;
    std::size_t stride;
    unsigned width, height;

    const Pixel *row(unsigned y) const { return first + y * stride; }
};

struct PixelFormat {
    std::uint8_t bits = 32, depth = 24;
    bool bigEndian = false;
    bool mapped = false;  ///< colours are numbers of a map, see appendColourMap()
    std::uint16_t redMax = 255, greenMax = 255, blueMax = 255;
    std::uint8_t redShift = 16, greenShift = 8, blueShift = 0;

    auto all() const {
        return std::tie(bits, depth, bigEndian, mapped, redMax, greenMax, blueMax, redShift,
                        greenShift, blueShift);
    }
};
inline bool operator==(const PixelFormat &a, const PixelFormat &b) {
    return a.all() == b.all();
}
inline bool operator<(const PixelFormat &a, const PixelFormat &b) {
    return a.all() < b.all();
}

/// Size of a format on the wire.
constexpr std::size_t kPixelFormatSize = 16;
/// Throws ProtocolError for a format with pixels of another size than 8, 16 or 32 bits, or with
/// colours beyond its pixels. A map of colours is for 8 bits alone.
PixelFormat parsePixelFormat(const std::uint8_t *bytes);
void appendPixelFormat(Bytes &to, const PixelFormat &format);

/// The message that sets the map for a format with one: 3 bits of red, 3 of green, 2 of blue.
void appendColourMap(Bytes &to);

std::uint32_t translated(Pixel pixel, const PixelFormat &format);
/// A pixel as it stands in a rectangle without compression.
void appendPixel(Bytes &to, Pixel pixel, const PixelFormat &format);
/// A pixel of ZRLE: three bytes, without the one of 32 bits that is not used.
void appendCompact(Bytes &to, Pixel pixel, const PixelFormat &format);
/// A pixel of Tight: red, green and blue where each has 8 bits of 32.
void appendTightPixel(Bytes &to, Pixel pixel, const PixelFormat &format);

}  // namespace gateway::rfb
