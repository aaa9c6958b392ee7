#include "gateway/picture/status_picture.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "terminal/printable.h"

namespace gateway {
namespace {

constexpr char kFont[] = "DejaVu Sans 16px", kTitleFont[] = "DejaVu Sans Bold 28px";
constexpr unsigned kLeft = 24, kTop = 20, kWidth = 820, kTitleHeight = 44, kLineHeight = 26;
constexpr Pixel kText = 0xE8E8E8, kTitle = 0xFFFFFF, kTrouble = 0xFFC14D;

struct Release {
    void operator()(cairo_surface_t *surface) const { cairo_surface_destroy(surface); }
    void operator()(cairo_t *cairo) const { cairo_destroy(cairo); }
    void operator()(PangoLayout *layout) const { g_object_unref(layout); }
    void operator()(PangoFontDescription *font) const { pango_font_description_free(font); }
};
template <class T>
using Owned = std::unique_ptr<T, Release>;

// A black sheet to write words on.
class Sheet {
  public:
    Sheet(unsigned width, unsigned height)
        : width_(width),
          height_(height),
          surface_(cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(width),
                                              static_cast<int>(height))),
          cairo_(cairo_create(surface_.get())),
          layout_(pango_cairo_create_layout(cairo_.get())) {
        if (cairo_status(cairo_.get()) != CAIRO_STATUS_SUCCESS || !layout_)
            throw std::runtime_error("there is no memory for a picture");
        // Grey edges of letters, not coloured ones for a screen whose pixels nobody knows.
        cairo_font_options_t *options = cairo_font_options_create();
        cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
        cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_ON);
        pango_cairo_context_set_font_options(pango_layout_get_context(layout_.get()), options);
        cairo_font_options_destroy(options);
        pango_layout_set_single_paragraph_mode(layout_.get(), TRUE);
        pango_layout_set_ellipsize(layout_.get(), PANGO_ELLIPSIZE_END);
    }

    // Returns the width of the words.
    unsigned write(const std::string &text, const char *font, Pixel colour) {
        constexpr double kFull = 255;
        const Owned<PangoFontDescription> description(pango_font_description_from_string(font));
        pango_layout_set_font_description(layout_.get(), description.get());
        pango_layout_set_width(layout_.get(), static_cast<int>(width_) * PANGO_SCALE);
        pango_layout_set_text(layout_.get(), text.data(), static_cast<int>(text.size()));
        cairo_set_source_rgb(cairo_.get(), (colour >> 16U) / kFull, (colour >> 8U & 0xFFU) / kFull,
                             (colour & 0xFFU) / kFull);
        cairo_move_to(cairo_.get(), 0, 0);
        pango_cairo_show_layout(cairo_.get(), layout_.get());
        int width = 0;
        pango_layout_get_pixel_size(layout_.get(), &width, nullptr);
        return static_cast<unsigned>(std::max(width, 0));
    }

    Image image(unsigned width) const {
        cairo_surface_flush(surface_.get());
        const unsigned char *bytes = cairo_image_surface_get_data(surface_.get());
        const auto stride =
            static_cast<std::size_t>(cairo_image_surface_get_stride(surface_.get()));
        Image image{std::min(width, width_), height_, {}};
        for (unsigned y = 0; y < height_; ++y) {
            // Cairo's rows are aligned for its pixels, which are words of 32 bits.
            const auto *row = reinterpret_cast<const std::uint32_t *>(bytes + y * stride);
            for (unsigned x = 0; x < image.width; ++x) image.pixels.push_back(row[x] & 0xFFFFFFU);
        }
        return image;
    }

  private:
    const unsigned width_, height_;
    const Owned<cairo_surface_t> surface_;
    const Owned<cairo_t> cairo_;
    const Owned<PangoLayout> layout_;
};

Image drawn(const std::string &text, unsigned width, unsigned height, const char *font,
            Pixel colour) {
    Sheet sheet(width, height);
    sheet.write(quillon::printable(text), font, colour);
    return sheet.image(width);
}

// A cross of white with a black edge, seen on every ground.
constexpr unsigned kArm = 8;

Pixel crossPixel(unsigned x, unsigned y, Pixel ground) {
    const unsigned dx = x > kArm ? x - kArm : kArm - x, dy = y > kArm ? y - kArm : kArm - y;
    if (dx == 0 || dy == 0) return kTitle;
    return dx == 1 || dy == 1 ? 0 : ground;
}

}  // namespace

