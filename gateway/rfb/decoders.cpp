#include "gateway/rfb/decoders.h"

#include <algorithm>

namespace gateway::rfb {
namespace {

constexpr unsigned kHextileSize = 16, kZrleSize = 64;
constexpr std::size_t kPixelSize = 4, kCompactSize = 3;

Pixel compactAt(const std::uint8_t *bytes) {
    return Pixel{bytes[0]} | Pixel{bytes[1]} << 8U | Pixel{bytes[2]} << 16U;
}

// Reads as long as there is something; then all is zero, and missing() says so.
class Cursor {
  public:
    Cursor(const std::uint8_t *bytes, std::size_t size) : bytes_(bytes), size_(size) {}

    unsigned byte() { return has(1) ? bytes_[at_++] : 0; }
    Pixel compact() { return pixel(kCompactSize); }
    Pixel full() { return pixel(kPixelSize); }
    bool missing() const { return missing_; }
    std::size_t used() const { return at_; }

  private:
    bool has(std::size_t count) {
        missing_ = missing_ || size_ - at_ < count;
        return !missing_;
    }
    Pixel pixel(std::size_t size) {
        if (!has(size)) return 0;
        at_ += size;
        return compactAt(bytes_ + at_ - size);
    }

    const std::uint8_t *bytes_;
    std::size_t size_, at_ = 0;
    bool missing_ = false;
};

void readPacked(Cursor &cursor, const std::array<Pixel, 128> &palette, unsigned count, Pixel *to,
                const Rectangle &tile) {
    const unsigned bits = count == 2 ? 1 : count <= 4 ? 2 : 4;
    for (unsigned y = 0; y < tile.height; ++y) {
        unsigned byte = 0, left = 0;
        for (unsigned x = 0; x < tile.width; ++x) {
            if (left == 0) {
                byte = cursor.byte();
                left = 8;
            }
            left -= bits;
            const unsigned index = byte >> left & ((1U << bits) - 1);
            if (index >= count) throw ProtocolError("a colour that is not in its palette");
            *to++ = palette[index];
        }
    }
}

// palette: of count colours; none: each run says its own.
void readRuns(Cursor &cursor, const std::array<Pixel, 128> &palette, unsigned count, Pixel *to,
              std::size_t pixels) {
    constexpr unsigned kRun = 0x80, kGoesOn = 0xFF;
    while (pixels > 0 && !cursor.missing()) {
        const unsigned index = count > 0 ? cursor.byte() : kRun;
        if (count > 0 && (index & ~kRun) >= count)
            throw ProtocolError("a colour that is not in its palette");
        const Pixel colour = count > 0 ? palette[index & ~kRun] : cursor.compact();
        std::size_t length = 1;
        if ((index & kRun) != 0)
            for (unsigned byte = kGoesOn; byte == kGoesOn && length <= pixels;)
                length += byte = cursor.byte();
        if (length > pixels) throw ProtocolError("a run of pixels beyond its tile");
        to = std::fill_n(to, length, colour);
        pixels -= length;
    }
}

void readZrleTile(Cursor &cursor, Pixel *to, const Rectangle &tile) {
    constexpr unsigned kRaw = 0, kMostPacked = 16, kRuns = 128, kRunsOfPalette = 130;
    const std::size_t pixels = std::size_t{tile.width} * tile.height;
    const unsigned kind = cursor.byte();
    if (kind == kRaw) {
        for (std::size_t i = 0; i < pixels && !cursor.missing(); ++i) to[i] = cursor.compact();
        return;
    }
    std::array<Pixel, 128> palette{};
    const unsigned count = kind <= kMostPacked ? kind : kind >= kRunsOfPalette ? kind - kRuns : 0;
    for (unsigned i = 0; i < count; ++i) palette[i] = cursor.compact();
    if (count == 1)
        std::fill_n(to, pixels, palette[0]);
    else if (kind <= kMostPacked)
        readPacked(cursor, palette, count, to, tile);
    else if (kind >= kRuns && kind != kRuns + 1)
        readRuns(cursor, palette, count, to, pixels);
    else
        throw ProtocolError("a tile of a kind that ZRLE does not have");
}

struct HextileColours {
    Pixel ground, front;
};

void readHextile(Cursor &cursor, HextileColours &colours, Pixel *to, const Rectangle &tile) {
    enum : unsigned { kRaw = 1, kGround = 2, kFront = 4, kAny = 8, kColoured = 16 };
    const unsigned kind = cursor.byte();
    const std::size_t pixels = std::size_t{tile.width} * tile.height;
    if ((kind & kRaw) != 0) {
        for (std::size_t i = 0; i < pixels; ++i) to[i] = cursor.full();
        return;
    }
    if ((kind & kGround) != 0) colours.ground = cursor.full();
    if ((kind & kFront) != 0) colours.front = cursor.full();
    std::fill_n(to, pixels, colours.ground);
    const unsigned count = (kind & kAny) != 0 ? cursor.byte() : 0;
    for (unsigned i = 0; i < count && !cursor.missing(); ++i) {
        const Pixel colour = (kind & kColoured) != 0 ? cursor.full() : colours.front;
        const unsigned place = cursor.byte(), size = cursor.byte();
        const unsigned x = place >> 4U, y = place & 15U;
        const unsigned width = (size >> 4U) + 1, height = (size & 15U) + 1;
        if (x + width > tile.width || y + height > tile.height)
            throw ProtocolError("a rectangle beyond its tile");
        for (unsigned row = y; row < y + height; ++row)
            std::fill_n(to + row * tile.width + x, width, colour);
    }
}

}  // namespace

void Incoming::append(const std::uint8_t *bytes, std::size_t count) {
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(begin_));
    begin_ = 0;
    bytes_.insert(bytes_.end(), bytes, bytes + count);
}

