#include "gateway/viewer_session.h"

#include <algorithm>

#include "gateway/input/scan_codes.h"
#include "gateway/rfb/handshake.h"

namespace gateway {
namespace {

using rfb::append16, rfb::append32, rfb::append8, rfb::Bytes;

constexpr std::chrono::milliseconds kLeastBetweenUpdates(20), kLeastBetweenRefreshes(250);
constexpr std::size_t kMostReplies = 4096;

void appendHeader(Bytes &to, unsigned x, unsigned y, unsigned width, unsigned height,
                  rfb::Encoding encoding) {
    append16(to, x);
    append16(to, y);
    append16(to, width);
    append16(to, height);
    append32(to, static_cast<std::uint32_t>(encoding));
}

void appendFence(Bytes &to, std::uint32_t flags, const Bytes &payload) {
    constexpr unsigned kMessage = 248;
    append8(to, kMessage);
    to.insert(to.end(), 3, 0);
    append32(to, flags);
    append8(to, static_cast<unsigned>(payload.size()));
    rfb::appendBytes(to, payload);
}

unsigned ledsOf(const quillon::LockKeys &locks) {
    constexpr unsigned kNum = 2, kCaps = 4;
    return (locks.num ? kNum : 0) | (locks.caps ? kCaps : 0);
}

}  // namespace

ViewerSession::ViewerSession(Desk &desk, std::string from, std::size_t updateSize,
                             std::function<void()> wake)
    : from_(std::move(from)),
      updateSize_(updateSize),
      wake_(std::move(wake)),
      desk_(desk),
      joined_(desk, *this),
      keys_(desk_.input(), [this]() -> const quillon::Typist & { return desk_.typist(); }),
      pointer_(desk_.input()),
      width_(desk_.picture().surface().width()),
      height_(desk_.picture().surface().height()) {}

Bytes ViewerSession::screen() {
    width_ = desk_.picture().surface().width();
    height_ = desk_.picture().surface().height();
    Bytes bytes;
    rfb::appendScreen(bytes, width_, height_, format_, desk_.setup().name);
    return bytes;
}

bool ViewerSession::knows(rfb::Encoding encoding) const {
    return std::find(encodings_.begin(), encodings_.end(), encoding) != encodings_.end();
}

void ViewerSession::take(const rfb::ViewerMessage &message, Time now) {
    now_ = now;
    std::visit([this](const auto &kind) { take(kind); }, message);
}

void ViewerSession::take(const rfb::PixelFormat &format) {
    format_ = format;
    if (format.mapped && replies_.size() < kMostReplies) rfb::appendColourMap(replies_);
    chooseTiles();
    changed();
}

// Tight goes with one choice of format and quality, which viewers share.
void ViewerSession::chooseTiles() {
    tiles_ =
        encoding_ == rfb::kTight ? desk_.picture().tiles().forFormat(format_, quality_) : nullptr;
    takesJpegs_ = tiles_ && quality_ != rfb::TightEncoder::kLossless && rfb::takesJpegs(format_);
}

void ViewerSession::take(const rfb::SetEncodings &message) {
    encodings_ = message.wanted;
    encoding_ = knows(rfb::kTight) ? rfb::kTight : knows(rfb::kZrle) ? rfb::kZrle : rfb::kRaw;
    quality_ = rfb::TightEncoder::kLossless;
    for (const std::int32_t one : encodings_)
        if (one >= rfb::kQualityLevel0 && one <= rfb::kQualityLevel0 + rfb::JpegEncoder::kMostLevel)
            quality_ = one - rfb::kQualityLevel0;
    chooseTiles();
    toldKeys_ = toldSize_ = false;
    leds_.reset();
    if (!knows(rfb::kFence)) stall_ = {};
    changed();
    lookForPixels();
}

// A JPEG waits that has to be decoded for this viewer.
void ViewerSession::lookForPixels() {
    if (wantsPixels() && desk_.picture().jpeg() != nullptr) desk_.look();
}

void ViewerSession::take(const rfb::UpdateRequest &message) {
    requested_ = true;
    refresh_ = refresh_ || !message.incremental;
    changed();
    lookForPixels();
}

void ViewerSession::changed() {
    unchanged_ = false;
    wake_();
}

void ViewerSession::send(Time now) {
    if (!inputWaits_) return;
    inputWaits_ = false;
    stall_.setHolding(holding(), now);
    desk_.send(now);
    wake_();
}

void ViewerSession::take(const rfb::KeyEvent &event) {
    // Viewers also send codes that no keyboard of a PC has, beside a keysym that says it.
    const bool byCode = event.code && usageOfScanCode(*event.code) != 0;
    const ViewerKey key = byCode ? ViewerKey{ViewerKey::kScanCode, *event.code}
                                 : ViewerKey{ViewerKey::kKeysym, event.keysym};
    if (!desk_.hasInput(*this)) {
        // What a watcher has down counts only after its release, should it get the input.
        if (event.down)
            keys_.ignore(key);
        else
            keys_.release(key);
        return;
    }
    if (knows(rfb::kFence)) stall_.acted(event.down, now_);
    if (!event.down) {
        keys_.release(key);
    } else if (stall_.dropping()) {
        keys_.ignore(key);
    } else {
        desk_.refuse(keys_.press(key));
        if (const std::uint8_t lock = keys_.takeLockKey()) desk_.lockKeySent(lock, now_);
    }
    inputWaits_ = true;
}

void ViewerSession::take(const rfb::PointerEvent &event) {
    if (!desk_.hasInput(*this)) return pointer_.ignore(event.buttons);
    if (knows(rfb::kFence)) stall_.acted(event.buttons != 0, now_);
    const auto &link = desk_.status().link;
    std::string why;
    if (stall_.dropping()) {
        pointer_.ignore(event.buttons);
    } else if (!link) {
        pointer_.release(event.buttons);
    } else if (relative_) {
        constexpr int kStill = 0x7FFF;
        const auto way = [](int at) {
            constexpr int kFarthest = 508;  // four records
            return std::clamp(at - kStill, -kFarthest, kFarthest);
        };
        why = link->relative ? pointer_.moveBy(event.buttons, way(event.x), way(event.y))
                             : pointer_.press(event.buttons);
    } else if (link->relative) {
        why = pointer_.press(event.buttons);
    } else {
        why = pointer_.place(event.buttons, {event.x, event.y}, {width_, height_}, *link);
        desk_.point(pointer_.position());
    }
    if (!why.empty()) desk_.refuse(why);
    inputWaits_ = true;
}

void ViewerSession::take(const rfb::FenceEvent &event) {
    constexpr std::size_t kNumber = 4;
    if ((event.flags & rfb::kFenceRequest) == 0) {
        if (event.payload.size() == kNumber)
            stall_.answered(rfb::read32(event.payload.data()), now_);
    } else if (replies_.size() < kMostReplies) {
        constexpr std::uint32_t kKept =
            rfb::kFenceBlockBefore | rfb::kFenceBlockAfter | rfb::kFenceSyncNext;
        appendFence(replies_, event.flags & kKept, event.payload);
    }
    wake_();
}

void ViewerSession::take(const rfb::SetDesktopSize &) {
    constexpr unsigned kThisViewer = 1;
    sizeAnswer_ = kThisViewer;
    changed();
}

void ViewerSession::letGo() {
    keys_.letGo();
    pointer_.letGo();
    stall_.setHolding(false, now_);
}

void ViewerSession::appendFences(Bytes &to, Time now) {
    rfb::appendBytes(to, replies_);
    replies_.clear();
    runStallWatch(now);
    if (!wantsFence_) return;
    wantsFence_ = false;
    Bytes number;
    append32(number, stall_.fence());
    appendFence(to, rfb::kFenceRequest | rfb::kFenceBlockBefore, number);
}

void ViewerSession::runStallWatch(Time now) {
    if (!knows(rfb::kFence)) return;
    for (auto action = stall_.due(now); action != StallWatch::kNothing; action = stall_.due(now))
        if (action == StallWatch::kSendFence)
            wantsFence_ = true;
        else
            stalled(now);
}

void ViewerSession::stalled(Time now) {
    letGo();
    desk_.input().releaseAll();
    desk_.note("The viewer " + from_ + " did not react for 3 s; everything was let go.");
    desk_.send(now);
}

void ViewerSession::watch(Time now, std::optional<Time> writing) {
    constexpr std::chrono::seconds kPatience(3);
    runStallWatch(now);
    if (holding() && writing && now - *writing >= kPatience) stalled(now);
}

// The size that the viewer does not know yet, and the answer to its wish for another one.
unsigned ViewerSession::appendSize(Bytes &to) {
    const Surface &surface = desk_.picture().surface();
    const bool resized = surface.width() != width_ || surface.height() != height_;
    const bool extended = knows(rfb::kExtendedDesktopSize);
    if (!resized && !(extended && (!toldSize_ || sizeAnswer_ != 0))) return 0;
    if (!extended && !knows(rfb::kDesktopSize))
        throw rfb::ProtocolError(
            "the picture has another size now, which this viewer cannot follow");
    width_ = surface.width();
    height_ = surface.height();
    if (!extended) {
        appendHeader(to, 0, 0, width_, height_, rfb::kDesktopSize);
        return 1;
    }
    constexpr unsigned kProhibited = 1;
    appendHeader(to, sizeAnswer_, sizeAnswer_ != 0 ? kProhibited : 0, width_, height_,
                 rfb::kExtendedDesktopSize);
    append8(to, 1);  // one screen, from the upper left corner on
    to.insert(to.end(), 3, 0);
    append32(to, 0);
    append32(to, 0);
    append16(to, width_);
    append16(to, height_);
    append32(to, 0);
    toldSize_ = true;
    sizeAnswer_ = 0;
    return 1;
}

// What is not pixels: sizes, lock keys, and what the gateway can do.
unsigned ViewerSession::appendState(Bytes &to) {
    unsigned count = appendSize(to);
    if (surface_ != desk_.picture().surfaceNumber()) forgetPicture();
    surface_ = desk_.picture().surfaceNumber();
    if (knows(rfb::kExtendedKeyEvents) && !toldKeys_) {
        appendHeader(to, 0, 0, width_, height_, rfb::kExtendedKeyEvents);
        toldKeys_ = true;
        ++count;
    }
    const auto &link = desk_.status().link;
    const bool relative = link && link->relative;
    if (knows(rfb::kRelativePointer) && relative != relative_) {
        appendHeader(to, relative ? 0 : 1, 0, width_, height_, rfb::kRelativePointer);
        relative_ = relative;
        ++count;
    }
    const auto &locks = desk_.locks().certain();
    if (knows(rfb::kLedState) && locks && leds_ != ledsOf(*locks)) {
        leds_ = ledsOf(*locks);
        appendHeader(to, 0, 0, 1, 1, rfb::kLedState);
        append8(to, *leds_);
        ++count;
    }
    return count;
}

void ViewerSession::appendTile(Bytes &to, std::size_t tile) {
    const Surface &surface = desk_.picture().surface();
    const Surface::Place place = surface.tile(tile);
    appendHeader(to, place.x, place.y, place.pixels.width, place.pixels.height, encoding_);
    if (encoding_ == rfb::kTight)
        rfb::appendBytes(to, tiles_->tile(surface, tile, desk_.picture().tiles().encoder()));
    else
        appendPixels(to, place.pixels);
    bannerHidden_ = bannerHidden_ || (place.y < covered_.y + covered_.height &&
                                      place.x < covered_.x + covered_.width &&
                                      place.x + place.pixels.width > covered_.x);
}

void ViewerSession::appendPixels(Bytes &to, const Pixels &pixels) {
    if (encoding_ == rfb::kTight)
        desk_.picture().tiles().encoder().append(to, pixels, format_, quality_);
    else if (encoding_ == rfb::kZrle)
        zrle_.append(to, pixels, format_);
    else
        rfb::appendRaw(to, pixels, format_);
}

// What does not fit, or takes long, goes with the next update, which begins where this one ends:
// so all of a picture gets its turn that changes faster than it can be sent.
unsigned ViewerSession::appendTiles(Bytes &to) {
    constexpr std::chrono::milliseconds kMostTime(8);
    const auto end = std::chrono::steady_clock::now() + kMostTime;
    const Surface &surface = desk_.picture().surface();
    constexpr unsigned kMostTiles = 600;  // one picture of 1080 lines
    unsigned count = 0;
    sent_.resize(surface.tiles());
    for (std::size_t i = 0; i < sent_.size(); ++i) {
        const std::size_t tile = (next_ + i) % sent_.size();
        if (sent_[tile] == surface.changed(tile)) continue;
        if (to.size() >= updateSize_ || count == kMostTiles ||
            (count > 0 && std::chrono::steady_clock::now() >= end)) {
            next_ = tile;
            break;
        }
        appendTile(to, tile);
        sent_[tile] = surface.changed(tile);
        ++count;
    }
    return count;
}

void ViewerSession::forgetPicture() {
    sent_.assign(desk_.picture().surface().tiles(), 0);
    jpeg_ = banner_ = 0;
    covered_ = {};
}

// What lies under a banner that is not right any more is sent again.
void ViewerSession::uncover() {
    if (covered_.width == 0 || banner_ == desk_.picture().banner().number) return;
    jpeg_ = 0;
    sent_.resize(desk_.picture().surface().tiles());
    desk_.picture().surface().eachTile(covered_, [this](std::size_t tile) { sent_[tile] = 0; });
    covered_ = {};
}

unsigned ViewerSession::appendPicture(Bytes &to) {
    const Picture &picture = desk_.picture();
    uncover();
    unsigned count = 0;
    if (const rfb::Jpeg *jpeg = picture.jpeg(); jpeg == nullptr || !takesJpegs_) {
        jpeg_ = 0;
        count = appendTiles(to);
    } else if (jpeg_ != picture.jpegNumber()) {
        // No tile is what the viewer has any more.
        sent_.assign(picture.surface().tiles(), 0);
        appendHeader(to, 0, 0, jpeg->width, jpeg->height, rfb::kTight);
        rfb::appendTightJpeg(to, jpeg->bytes);
        jpeg_ = picture.jpegNumber();
        count = 1;
        bannerHidden_ = true;
    }
    const bool wanted = banner_ != picture.banner().number || bannerHidden_;
    return wanted ? count + appendBanner(to) : count;
}

unsigned ViewerSession::appendBanner(Bytes &to) {
    const Banner &banner = desk_.picture().banner();
    banner_ = banner.number;
    covered_ = banner.place;
    bannerHidden_ = false;
    unsigned count = 0;
    for (unsigned y = 0; y < covered_.height; y += Surface::kTile)
        for (unsigned x = 0; x < covered_.width; x += Surface::kTile) {
            const Pixels piece{banner.image.all().row(y) + x, banner.image.width,
                               std::min(Surface::kTile, covered_.width - x),
                               std::min(Surface::kTile, covered_.height - y)};
            appendHeader(to, covered_.x + x, covered_.y + y, piece.width, piece.height, encoding_);
            appendPixels(to, piece);
            ++count;
        }
    return count;
}

// The whole picture is dear; who asks for it all the time gets it four times a second.
ViewerSession::Time ViewerSession::updateDue() const {
    const Time next = updated_ + kLeastBetweenUpdates;
    return refresh_ ? std::max(next, refreshed_ + kLeastBetweenRefreshes) : next;
}

void ViewerSession::appendUpdate(Bytes &to, Time now) {
    if (!requested_ || unchanged_ || now < updateDue()) return;
    if (refresh_) {
        forgetPicture();
        refresh_ = false;
        refreshed_ = now;
    }
    constexpr unsigned kMessage = 0;
    const std::size_t begin = to.size();
    append8(to, kMessage);
    append8(to, 0);
    append16(to, 0);
    unsigned count = appendState(to);
    count += appendPicture(to);
    if (count == 0) {
        to.resize(begin);
        unchanged_ = true;
        return;
    }
    to[begin + 2] = static_cast<std::uint8_t>(count >> 8U);
    to[begin + 3] = static_cast<std::uint8_t>(count);
    requested_ = false;
    updated_ = now;
}

Bytes ViewerSession::output(Time now) {
    Bytes bytes;
    appendFences(bytes, now);
    appendUpdate(bytes, now);
    return bytes;
}

ViewerSession::Time ViewerSession::due() const {
    const Time fences = wantsFence_ ? Time{} : knows(rfb::kFence) ? stall_.next() : Time::max();
    return requested_ && !unchanged_ ? std::min(fences, updateDue()) : fences;
}

}  // namespace gateway
