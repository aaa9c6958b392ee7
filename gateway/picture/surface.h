// The picture of an endpoint as viewers get it, in tiles that know when they changed.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "gateway/rfb/canvas.h"
#include "gateway/rfb/encoders.h"

namespace gateway {

using rfb::Pixel;
using rfb::Pixels;
using rfb::Rectangle;

struct UnmapPixels {
    std::size_t size = 0;  ///< bytes
    void operator()(Pixel *pixels) const;
};

/// Begins black. What was never drawn takes no memory, however large the picture is.
class Surface {
  public:
    static constexpr unsigned kTile = rfb::kTileSize;
    /// Sides that viewers and chips can have; others are brought into these bounds.
    static constexpr unsigned kLeast = 16, kMost = 8192;

    /// Throws std::bad_alloc.
    Surface(unsigned width, unsigned height);
    static unsigned bounded(unsigned side) { return std::clamp(side, kLeast, kMost); }

    unsigned width() const { return width_; }
    unsigned height() const { return height_; }
    const Pixel *at(unsigned x, unsigned y) const { return pixels_.get() + y * width_ + x; }

    /// Copies pixels to a place, as far as they lie inside.
    void draw(unsigned x, unsigned y, const Pixels &pixels);
    /// Copies a rectangle that lies inside to another place inside.
    void copy(const Rectangle &from, unsigned x, unsigned y);
    /// Takes the colours away, and half of the light, in tiles that changed after a version.
    void grey(std::uint64_t after);

    /// Grows with each change.
    std::uint64_t version() const { return version_; }
    unsigned tileColumns() const { return columns_; }
    std::size_t tiles() const { return changed_.size(); }
    /// The version in which a tile changed last; tiles are counted in rows from the upper left one.
    std::uint64_t changed(std::size_t tile) const { return changed_[tile]; }

    struct Place {
        unsigned x, y;
        Pixels pixels;
    };
    Place tile(std::size_t tile) const;
    /// Calls for each tile that has something of a rectangle.
    void eachTile(const Rectangle &of, const std::function<void(std::size_t)> &call) const;

  private:
    unsigned width_, height_, columns_;
    std::unique_ptr<Pixel[], UnmapPixels> pixels_;
    std::uint64_t version_ = 1;
    std::vector<std::uint64_t> changed_;
};

}  // namespace gateway
