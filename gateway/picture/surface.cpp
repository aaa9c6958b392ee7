#include "gateway/picture/surface.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

namespace gateway {
namespace {

unsigned tilesFor(unsigned pixels) {
    return (pixels + Surface::kTile - 1) / Surface::kTile;
}

}  // namespace

void UnmapPixels::operator()(Pixel *pixels) const {
    munmap(pixels, size);
}

Surface::Surface(unsigned width, unsigned height)
    : width_(bounded(width)),
      height_(bounded(height)),
      columns_(tilesFor(width_)),
      changed_(std::size_t{columns_} * tilesFor(height_), 1) {
    // Pages of zeroes that nobody has written to are all the same one.
    const std::size_t size = std::size_t{width_} * height_ * sizeof(Pixel);
    void *pages = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (pages == MAP_FAILED) throw std::bad_alloc();
    pixels_ = std::unique_ptr<Pixel[], UnmapPixels>(static_cast<Pixel *>(pages), {size});
}

void Surface::draw(unsigned x, unsigned y, const Pixels &pixels) {
    if (x >= width_ || y >= height_) return;
    const unsigned right = x + std::min(pixels.width, width_ - x);
    const unsigned bottom = y + std::min(pixels.height, height_ - y);
    const std::uint64_t next = version_ + 1;
    for (unsigned line = y; line < bottom; ++line)
        for (unsigned from = x; from < right;) {
            const unsigned to = std::min(right, (from / kTile + 1) * kTile);
            const Pixel *source = pixels.row(line - y) + (from - x);
            Pixel *target = pixels_.get() + std::size_t{line} * width_ + from;
            const std::size_t size = (to - from) * sizeof(Pixel);
            if (memcmp(target, source, size) != 0) {
                memcpy(target, source, size);
                changed_[std::size_t{line / kTile} * columns_ + from / kTile] = next;
                version_ = next;
            }
            from = to;
        }
}

void Surface::copy(const Rectangle &from, unsigned x, unsigned y) {
    std::vector<Pixel> row(from.width);
    for (unsigned i = 0; i < from.height; ++i) {
        // From the end that is not written over before it is read.
        const unsigned line = y > from.y ? from.height - 1 - i : i;
        const Pixel *source = at(from.x, from.y + line);
        std::copy(source, source + from.width, row.begin());
        draw(x, y + line, {row.data(), row.size(), from.width, 1});
    }
}

void Surface::grey(std::uint64_t after) {
    for (std::size_t i = 0; i < changed_.size(); ++i) {
        if (changed_[i] <= after) continue;
        const Place place = tile(i);
        std::array<Pixel, std::size_t{kTile} * kTile> grey{};
        Pixel *to = grey.data();
        for (unsigned y = 0; y < place.pixels.height; ++y)
            for (unsigned x = 0; x < place.pixels.width; ++x) {
                // The weights of ITU-R BT.601, in parts of 512: half of the light.
                const Pixel pixel = place.pixels.row(y)[x];
                *to++ = 0x010101U * (((pixel >> 16U & 0xFFU) * 77 + (pixel >> 8U & 0xFFU) * 150 +
                                      (pixel & 0xFFU) * 29) >>
                                     9U);
            }
        const Pixels &was = place.pixels;
        draw(place.x, place.y, {grey.data(), was.width, was.width, was.height});
    }
}

void Surface::eachTile(const Rectangle &of, const std::function<void(std::size_t)> &call) const {
    const unsigned right = std::min(width_, of.x + of.width),
                   bottom = std::min(height_, of.y + of.height);
    for (unsigned y = of.y / kTile * kTile; y < bottom; y += kTile)
        for (unsigned x = of.x / kTile * kTile; x < right; x += kTile)
            call(std::size_t{y / kTile} * columns_ + x / kTile);
}

Surface::Place Surface::tile(std::size_t tile) const {
    const auto column = static_cast<unsigned>(tile % columns_);
    const auto row = static_cast<unsigned>(tile / columns_);
    const unsigned x = column * kTile, y = row * kTile;
    return {x, y, {at(x, y), width_, std::min(kTile, width_ - x), std::min(kTile, height_ - y)}};
}

}  // namespace gateway
