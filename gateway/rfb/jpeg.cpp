#include "gateway/rfb/jpeg.h"

#include <turbojpeg.h>

#include <algorithm>
#include <memory>
#include <new>
#include <stdexcept>

namespace gateway::rfb {
namespace {

// A pixel is a word of the machine, and libjpeg-turbo names bytes.
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr int kPixelFormat = TJPF_BGRX;
#else
constexpr int kPixelFormat = TJPF_XRGB;
#endif

[[noreturn]] void refuse(const std::string &why) {
    throw std::runtime_error("a JPEG " + why);
}

// Markers (ITU T.81, annex B).
enum : unsigned {
    kHuffmanTables = 0xC4,
    kRestart0 = 0xD0,
    kRestart7 = 0xD7,
    kBegin = 0xD8,
    kEnd = 0xD9,
    kScan = 0xDA,
    kQuantization = 0xDB,
    kRestarts = 0xDD,
    kApplication0 = 0xE0,
    kApplication15 = 0xEF,
    kComment = 0xFE,
    kFill = 0xFF
};

// The segments of a JPEG up to its pixels. Only known ones: readers differ on the length of others.
class Header {
  public:
    explicit Header(const Bytes &bytes) : bytes_(bytes) {
        if (bytes.size() < 4 || read16(bytes.data()) != (kFill << 8U | kBegin))
            refuse("that does not begin like one");
        while (!pixels_) readSegment();
    }
    unsigned width() const { return width_; }
    unsigned height() const { return height_; }
    /// Where the pixels begin.
    std::size_t end() const { return at_; }

  private:
    void readSegment() {
        while (at_ + 1 < bytes_.size() && bytes_[at_] == kFill && bytes_[at_ + 1] == kFill) ++at_;
        if (bytes_.size() - at_ < 4) refuse("that is cut in its header");
        if (bytes_[at_] != kFill) refuse("with a broken header");
        const unsigned marker = bytes_[at_ + 1], size = read16(&bytes_[at_ + 2]);
        if (size < 2) refuse("with a broken header");
        if (bytes_.size() - at_ - 2 < size) refuse("that is cut in its header");
        readSegment(marker, bytes_.data() + at_ + 4, size - 2);
        at_ += 2 + size;
    }

    void readSegment(unsigned marker, const std::uint8_t *bytes, std::size_t size) {
        constexpr unsigned kFrame0 = 0xC0, kFrame1 = 0xC1, kFrame15 = 0xCF;
        if (marker == kFrame0 || marker == kFrame1) {
            readFrame(bytes, size);
        } else if (marker == kScan) {
            if (width_ == 0 || height_ == 0) refuse("without a size");
            if (size < 1 || bytes[0] != components_) refuse("of several passes");
            if (size != 4 + 2 * components_) refuse("with a broken header");
            pixels_ = true;
        } else if (marker == kRestarts) {
            if (size != 2) refuse("with a broken header");
        } else if (marker >= kFrame0 && marker <= kFrame15 && marker != kHuffmanTables) {
            refuse("of a kind that is not taken (progressive, lossless or arithmetic)");
        } else if (marker != kHuffmanTables && marker != kQuantization && marker != kComment &&
                   (marker < kApplication0 || marker > kApplication15)) {
            refuse("with a broken header");
        }
    }

    void readFrame(const std::uint8_t *bytes, std::size_t size) {
        constexpr std::size_t kFixed = 6, kComponent = 3;
        if (components_ != 0) refuse("with two sizes");
        if (size < kFixed || size != kFixed + kComponent * bytes[5]) refuse("with a broken header");
        components_ = bytes[5];
        if (bytes[0] != 8) refuse("with other samples than of 8 bits");
        if (components_ != 1 && components_ != 3) refuse("with other colours than grey or three");
        height_ = read16(bytes + 1);
        width_ = read16(bytes + 3);
    }

