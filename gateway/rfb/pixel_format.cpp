#include "gateway/rfb/pixel_format.h"

namespace gateway::rfb {
namespace {

unsigned widthOf(unsigned most) {
    unsigned bits = 0;
    for (; most != 0; most >>= 1U) ++bits;
    return bits;
}

void checkColour(unsigned most, unsigned shift, unsigned bits) {
    if (most == 0 || (most & (most + 1)) != 0 || shift + widthOf(most) > bits)
        throw ProtocolError("a pixel format with colours that do not fit");
}

std::uint32_t part(Pixel pixel, unsigned from, std::uint16_t most, std::uint8_t shift) {
    constexpr unsigned kMost = 255;
    const unsigned value = pixel >> from & kMost;
    return ((value * most + kMost / 2) / kMost) << shift;
}

// Which three of a pixel's four bytes hold its colours: 0 the upper ones, 1 the lower, none: -1.
int compactStart(const PixelFormat &format) {
    if (format.bits != 32 || format.depth > 24) return -1;
    const std::uint32_t used = static_cast<std::uint32_t>(format.redMax) << format.redShift |
                               static_cast<std::uint32_t>(format.greenMax) << format.greenShift |
                               static_cast<std::uint32_t>(format.blueMax) << format.blueShift;
    if ((used & 0xFF000000U) == 0) return 1;
    return (used & 0xFFU) == 0 ? 0 : -1;
}

}  // namespace

PixelFormat parsePixelFormat(const std::uint8_t *bytes) {
    PixelFormat format;
    format.bits = bytes[0];
    format.depth = bytes[1];
    format.bigEndian = bytes[2] != 0;
    format.mapped = bytes[3] == 0;
    if (format.bits != 8 && format.bits != 16 && format.bits != 32)
        throw ProtocolError("a pixel format of " + std::to_string(format.bits) + " bits");
    if (format.mapped) {
        if (format.bits != 8) throw ProtocolError("a map of colours for more than 8 bits");
        format.redMax = format.greenMax = 7;
        format.blueMax = 3;
        format.redShift = 5;
        format.greenShift = 2;
        format.blueShift = 0;
        return format;
    }
    format.redMax = static_cast<std::uint16_t>(read16(bytes + 4));
    format.greenMax = static_cast<std::uint16_t>(read16(bytes + 6));
    format.blueMax = static_cast<std::uint16_t>(read16(bytes + 8));
    format.redShift = bytes[10];
    format.greenShift = bytes[11];
    format.blueShift = bytes[12];
    checkColour(format.redMax, format.redShift, format.bits);
    checkColour(format.greenMax, format.greenShift, format.bits);
    checkColour(format.blueMax, format.blueShift, format.bits);
    return format;
}

void appendPixelFormat(Bytes &to, const PixelFormat &format) {
    append8(to, format.bits);
    append8(to, format.depth);
    append8(to, format.bigEndian ? 1 : 0);
    append8(to, format.mapped ? 0 : 1);
    append16(to, format.redMax);
    append16(to, format.greenMax);
    append16(to, format.blueMax);
    append8(to, format.redShift);
    append8(to, format.greenShift);
    append8(to, format.blueShift);
    to.insert(to.end(), 3, 0);
}

void appendColourMap(Bytes &to) {
    constexpr unsigned kMessage = 1, kColours = 256, kFull = 65535;
    append8(to, kMessage);
    append8(to, 0);
    append16(to, 0);
    append16(to, kColours);
    for (unsigned colour = 0; colour < kColours; ++colour) {
        append16(to, (colour >> 5U & 7U) * kFull / 7);
        append16(to, (colour >> 2U & 7U) * kFull / 7);
        append16(to, (colour & 3U) * kFull / 3);
    }
}

std::uint32_t translated(Pixel pixel, const PixelFormat &format) {
    return part(pixel, 16, format.redMax, format.redShift) |
           part(pixel, 8, format.greenMax, format.greenShift) |
           part(pixel, 0, format.blueMax, format.blueShift);
}

void appendPixel(Bytes &to, Pixel pixel, const PixelFormat &format) {
    const std::uint32_t value = translated(pixel, format);
    const unsigned count = format.bits / 8U;
    for (unsigned i = 0; i < count; ++i)
        append8(to, value >> 8U * (format.bigEndian ? count - 1 - i : i));
}

void appendCompact(Bytes &to, Pixel pixel, const PixelFormat &format) {
    const int start = compactStart(format);
    if (start < 0) return appendPixel(to, pixel, format);
    const std::uint32_t value = translated(pixel, format) >> (start == 0 ? 8U : 0U);
    for (unsigned i = 0; i < 3; ++i) append8(to, value >> 8U * (format.bigEndian ? 2 - i : i));
}

void appendTightPixel(Bytes &to, Pixel pixel, const PixelFormat &format) {
    const bool full = format.bits == 32 && format.depth == 24 && format.redMax == 255 &&
                      format.greenMax == 255 && format.blueMax == 255;
    if (!full) return appendPixel(to, pixel, format);
    for (const unsigned shift : {16U, 8U, 0U}) append8(to, pixel >> shift);
}

}  // namespace gateway::rfb
