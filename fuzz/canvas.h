// A canvas that checks what a source draws.
#pragma once

#include "fuzz/require.h"
#include "gateway/rfb/canvas.h"

namespace fuzz {

class CheckedCanvas : public gateway::rfb::Canvas {
  public:
    void resize(unsigned width, unsigned height) override {
        require(fits(width, height), "a size is in its bounds");
        width_ = width;
        height_ = height;
    }
    void draw(unsigned x, unsigned y, const gateway::rfb::Pixels &pixels) override {
        inside({x, y, pixels.width, pixels.height});
        for (unsigned row = 0; row < pixels.height; ++row)
            sum_ += pixels.row(row)[0] + pixels.row(row)[pixels.width - 1];
    }
    void copy(const gateway::rfb::Rectangle &from, unsigned x, unsigned y) override {
        inside(from);
        inside({x, y, from.width, from.height});
    }
    void show() override {}
    void show(gateway::rfb::Jpeg jpeg) override {
        require(fits(jpeg.width, jpeg.height), "a size is in its bounds");
        require(jpeg.bytes.size() <= gateway::rfb::kMostJpegBytes, "a JPEG fits into a rectangle");
        if (std::size_t{jpeg.width} * jpeg.height > 1 << 16U) return;
        try {
            gateway::rfb::decodedJpeg(jpeg);
        } catch (const std::runtime_error &) {
            // Damaged pixels.
        }
    }

  private:
    void inside(const gateway::rfb::Rectangle &place) const {
        require(place.x + place.width <= width_ && place.y + place.height <= height_,
                "all is drawn inside");
    }

    unsigned width_ = 0, height_ = 0;
    volatile unsigned sum_ = 0;
};

}  // namespace fuzz
