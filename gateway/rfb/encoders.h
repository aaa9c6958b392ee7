// Pixels as the data of a rectangle of an update, without its header. Rectangles are tiles of 64
// by 64 pixels at most, so that an encoded tile serves every viewer that takes the same format.
#pragma once

#include <array>
#include <vector>

#include "gateway/rfb/deflate.h"
#include "gateway/rfb/jpeg.h"
#include "gateway/rfb/pixel_format.h"

namespace gateway::rfb {

constexpr unsigned kTileSize = 64;

void appendRaw(Bytes &to, const Pixels &pixels, const PixelFormat &format);

/// The colours of a tile, as far as they are few.
class Palette {
  public:
    /// Most colours that can be told apart by one byte.
    static constexpr std::size_t kMost = 256;

    /// Reads a tile; false when it has more than most colours.
    bool read(const Pixels &pixels, std::size_t most);
    const std::vector<Pixel> &colours() const { return colours_; }
    /// The number of a colour that was read.
    std::uint8_t indexOf(Pixel pixel) const;

  private:
    static constexpr std::size_t kSlots = 1024;
    std::vector<Pixel> colours_;
    std::array<std::uint16_t, kSlots> slots_{};  ///< number + 1; 0: free
};

/// Tight: one colour, few colours, or all of them, with a stream of zlib that begins anew in each
/// rectangle. So the data of one viewer are good for another, whatever each has got before. With a
/// quality, many colours are a JPEG.
class TightEncoder {
  public:
    static constexpr int kLossless = -1;
    /// quality: see JpegEncoder, or kLossless. Tight has JPEGs for 16 and 32 bits.
    void append(Bytes &to, const Pixels &pixels, const PixelFormat &format, int quality);

  private:
    void appendCompressed(Bytes &to);

    Deflate deflate_;
    Palette palette_;
    JpegEncoder jpeg_;
    Bytes plain_;
};

/// Whether a viewer with this format takes JPEGs in Tight.
bool takesJpegs(const PixelFormat &format);
/// The data of a rectangle in Tight that is one whole JPEG, of kMostJpegBytes at most.
void appendTightJpeg(Bytes &to, const Bytes &jpeg);

/// ZRLE: one stream of zlib for the whole connection, so each viewer has an encoder.
class ZrleEncoder {
  public:
    void append(Bytes &to, const Pixels &pixels, const PixelFormat &format);

  private:
    Deflate deflate_;
    Palette palette_;
    Bytes plain_;
};

}  // namespace gateway::rfb
