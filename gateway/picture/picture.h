// What the viewers of an endpoint see: words, or what a source of pictures gives, with words over
// it.
#pragma once

#include <functional>
#include <memory>

#include "gateway/picture/status_picture.h"
#include "gateway/picture/tile_cache.h"

namespace gateway {

/// Lies over the picture.
struct Banner {
    unsigned number = 0;  ///< another one for other words
    Rectangle place{};    ///< no width: there is none
    Image image;
};

class Picture : public rfb::Canvas {
  public:
    enum State {
        kWords,  ///< there was no picture of a source yet
        kLive,
        kLost  ///< the last one of the source is grey, or the first one is not whole
    };

    /// changed: there is something new for viewers.
    explicit Picture(std::function<void()> changed) : changed_(std::move(changed)) {}

    /// Somebody sees it: words, in this size, which is brought into bounds. Throws std::bad_alloc.
    void open(unsigned width, unsigned height);
    /// Nobody sees it, so it takes no memory.
    void close();
    bool isOpen() const { return surface_ != nullptr; }
    State state() const { return state_; }

    /// Only while it is open.
    const Surface &surface() const { return *surface_; }
    /// Another number: another surface, whose tiles begin anew.
    unsigned surfaceNumber() const { return surfaceNumber_; }
    TileCache &tiles() { return tiles_; }
    /// The picture as one JPEG, for who takes that; null: the surface has it.
    const rfb::Jpeg *jpeg() const { return jpeg_.get(); }
    unsigned jpegNumber() const { return jpegNumber_; }
    const Banner &banner() const { return banner_; }

    /// Draws words, as long as the source has given nothing; and where the pointer was sent.
    void draw(const StatusLines &words,
              const std::optional<std::pair<unsigned, unsigned>> &pointer);
    /// Words that lie over the source's picture; none: nothing lies there.
    void cover(const std::vector<std::string> &lines);
    /// The source is lost.
    void lose();

    /// A JPEG to decode, once, for viewers that need pixels (wanted), or to make it grey; null:
    /// nothing is to be done. What comes of it goes to decoded().
    std::shared_ptr<const rfb::Jpeg> toDecode(bool wanted);
    /// pixels: empty for one that cannot be read.
    void decoded(const std::shared_ptr<const rfb::Jpeg> &jpeg, const std::vector<Pixel> &pixels);

    // The source draws here. Nothing happens while it is not open.
    void resize(unsigned width, unsigned height) override;
    void draw(unsigned x, unsigned y, const Pixels &pixels) override;
    void copy(const Rectangle &from, unsigned x, unsigned y) override;
    void show() override;
    void show(rfb::Jpeg jpeg) override;

  private:
    void replaceSurface(unsigned width, unsigned height);
    bool begin();

    const std::function<void()> changed_;
    State state_ = kWords;
    std::unique_ptr<Surface> surface_;
    unsigned surfaceNumber_ = 0;
    TileCache tiles_;
    StatusPicture words_;
    unsigned width_ = 0, height_ = 0;  ///< of the source's picture; 0: not known
    std::shared_ptr<const rfb::Jpeg> jpeg_, inWork_;
    bool decoding_ = false;
    bool drawn_ = false;      ///< since its size was told, or the source was lost
    std::uint64_t grey_ = 0;  ///< the surface's version when it became grey; 0: it did not
    unsigned jpegNumber_ = 0;
    bool pixelsAreJpegs_ = false;  ///< the surface shows jpeg_
    std::vector<std::string> lines_;
    Banner banner_;
};

}  // namespace gateway
