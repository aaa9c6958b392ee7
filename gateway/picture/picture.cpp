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
    if (!isOpen() || state_ != kLive) return;
    state_ = kLost;
    if (jpeg_ && !pixelsAreJpegs_) return;  // it is decoded before
    jpeg_.reset();
    surface_->grey();
    changed_();
}

std::shared_ptr<const rfb::Jpeg> Picture::toDecode(bool wanted) {
    if (inWork_ || !jpeg_ || pixelsAreJpegs_ || !(wanted || state_ == kLost)) return nullptr;
    return inWork_ = jpeg_;
}

void Picture::decoded(const std::shared_ptr<const rfb::Jpeg> &jpeg,
                      const std::vector<Pixel> &pixels) {
    inWork_.reset();
    if (!jpeg_ || jpeg->width != surface_->width() || jpeg->height != surface_->height()) return;
    if (!pixels.empty())
        surface_->draw(0, 0, {pixels.data(), jpeg->width, jpeg->width, jpeg->height});
    pixelsAreJpegs_ = jpeg == jpeg_;
    if (state_ == kLost && pixelsAreJpegs_) {
        jpeg_.reset();
        surface_->grey();
    }
    changed_();
}

void Picture::resize(unsigned width, unsigned height) {
    if (!isOpen()) return;
    if (state_ == kWords || surface_->width() != width || surface_->height() != height)
        replaceSurface(width, height);
    state_ = kLive;
    changed_();
}

void Picture::draw(unsigned x, unsigned y, const Pixels &pixels) {
    if (isOpen()) surface_->draw(x, y, pixels);
}

void Picture::copy(const Rectangle &from, unsigned x, unsigned y) {
    if (isOpen()) surface_->copy(from, x, y);
}

void Picture::show() {
    if (isOpen()) changed_();
}

void Picture::show(rfb::Jpeg jpeg) {
    if (!isOpen()) return;
    jpeg_ = std::make_shared<rfb::Jpeg>(std::move(jpeg));
    ++jpegNumber_;
    pixelsAreJpegs_ = false;
    resize(jpeg_->width, jpeg_->height);
}

}  // namespace gateway