void RectangleDecoder::setPicture(unsigned width, unsigned height) {
    pictureWidth_ = width;
    pictureHeight_ = height;
}

void RectangleDecoder::begin(std::int32_t encoding, const Rectangle &rectangle) {
    const struct {
        std::int32_t encoding;
        Step step;
    } kSteps[] = {{kRaw, &RectangleDecoder::raw},
                  {kCopyRect, &RectangleDecoder::copyFrom},
                  {kHextile, &RectangleDecoder::hextile},
                  {kZrle, &RectangleDecoder::zrleLength}};
    const auto *known = std::find_if(std::begin(kSteps), std::end(kSteps),
                                     [&](const auto &row) { return row.encoding == encoding; });
    if (known == std::end(kSteps))
        throw ProtocolError("pixels in encoding " + std::to_string(encoding) +
                            ", which nobody asked for");
    step_ = known->step;
    whole_ = rectangle;
    x_ = y_ = 0;
    ground_ = front_ = 0;
    // ZRLE has a length and bytes of its stream also without pixels, CopyRect a place.
    complete_ = (rectangle.width == 0 || rectangle.height == 0) &&
                (encoding == kRaw || encoding == kHextile);
}

bool RectangleDecoder::step(Incoming &in) {
    return !complete_ && (this->*step_)(in);
}

bool RectangleDecoder::raw(Incoming &in) {
    const std::size_t row = whole_.width * kPixelSize;
    const auto rows = static_cast<unsigned>(
        std::min<std::size_t>({in.size() / row, whole_.height - y_,
                               std::max<std::size_t>(1, tile_.size() / whole_.width)}));
    if (rows == 0) return false;
    std::vector<Pixel> pixels(std::size_t{rows} * whole_.width);
    const std::uint8_t *bytes = in.data();
    for (Pixel &pixel : pixels) {
        pixel = compactAt(bytes);
        bytes += kPixelSize;
    }
    canvas_.draw(whole_.x, whole_.y + y_, {pixels.data(), whole_.width, whole_.width, rows});
    in.drop(rows * row);
    y_ += rows;
    complete_ = y_ == whole_.height;
    return true;
}

