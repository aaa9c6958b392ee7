#include "gateway/picture/picture.h"

#include <utility>

namespace gateway {

void Picture::replaceSurface(unsigned width, unsigned height) {
    surface_ = std::make_unique<Surface>(width, height);
    ++surfaceNumber_;
    words_.forget();
    tiles_.clear();
    lines_.clear();
    banner_ = {banner_.number + 1, {}, {}};
    grey_ = 0;
}

void Picture::open(unsigned width, unsigned height) {
    const unsigned w = Surface::bounded(width), h = Surface::bounded(height);
    if (surface_ && (state_ != kWords || (surface_->width() == w && surface_->height() == h)))
        return;
    replaceSurface(w, h);
    changed_();
}

void Picture::close() {
    surface_.reset();
    words_.forget();
    tiles_.clear();
    jpeg_.reset();
    inWork_.reset();
    width_ = height_ = 0;
    state_ = kWords;
}

void Picture::draw(const StatusLines &words,
                   const std::optional<std::pair<unsigned, unsigned>> &pointer) {
    const std::uint64_t before = surface_->version();
    words_.draw(*surface_, words);
    words_.point(*surface_, pointer);
    if (surface_->version() != before) changed_();
}

void Picture::cover(const std::vector<std::string> &lines) {
    if (lines == lines_) return;
    lines_ = lines;
    banner_.image = drawnBox(lines, surface_->width());
    const unsigned width = std::min(banner_.image.width, surface_->width());
    const unsigned height = std::min(banner_.image.height, surface_->height());
    banner_.place = {(surface_->width() - width) / 2, 0, width, height};
    ++banner_.number;
    changed_();
}

void Picture::lose() {
    if (!isOpen() || state_ == kWords) return;
    state_ = kLost;
    if (jpeg_ && !pixelsAreJpegs_) return;  // it is decoded before
    jpeg_.reset();
    // What is grey already stays as it is, when the source came back in vain.
    surface_->grey(grey_);
    grey_ = surface_->version();
    drawn_ = false;
    changed_();
}

std::shared_ptr<const rfb::Jpeg> Picture::toDecode(bool wanted) {
    if (decoding_ || !jpeg_ || pixelsAreJpegs_ || !(wanted || state_ == kLost)) return nullptr;
    decoding_ = true;
    return inWork_ = jpeg_;
}

void Picture::decoded(const std::shared_ptr<const rfb::Jpeg> &jpeg,
                      const std::vector<Pixel> &pixels) {
    decoding_ = false;
    // It may have been closed, and opened again; and a newer one may have another size.
    const bool right = jpeg == std::exchange(inWork_, nullptr) && jpeg_ &&
                       jpeg->width == surface_->width() && jpeg->height == surface_->height();
    if (right && !pixels.empty())
        surface_->draw(0, 0, {pixels.data(), jpeg->width, jpeg->width, jpeg->height});
    if (jpeg_ == jpeg) {
        pixelsAreJpegs_ = true;
        if (state_ == kLost) return lose();
    }
    changed_();
}

// Words, and what a lost source left, stay until there is something to draw.
void Picture::resize(unsigned width, unsigned height) {
    if (width != width_ || height != height_) drawn_ = false;
    width_ = width;
    height_ = height;
}

bool Picture::begin() {
    if (!isOpen() || width_ == 0) return false;
    if (state_ == kWords || surface_->width() != width_ || surface_->height() != height_) {
        replaceSurface(width_, height_);
        state_ = kLost;  // not yet whole
        changed_();
    }
    return true;
}

void Picture::draw(unsigned x, unsigned y, const Pixels &pixels) {
    if (!begin()) return;
    surface_->draw(x, y, pixels);
    drawn_ = true;
}

void Picture::copy(const Rectangle &from, unsigned x, unsigned y) {
    if (!begin()) return;
    surface_->copy(from, x, y);
    drawn_ = true;
}

// An update may hold no pixels at all.
void Picture::show() {
    if (!isOpen() || !drawn_) return;
    state_ = kLive;
    changed_();
}

void Picture::show(rfb::Jpeg jpeg) {
    if (!isOpen()) return;
    auto shared = std::make_shared<const rfb::Jpeg>(std::move(jpeg));
    resize(shared->width, shared->height);
    begin();
    jpeg_ = std::move(shared);
    ++jpegNumber_;
    pixelsAreJpegs_ = false;
    state_ = kLive;
    changed_();
}

}  // namespace gateway
