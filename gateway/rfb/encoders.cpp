#include "gateway/rfb/encoders.h"

namespace gateway::rfb {
namespace {

std::size_t slotOf(Pixel pixel) {
    constexpr std::uint32_t kMixing = 2654435761U;  // the golden ratio of 2^32
    return pixel * kMixing >> 22U;                  // ten bits, the number of slots
}

// Numbers of colours, packed from the upper bit of each byte on; rows begin with a byte.
void appendPacked(Bytes &to, const Pixels &pixels, const Palette &palette, unsigned bits) {
    for (unsigned y = 0; y < pixels.height; ++y) {
        const Pixel *row = pixels.row(y);
        unsigned byte = 0, filled = 0;
        for (unsigned x = 0; x < pixels.width; ++x) {
            byte = byte << bits | palette.indexOf(row[x]);
            filled += bits;
            if (filled < 8) continue;
            append8(to, byte);
            byte = filled = 0;
        }
        if (filled != 0) append8(to, byte << (8 - filled));
    }
}

// One to three bytes, of 7 bits the first two.
void appendLength(Bytes &to, std::size_t size) {
    for (int i = 0; i < 2 && size >= 0x80; ++i, size >>= 7U)
        append8(to, static_cast<unsigned>(size & 0x7FU) | 0x80U);
    append8(to, static_cast<unsigned>(size));
}

}  // namespace

void appendRaw(Bytes &to, const Pixels &pixels, const PixelFormat &format) {
    for (unsigned y = 0; y < pixels.height; ++y)
        for (unsigned x = 0; x < pixels.width; ++x) appendPixel(to, pixels.row(y)[x], format);
}

bool Palette::read(const Pixels &pixels, std::size_t most) {
    colours_.clear();
    slots_.fill(0);
    for (unsigned y = 0; y < pixels.height; ++y) {
        const Pixel *row = pixels.row(y);
        for (unsigned x = 0; x < pixels.width; ++x) {
            if (x > 0 && row[x] == row[x - 1]) continue;
            std::size_t slot = slotOf(row[x]);
            while (slots_[slot] != 0 && colours_[slots_[slot] - 1U] != row[x])
                slot = (slot + 1) % kSlots;
            if (slots_[slot] != 0) continue;
            if (colours_.size() == most) return false;
            colours_.push_back(row[x]);
            slots_[slot] = static_cast<std::uint16_t>(colours_.size());
        }
    }
    return true;
}

std::uint8_t Palette::indexOf(Pixel pixel) const {
    std::size_t slot = slotOf(pixel);
    while (colours_[slots_[slot] - 1U] != pixel) slot = (slot + 1) % kSlots;
    return static_cast<std::uint8_t>(slots_[slot] - 1U);
}

bool takesJpegs(const PixelFormat &format) {
    return format.bits > 8 && !format.mapped;
}

void appendTightJpeg(Bytes &to, const Bytes &jpeg) {
    constexpr unsigned kJpeg = 0x90;
    append8(to, kJpeg);
    appendLength(to, jpeg.size());
    appendBytes(to, jpeg);
}

// What is shorter than 12 bytes stays plain, and has no length.
void TightEncoder::appendCompressed(Bytes &to) {
    constexpr std::size_t kPlain = 12;
    if (plain_.size() < kPlain) return appendBytes(to, plain_);
    Bytes compressed;
    deflate_.reset();
    deflate_.append(compressed, plain_);
    appendLength(to, compressed.size());
    appendBytes(to, compressed);
}

void TightEncoder::append(Bytes &to, const Pixels &pixels, const PixelFormat &format, int quality) {
    constexpr unsigned kResetFirst = 0x01, kFill = 0x80, kFilter = 0x40, kByPalette = 1;
    // A pixel of one byte gains nothing by a palette of many colours.
    const bool few = palette_.read(pixels, format.bits == 8 ? 2 : Palette::kMost);
    const auto &colours = palette_.colours();
    plain_.clear();
    if (few && colours.size() == 1) {
        append8(to, kFill | kResetFirst);
        return appendTightPixel(to, colours[0], format);
    }
    if (!few && quality != kLossless && takesJpegs(format))
        return appendTightJpeg(to, jpeg_.encode(pixels, quality));
    if (!few) {
        append8(to, kResetFirst);
        for (unsigned y = 0; y < pixels.height; ++y)
            for (unsigned x = 0; x < pixels.width; ++x)
                appendTightPixel(plain_, pixels.row(y)[x], format);
        return appendCompressed(to);
    }
    append8(to, kFilter | kResetFirst);
    append8(to, kByPalette);
    append8(to, static_cast<unsigned>(colours.size() - 1));
    for (const Pixel colour : colours) appendTightPixel(to, colour, format);
    appendPacked(plain_, pixels, palette_, colours.size() == 2 ? 1 : 8);
    appendCompressed(to);
}

void ZrleEncoder::append(Bytes &to, const Pixels &pixels, const PixelFormat &format) {
    constexpr std::size_t kMostColours = 16;
    const bool few = palette_.read(pixels, kMostColours);
    const auto &colours = palette_.colours();
    plain_.clear();
    if (few) {
        append8(plain_, static_cast<unsigned>(colours.size()));
        for (const Pixel colour : colours) appendCompact(plain_, colour, format);
        const std::size_t count = colours.size();
        if (count > 1) appendPacked(plain_, pixels, palette_, count == 2 ? 1 : count <= 4 ? 2 : 4);
    } else {
        append8(plain_, 0);
        for (unsigned y = 0; y < pixels.height; ++y)
            for (unsigned x = 0; x < pixels.width; ++x)
                appendCompact(plain_, pixels.row(y)[x], format);
    }
    Bytes compressed;
    deflate_.append(compressed, plain_);
    append32(to, static_cast<std::uint32_t>(compressed.size()));
    appendBytes(to, compressed);
}

}  // namespace gateway::rfb
