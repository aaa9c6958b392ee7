// Rectangles of pixels as a server of RFB sends them, piece by piece, in the format of a Pixel: 32
// bits, the least significant byte first. Raw, CopyRect, Hextile and ZRLE.
#pragma once

#include <array>
#include <memory>

#include "gateway/rfb/canvas.h"
#include "gateway/rfb/inflate.h"

namespace gateway::rfb {

/// Bytes that have come and wait.
class Incoming {
  public:
    void append(const std::uint8_t *bytes, std::size_t count);
    void drop(std::size_t count) { begin_ += count; }
    const std::uint8_t *data() const { return bytes_.data() + begin_; }
    std::size_t size() const { return bytes_.size() - begin_; }

  private:
    Bytes bytes_;
    std::size_t begin_ = 0;
};

/// One rectangle after the other, for one connection. Keeps some tiles at most.
class RectangleDecoder {
  public:
    explicit RectangleDecoder(Canvas &canvas) : canvas_(canvas) {}

    /// A rectangle begins, which lies inside of the picture. Throws ProtocolError for an encoding
    /// that is none of these.
    void begin(std::int32_t encoding, const Rectangle &rectangle);
    /// Takes a small piece of it; false when it needs more bytes, or is complete. Throws
    /// ProtocolError.
    bool step(Incoming &in);
    bool complete() const { return complete_; }
    /// width and height: of the picture, in which CopyRect has to stay.
    void setPicture(unsigned width, unsigned height);

  private:
    using Step = bool (RectangleDecoder::*)(Incoming &);
    bool raw(Incoming &in);
    bool copyFrom(Incoming &in);
    bool copy(Incoming &in);
    bool hextile(Incoming &in);
    bool zrleLength(Incoming &in);
    bool zrle(Incoming &in);
    bool zrleTile();
    Rectangle nextTile(unsigned size) const;
    void finishTile(const Rectangle &tile, unsigned size);

    Canvas &canvas_;
    unsigned pictureWidth_ = 0, pictureHeight_ = 0;
    Step step_ = nullptr;
    Rectangle whole_{};
    bool complete_ = true;
    unsigned x_ = 0, y_ = 0;  ///< of what comes next, in the rectangle
    unsigned fromX_ = 0, fromY_ = 0;
    Pixel ground_ = 0, front_ = 0;
    std::unique_ptr<Inflate> inflate_;
    std::size_t compressed_ = 0;  ///< bytes that are still to come
    Bytes plain_;
    std::array<Pixel, 64 * 64> tile_{};
};

}  // namespace gateway::rfb