bool RectangleDecoder::copyFrom(Incoming &in) {
    constexpr std::size_t kSize = 4;
    if (in.size() < kSize) return false;
    fromX_ = read16(in.data());
    fromY_ = read16(in.data() + 2);
    in.drop(kSize);
    if (fromX_ + whole_.width > pictureWidth_ || fromY_ + whole_.height > pictureHeight_)
        throw ProtocolError("a copy from beyond the picture");
    complete_ = whole_.width == 0 || whole_.height == 0;
    step_ = &RectangleDecoder::copy;
    return true;
}

// In bands, from the end that is not written over before it is read.
bool RectangleDecoder::copy(Incoming &) {
    constexpr unsigned kBand = 64;
    const unsigned rows = std::min(kBand, whole_.height - y_);
    const unsigned first = whole_.y > fromY_ ? whole_.height - y_ - rows : y_;
    canvas_.copy({fromX_, fromY_ + first, whole_.width, rows}, whole_.x, whole_.y + first);
    y_ += rows;
    complete_ = y_ == whole_.height;
    return true;
}

Rectangle RectangleDecoder::nextTile(unsigned size) const {
    return {whole_.x + x_, whole_.y + y_, std::min(size, whole_.width - x_),
            std::min(size, whole_.height - y_)};
}

void RectangleDecoder::finishTile(const Rectangle &tile, unsigned size) {
    canvas_.draw(tile.x, tile.y, {tile_.data(), tile.width, tile.width, tile.height});
    x_ += size;
    if (x_ < whole_.width) return;
    x_ = 0;
    y_ += size;
}

bool RectangleDecoder::hextile(Incoming &in) {
    const Rectangle tile = nextTile(kHextileSize);
    Cursor cursor(in.data(), in.size());
    HextileColours colours{ground_, front_};
    readHextile(cursor, colours, tile_.data(), tile);
    if (cursor.missing()) return false;
    ground_ = colours.ground;
    front_ = colours.front;
    in.drop(cursor.used());
    finishTile(tile, kHextileSize);
    complete_ = y_ >= whole_.height;
    return true;
}

bool RectangleDecoder::zrleLength(Incoming &in) {
    constexpr std::size_t kSize = 4, kLeast = 1024;
    if (in.size() < kSize) return false;
    compressed_ = read32(in.data());
    in.drop(kSize);
    // Zlib makes nothing much larger, and a tile has one byte beside its pixels.
    if (compressed_ > kLeast + 2 * kPixelSize * whole_.width * whole_.height)
        throw ProtocolError("a rectangle of " + std::to_string(compressed_) + " bytes");
    if (!inflate_) inflate_ = std::make_unique<Inflate>();
    plain_.clear();
    step_ = &RectangleDecoder::zrle;
    return true;
}

bool RectangleDecoder::zrleTile() {
    if (whole_.width == 0 || y_ >= whole_.height) return false;
    const Rectangle tile = nextTile(kZrleSize);
    Cursor cursor(plain_.data(), plain_.size());
    readZrleTile(cursor, tile_.data(), tile);
    if (cursor.missing()) return false;
    plain_.erase(plain_.begin(), plain_.begin() + static_cast<std::ptrdiff_t>(cursor.used()));
    finishTile(tile, kZrleSize);
    return true;
}

bool RectangleDecoder::zrle(Incoming &in) {
    // As much as the longest tile: runs of one pixel each, behind a byte.
    constexpr std::size_t kLongestTile = 1 + kZrleSize * kZrleSize * (kCompactSize + 1);
    if (zrleTile()) return true;
    const std::size_t before = plain_.size();
    const bool drawnAll = whole_.width == 0 || y_ >= whole_.height;
    if (before > 0 && (drawnAll || before >= kLongestTile))
        throw ProtocolError("more pixels than the rectangle has");
    const std::size_t used = inflate_->append(plain_, in.data(), std::min(in.size(), compressed_),
                                              kLongestTile - before + 1);
    in.drop(used);
    compressed_ -= used;
    if (used > 0 || plain_.size() > before) return true;
    if (compressed_ > 0) return false;
    if (!drawnAll) throw ProtocolError("fewer pixels than the rectangle has");
    complete_ = true;
    return true;
}

}  // namespace gateway::rfb
