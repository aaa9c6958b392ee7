// Where a source of pictures puts what it gets.
#pragma once

#include "gateway/rfb/jpeg.h"

namespace gateway::rfb {

struct Rectangle {
    unsigned x, y, width, height;
};

class Canvas {
  public:
    /// Whether a source's picture may have this size: 16 to 8192 pixels a side, 2^24 in all, so
    /// that 5120 by 2880 fit.
    static bool fits(unsigned width, unsigned height) {
        constexpr unsigned kLeast = 16, kMost = 8192;
        constexpr std::size_t kMostPixels = std::size_t{1} << 24U;
        const auto inBounds = [](unsigned side) { return side >= kLeast && side <= kMost; };
        return inBounds(width) && inBounds(height) && std::size_t{width} * height <= kMostPixels;
    }

    virtual ~Canvas() = default;
    /// The picture has this size, which fits.
    virtual void resize(unsigned width, unsigned height) = 0;
    /// Inside of the picture.
    virtual void draw(unsigned x, unsigned y, const Pixels &pixels) = 0;
    /// Both inside of the picture; they may overlap.
    virtual void copy(const Rectangle &from, unsigned x, unsigned y) = 0;
    /// What was drawn is a whole picture.
    virtual void show() = 0;
    /// A whole picture, of any size that fits.
    virtual void show(Jpeg jpeg) = 0;
};

}  // namespace gateway::rfb
