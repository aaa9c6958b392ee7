#include "gateway/source/vnc_source.h"

#include <algorithm>
#include <utility>

#include "gateway/rfb/handshake.h"

namespace gateway {
namespace {

using rfb::append16, rfb::append32, rfb::append8, rfb::Bytes, rfb::read16, rfb::read32;

constexpr unsigned kNone = 1, kPassword = 2, kUncounted = 0xFFFF;
constexpr std::chrono::milliseconds kWakePeriod(100), kLeastBetweenRequests(15);
constexpr int kWholeUpdates = 6;  // times the patience, for an update of many pieces

std::string securityName(unsigned type) {
    const std::pair<unsigned, const char *> kNames[] = {
        {5, "RA2"},       {6, "RA2ne"}, {16, "Tight"}, {17, "Ultra"}, {18, "TLS"},
        {19, "VeNCrypt"}, {20, "SASL"}, {21, "MD5"},   {22, "xvp"},   {30, "a Mac's account"},
        {129, "RA2-256"}};
    for (const auto &[number, name] : kNames)
        if (number == type) return name;
    return "type " + std::to_string(type);
}

[[noreturn]] void refuseSecurity(const std::string &names) {
    throw SourceError("the server wants " + names +
                      ", but only None and VNC password are spoken here");
}

}  // namespace

VncSource::VncSource(rfb::Canvas &canvas, Setup setup, Time now)
    : canvas_(canvas), setup_(std::move(setup)), decoder_(canvas), progressed_(now) {}

void VncSource::take(const std::uint8_t *bytes, std::size_t count) {
    in_.append(bytes, count);
}

bool VncSource::work(Time now) {
    constexpr std::chrono::milliseconds kSlice(3);
    const auto end = std::chrono::steady_clock::now() + kSlice;
    now_ = now;
    progress_ = false;
    bool more = true;
    while (more && std::chrono::steady_clock::now() < end) {
        if (skipping_ > 0) {
            const auto count =
                static_cast<std::size_t>(std::min<std::uint64_t>(skipping_, in_.size()));
            in_.drop(count);
            skipping_ -= count;
            more = skipping_ == 0;
        } else {
            more = (this->*step_)();
        }
    }
    if (progress_) {
        progressed_ = now;
        probed_ = false;
    }
    return more;
}

void VncSource::skip(std::size_t bytes) {
    skipping_ = bytes;
}

// ---- the handshake

bool VncSource::takeVersion() {
    constexpr std::size_t kSize = 12;
    if (in_.size() < kSize) return false;
    const std::string version(in_.data(), in_.data() + kSize);
    if (version.compare(0, 4, "RFB ") != 0) throw SourceError("it does not speak RFB");
    in_.drop(kSize);
    // What others than these three mean: below 3.7 it is 3.3, and above 3.8 the newest.
    const std::string number = version.substr(4, 7);
    minor_ = number < "003.007" ? 3 : number < "003.008" ? 7 : 8;
    rfb::appendBytes(out_, "RFB 003.00" + std::to_string(minor_) + "\n");
    step_ = minor_ == 3 ? &VncSource::takeSecurity33 : &VncSource::takeSecurity;
    progress_ = true;
    return true;
}

bool VncSource::takeSecurity33() {
    constexpr std::size_t kSize = 4;
    if (in_.size() < kSize) return false;
    const std::uint32_t type = read32(in_.data());
    in_.drop(kSize);
    if (type == 0) {
        step_ = &VncSource::takeReason;
        return true;
    }
    if (type != kNone && type != kPassword) refuseSecurity(securityName(type));
    startSecurity(type);
    return true;
}

bool VncSource::takeSecurity() {
    if (in_.size() < 1) return false;
    const std::size_t count = in_.data()[0];
    if (in_.size() < 1 + count) return false;
    const Bytes types(in_.data() + 1, in_.data() + 1 + count);
    in_.drop(1 + count);
    if (count == 0) {
        step_ = &VncSource::takeReason;
        return true;
    }
    const auto offered = [&](unsigned type) {
        return std::find(types.begin(), types.end(), type) != types.end();
    };
    const unsigned type = offered(kNone) ? kNone : kPassword;
    if (!offered(type)) {
        std::string names;
        for (const std::uint8_t one : types)
            names += (names.empty() ? "" : ", ") + securityName(one);
        refuseSecurity(names);
    }
    append8(out_, type);
    startSecurity(type);
    return true;
}

void VncSource::startSecurity(unsigned type) {
    progress_ = true;
    if (type == kPassword && setup_.password.empty())
        throw SourceError("the server wants a VNC password, and there is no file with one");
    if (type == kPassword) {
        step_ = &VncSource::takeChallenge;
    } else if (minor_ == 8) {
        step_ = &VncSource::takeResult;
    } else {
        append8(out_, 1);  // shared: others may stay
        step_ = &VncSource::takeScreen;
    }
}

bool VncSource::takeChallenge() {
    rfb::Challenge challenge{};
    if (in_.size() < challenge.size()) return false;
    std::copy_n(in_.data(), challenge.size(), challenge.begin());
    in_.drop(challenge.size());
    rfb::appendBytes(out_, rfb::encrypted(challenge, setup_.password));
    step_ = &VncSource::takeResult;
    return true;
}

bool VncSource::takeResult() {
    constexpr std::size_t kSize = 4;
    if (in_.size() < kSize) return false;
    const std::uint32_t result = read32(in_.data());
    in_.drop(kSize);
    if (result != 0 && minor_ < 8) throw SourceError("the server does not take the password");
    step_ = result == 0 ? &VncSource::takeScreen : &VncSource::takeReason;
    if (result == 0) append8(out_, 1);  // shared: others may stay
    progress_ = true;
    return true;
}

bool VncSource::takeReason() {
    constexpr std::size_t kSize = 4, kMost = 200;
    if (in_.size() < kSize) return false;
    const std::size_t size = std::min<std::size_t>(read32(in_.data()), kMost);
    if (in_.size() < kSize + size) return false;
    throw SourceError("the server refuses: " +
                      std::string(in_.data() + kSize, in_.data() + kSize + size));
}

bool VncSource::takeScreen() {
    constexpr std::size_t kSize = 4 + rfb::kPixelFormatSize + 4;
    if (in_.size() < kSize) return false;
    const unsigned width = read16(in_.data()), height = read16(in_.data() + 2);
    skip(read32(in_.data() + kSize - 4));  // its name
    in_.drop(kSize);
    resize(width, height);
    begin();
    step_ = &VncSource::takeMessage;
    progress_ = true;
    return true;
}

// ---- pictures

void VncSource::begin() {
    append8(out_, 0);
    out_.insert(out_.end(), 3, 0);
    rfb::appendPixelFormat(out_, {});
    std::vector<std::int32_t> wanted{rfb::kRaw};
    if (!setup_.local) wanted = {rfb::kCopyRect, rfb::kZrle, rfb::kHextile, rfb::kRaw};
    // Who knows the last one is QEMU, which slows down when it hears nothing.
    for (const rfb::Encoding other :
         {rfb::kDesktopSize, rfb::kExtendedDesktopSize, rfb::kLastRectangle, rfb::kRelativePointer})
        wanted.push_back(other);
    append8(out_, 2);
    append8(out_, 0);
    append16(out_, static_cast<unsigned>(wanted.size()));
    for (const std::int32_t one : wanted) append32(out_, static_cast<std::uint32_t>(one));
    running_ = true;
    wanted_ = kAll;
}

void VncSource::request(bool incremental, unsigned width, unsigned height) {
    append8(out_, 3);
    append8(out_, incremental ? 1 : 0);
    append32(out_, 0);
    append16(out_, width);
    append16(out_, height);
}

void VncSource::resize(unsigned width, unsigned height) {
    if (!rfb::Canvas::fits(width, height))
        throw SourceError("a picture of " + std::to_string(width) + "x" + std::to_string(height) +
                          " is not taken");
    if (width == width_ && height == height_) return;
    width_ = width;
    height_ = height;
    canvas_.resize(width, height);
    decoder_.setPicture(width, height);
    if (running_) wanted_ = kAll;
}

bool VncSource::takeMessage() {
    enum : unsigned { kUpdate = 0, kColourMap = 1, kBell = 2, kCutText = 3 };
    constexpr std::size_t kUpdateSize = 4, kMapSize = 6, kTextSize = 8;
    if (in_.size() < 1) return false;
    const unsigned type = in_.data()[0];
    const std::size_t size = type == kUpdate      ? kUpdateSize
                             : type == kColourMap ? kMapSize
                             : type == kBell      ? 1
                                                  : kTextSize;
    if (type > kCutText)
        throw rfb::ProtocolError("a message of type " + std::to_string(type) +
                                 ", which nobody asked for");
    if (in_.size() < size) return false;
    if (type == kColourMap) skip(6 * std::size_t{read16(in_.data() + 4)});
    if (type == kCutText) skip(read32(in_.data() + 4));
    if (type == kUpdate) {
        updating_ = now_;
        rectangles_ = read16(in_.data() + 2);
        step_ = &VncSource::takeRectangle;
    }
    in_.drop(size);
    return true;
}

// The next one of an update, or its end.
bool VncSource::takeRectangle() {
    constexpr std::size_t kSize = 12;
    if (rectangles_ == 0) {
        canvas_.show();
        if (wanted_ == kNothing) wanted_ = kChanges;
        updating_.reset();
        step_ = &VncSource::takeMessage;
        progress_ = true;
        return true;
    }
    if (in_.size() < kSize) return false;
    const std::uint8_t *head = in_.data();
    rectangle_ = {read16(head), read16(head + 2), read16(head + 4), read16(head + 6)};
    const auto encoding = static_cast<std::int32_t>(read32(head + 8));
    in_.drop(kSize);
    switch (encoding) {
        case rfb::kLastRectangle:
            rectangles_ = 0;
            return true;
        case rfb::kRelativePointer:
            sleepy_ = true;
            return finishRectangle();
        case rfb::kDesktopSize:
            resize(rectangle_.width, rectangle_.height);
            return finishRectangle();
        case rfb::kExtendedDesktopSize:
            step_ = &VncSource::takeScreens;
            return true;
        default:
            if (rectangle_.x + rectangle_.width > width_ ||
                rectangle_.y + rectangle_.height > height_)
                throw rfb::ProtocolError("pixels beyond the picture");
            decoder_.begin(encoding, rectangle_);
            step_ = &VncSource::takePixels;
            return true;
    }
}

bool VncSource::finishRectangle() {
    if (rectangles_ != kUncounted) --rectangles_;
    step_ = &VncSource::takeRectangle;
    progress_ = true;
    return true;
}

bool VncSource::takePixels() {
    if (decoder_.step(in_)) return progress_ = true;
    return decoder_.complete() && finishRectangle();
}

bool VncSource::takeScreens() {
    constexpr std::size_t kHead = 4, kScreen = 16;
    if (in_.size() < kHead) return false;
    skip(kScreen * in_.data()[0]);
    in_.drop(kHead);
    // In y stands whether a wish for another size was granted; x is 0 without a wish of anybody.
    if (rectangle_.y == 0) resize(rectangle_.width, rectangle_.height);
    return finishRectangle();
}

// ---- time

Bytes VncSource::output(Time now) {
    const auto seconds = [](auto time) { return std::to_string(time.count() / 1000) + " s"; };
    if (now - progressed_ >= setup_.patience)
        throw SourceError(running_ ? "the server has not answered for " + seconds(setup_.patience)
                                   : "the server did not finish the handshake of RFB within " +
                                         seconds(setup_.patience));
    const auto whole = kWholeUpdates * setup_.patience;
    if (updating_ && now - *updating_ >= whole)
        throw SourceError("a picture has not come to its end for " + seconds(whole));
    // The one that is asked for now has all until now; a server that answers at once gets time.
    if (wanted_ != kNothing && !updating_ && now >= asked_ + kLeastBetweenRequests) {
        request(wanted_ == kChanges, width_, height_);
        wanted_ = kNothing;
        asked_ = now;
    }
    // Whoever has nothing new must answer this one all the same.
    if (running_ && !probed_ && now - progressed_ >= setup_.patience / 2) {
        probed_ = true;
        request(false, 1, 1);
    }
    if (now >= wake_) {
        constexpr unsigned kCutText = 6, kRest = 7;  // an empty text
        append8(out_, kCutText);
        out_.insert(out_.end(), kRest, 0);
        wake_ = now < awakeUntil_ ? now + kWakePeriod : Time::max();
    }
    return std::exchange(out_, {});
}

Source::Time VncSource::due() const {
    if (!out_.empty()) return {};
    if (wanted_ != kNothing && !updating_) return asked_ + kLeastBetweenRequests;
    const auto step = running_ && !probed_ ? setup_.patience / 2 : setup_.patience;
    return std::min(wake_, progressed_ + step);
}

void VncSource::stayAwake(Time now) {
    constexpr std::chrono::seconds kAfterInput(10);
    if (!sleepy_) return;
    awakeUntil_ = now + kAfterInput;
    if (wake_ == Time::max()) wake_ = now;
}

}  // namespace gateway