Image drawnLine(const std::string &line) {
    Sheet sheet(kWidth, kLineHeight);
    return sheet.image(sheet.write(quillon::printable(line), kFont, kText));
}

Image drawnBox(const std::vector<std::string> &lines, unsigned width) {
    constexpr unsigned kMargin = 8;
    std::vector<Image> drawnLines;
    unsigned widest = 0;
    for (const std::string &line : lines) {
        Sheet sheet(std::min(kWidth, width - std::min(width - 1, 2 * kMargin)), kLineHeight);
        drawnLines.push_back(sheet.image(sheet.write(quillon::printable(line), kFont, kTrouble)));
        widest = std::max(widest, drawnLines.back().width);
    }
    if (lines.empty()) return {};
    Image box{widest + 2 * kMargin, static_cast<unsigned>(lines.size()) * kLineHeight, {}};
    for (const Image &line : drawnLines)
        for (unsigned y = 0; y < kLineHeight; ++y) {
            box.pixels.resize(box.pixels.size() + kMargin);
            const Pixel *row = line.all().row(y);
            box.pixels.insert(box.pixels.end(), row, row + line.width);
            box.pixels.resize(box.pixels.size() + box.width - line.width - kMargin);
        }
    return box;
}

void StatusPicture::draw(Surface &surface, const StatusLines &status) {
    constexpr unsigned kLines = 8;
    if (panel_.pixels.empty()) {
        panel_.width = std::min(kWidth, surface.width() - std::min(surface.width() - 1, kLeft));
        panel_.height = kTitleHeight + (kLines + 1) * kLineHeight;
        panel_.pixels.resize(std::size_t{panel_.width} * panel_.height);
    }
    if (status.title != shown_.title)
        put(surface, 0, drawn(status.title, panel_.width, kTitleHeight, kTitleFont, kTitle));
    shown_.lines.resize(kLines);
    for (unsigned i = 0; i < kLines; ++i) {
        const std::string line = i < status.lines.size() ? status.lines[i] : "";
        if (line == shown_.lines[i]) continue;
        put(surface, kTitleHeight + i * kLineHeight,
            drawn(line, panel_.width, kLineHeight, kFont, kText));
        shown_.lines[i] = line;
    }
    if (status.trouble != shown_.trouble)
        put(surface, kTitleHeight + kLines * kLineHeight,
            drawn(status.trouble, panel_.width, kLineHeight, kFont, kTrouble));
    shown_.title = status.title;
    shown_.trouble = status.trouble;
}

void StatusPicture::put(Surface &surface, unsigned y, const Image &line) {
    std::copy(line.pixels.begin(), line.pixels.end(),
              panel_.pixels.begin() + static_cast<std::ptrdiff_t>(std::size_t{y} * panel_.width));
    surface.draw(kLeft, kTop + y, line.all());
    if (pointer_) patch(surface, *pointer_, true);
}

void StatusPicture::patch(Surface &surface, const std::pair<unsigned, unsigned> &at,
                          bool pointer) const {
    const unsigned left = at.first > kArm ? at.first - kArm : 0;
    const unsigned top = at.second > kArm ? at.second - kArm : 0;
    Image image{at.first + kArm + 1 - left, at.second + kArm + 1 - top, {}};
    for (unsigned y = top; y < top + image.height; ++y)
        for (unsigned x = left; x < left + image.width; ++x) {
            const bool inPanel =
                x >= kLeft && x < kLeft + panel_.width && y >= kTop && y < kTop + panel_.height;
            const Pixel ground =
                inPanel ? panel_.pixels[std::size_t{y - kTop} * panel_.width + (x - kLeft)] : 0;
            image.pixels.push_back(
                pointer ? crossPixel(x + kArm - at.first, y + kArm - at.second, ground) : ground);
        }
    surface.draw(left, top, image.all());
}

void StatusPicture::point(Surface &surface,
                          const std::optional<std::pair<unsigned, unsigned>> &at) {
    if (at == pointer_) return;
    if (pointer_) patch(surface, *pointer_, false);
    pointer_ = at;
    if (pointer_) patch(surface, *pointer_, true);
}

void StatusPicture::forget() {
    panel_ = {};
    shown_ = {};
    pointer_.reset();
}

}  // namespace gateway
