// JPEGs of libjpeg-turbo.
#pragma once

#include <string>
#include <vector>

#include "gateway/rfb/pixel_format.h"

namespace gateway::rfb {

struct Jpeg {
    Bytes bytes;
    unsigned width, height;
};

/// Most bytes of a JPEG in a rectangle: Tight has 22 bits for the length.
constexpr std::size_t kMostJpegBytes = (1U << 22U) - 1;

/// Looks at a JPEG as a source sent it, and cuts off what stands behind its end. Takes those of 8
/// bits with Huffman codes in one pass (SOF0 and SOF1), grey or with three components, which is
/// what cameras and capture devices make. Throws std::runtime_error with the reason for others, and
/// for one that is cut. Its pixels may still be damaged.
Jpeg checkedJpeg(Bytes bytes);

/// Its pixels. Damaged ones come as far as they can be read. Throws std::runtime_error when nothing
/// can be read. May be called from any thread.
std::vector<Pixel> decodedJpeg(const Jpeg &jpeg);

/// An object is for one thread.
class JpegEncoder {
  public:
    JpegEncoder() = default;
    ~JpegEncoder();
    JpegEncoder(const JpegEncoder &) = delete;
    JpegEncoder &operator=(const JpegEncoder &) = delete;

    /// Levels of quality that a viewer can ask for, see kQualityLevel0.
    static constexpr int kMostLevel = 9;
    /// The bytes count until the next call. Throws std::bad_alloc.
    const Bytes &encode(const Pixels &pixels, int level);

  private:
    void *compressor_ = nullptr;
    Bytes bytes_;
};

}  // namespace gateway::rfb