    const Bytes &bytes_;
    std::size_t at_ = 2;
    unsigned width_ = 0, height_ = 0, components_ = 0;
    bool pixels_ = false;
};

// Behind the end marker. Between the pixels there may be restarts, and nothing else.
std::size_t endOfPixels(const Bytes &bytes, std::size_t at) {
    for (;;) {
        const auto found =
            std::find(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end(), kFill);
        at = static_cast<std::size_t>(found - bytes.begin());
        if (bytes.size() - at < 2) refuse("that is cut");
        const unsigned marker = bytes[at + 1];
        if (marker == kEnd) return at + 2;
        if (marker == kBegin) refuse("that is cut");
        const bool inside = marker == 0 || (marker >= kRestart0 && marker <= kRestart7);
        if (!inside && marker != kFill) refuse("of several passes");
        at += inside ? 2 : 1;
    }
}

}  // namespace

Jpeg checkedJpeg(Bytes bytes) {
    const Header header(bytes);
    const std::size_t end = endOfPixels(bytes, header.end());
    bytes.resize(end);
    if (bytes.size() > kMostJpegBytes) refuse("of more than 4 MiB");
    return {std::move(bytes), header.width(), header.height()};
}

std::vector<Pixel> decodedJpeg(const Jpeg &jpeg) {
    const std::unique_ptr<void, int (*)(tjhandle)> decompressor(tjInitDecompress(), tjDestroy);
    if (!decompressor) throw std::bad_alloc();
    int width = 0, height = 0, colours = 0, space = 0;
    const auto size = static_cast<unsigned long>(jpeg.bytes.size());
    if (tjDecompressHeader3(decompressor.get(), jpeg.bytes.data(), size, &width, &height, &colours,
                            &space) != 0 ||
        width != static_cast<int>(jpeg.width) || height != static_cast<int>(jpeg.height))
        refuse("that says two sizes");
    std::vector<Pixel> pixels(std::size_t{jpeg.width} * jpeg.height);
    const int status = tjDecompress2(decompressor.get(), jpeg.bytes.data(), size,
                                     reinterpret_cast<unsigned char *>(pixels.data()),
                                     static_cast<int>(jpeg.width), 0, static_cast<int>(jpeg.height),
                                     kPixelFormat, TJFLAG_FASTUPSAMPLE | TJFLAG_LIMITSCANS);
    if (status != 0 && tjGetErrorCode(decompressor.get()) == TJERR_FATAL)
        throw std::runtime_error(std::string("a JPEG that cannot be read: ") +
                                 tjGetErrorStr2(decompressor.get()));
    for (Pixel &pixel : pixels) pixel &= 0xFFFFFFU;
    return pixels;
}

JpegEncoder::~JpegEncoder() {
    if (compressor_ != nullptr) tjDestroy(compressor_);
}

const Bytes &JpegEncoder::encode(const Pixels &pixels, int level) {
    constexpr int kQuality[] = {20, 30, 40, 50, 60, 70, 78, 85, 92, 97};
    constexpr int kFullColour = 8, kHalfColour = 6;  // levels from which colours are as fine
    const int colours = level >= kFullColour   ? TJSAMP_444
                        : level >= kHalfColour ? TJSAMP_422
                                               : TJSAMP_420;
    if (compressor_ == nullptr) compressor_ = tjInitCompress();
    if (compressor_ == nullptr) throw std::bad_alloc();
    const int width = static_cast<int>(pixels.width), height = static_cast<int>(pixels.height);
    unsigned long size = tjBufSize(width, height, colours);
    bytes_.resize(size);
    unsigned char *to = bytes_.data();
    const int status = tjCompress2(
        compressor_, reinterpret_cast<const unsigned char *>(pixels.first), width,
        static_cast<int>(pixels.stride * sizeof(Pixel)), height, kPixelFormat, &to, &size, colours,
        kQuality[std::clamp(level, 0, kMostLevel)], TJFLAG_NOREALLOC | TJFLAG_FASTDCT);
    if (status != 0) throw std::bad_alloc();
    bytes_.resize(size);
    return bytes_;
}

}  // namespace gateway::rfb
