// One viewer at a desk: its messages in, updates of the picture out.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/desk.h"
#include "gateway/input/stall_watch.h"
#include "gateway/input/viewer_keys.h"
#include "gateway/input/viewer_pointer.h"
#include "gateway/rfb/viewer_messages.h"

namespace gateway {

/// Begins behind the handshake. Knows no socket: the caller sends what output() gives, and asks
/// again when that is sent, so that at most one update is on its way and a slow viewer gets the
/// newest picture. An object is for one thread; it must not outlive its desk.
class ViewerSession : public Sitter {
  public:
    using Time = Desk::Time;

    /// from: where the viewer comes from, for a person. updateSize: bytes of an update, after which
    /// the rest goes with the next. wake: called when output() may have something, or due() has
    /// changed. Throws std::runtime_error like Desk::join().
    ViewerSession(Desk &desk, std::string from, std::size_t updateSize, std::function<void()> wake);
    /// Lets go what the viewer holds.
    ~ViewerSession() override = default;
    ViewerSession(const ViewerSession &) = delete;
    ViewerSession &operator=(const ViewerSession &) = delete;

    /// The last message of the handshake, with the picture's size as it is now.
    rfb::Bytes screen();
    /// Takes a message; call send() after those that came together.
    void take(const rfb::ViewerMessage &message, Time now);
    /// Sends the input at once, and has the line watched while something is down.
    void send(Time now);
    /// What is to be sent now: updateSize at most and one tile, or one JPEG of the source; and the
    /// words over it, 350 kB at most where nothing is compressed. Empty for nothing. Throws
    /// rfb::ProtocolError when the picture changed in a way that this viewer cannot follow.
    rfb::Bytes output(Time now);
    /// When output() may have something without a call of wake.
    Time due() const;
    /// Finds out a viewer that does not react, also while it takes nothing; writing: since when it
    /// has not taken what was sent, or no time. Call it every 200 ms while holding().
    void watch(Time now, std::optional<Time> writing);
    /// Something is down, so a connection that does not answer must be found out soon.
    bool holding() const { return keys_.holding() || pointer_.holding(); }

    void changed() override;
    void letGo() override;
    const std::string &from() const override { return from_; }
    bool wantsPixels() const override { return requested_ && !takesJpegs_; }

  private:
    // Joins before what follows is made, and leaves after it has ended.
    class Joined {
      public:
        Joined(Desk &desk, Sitter &sitter) : desk_(desk), sitter_(sitter) { desk_.join(sitter_); }
        ~Joined() { desk_.leave(sitter_); }
        Joined(const Joined &) = delete;
        Joined &operator=(const Joined &) = delete;

      private:
        Desk &desk_;
        Sitter &sitter_;
    };

    void take(const rfb::PixelFormat &format);
    void take(const rfb::SetEncodings &message);
    void take(const rfb::UpdateRequest &message);
    void take(const rfb::KeyEvent &event);
    void take(const rfb::PointerEvent &event);
    void take(const rfb::FenceEvent &event);
    void take(const rfb::SetDesktopSize &message);
    void chooseTiles();
    void lookForPixels();

    bool knows(rfb::Encoding encoding) const;
    Time updateDue() const;
    void runStallWatch(Time now);
    void stalled(Time now);
    void appendFences(rfb::Bytes &to, Time now);
    void appendUpdate(rfb::Bytes &to, Time now);
    unsigned appendSize(rfb::Bytes &to);
    unsigned appendState(rfb::Bytes &to);
    unsigned appendPicture(rfb::Bytes &to);
    unsigned appendTiles(rfb::Bytes &to);
    void appendTile(rfb::Bytes &to, std::size_t tile);
    unsigned appendBanner(rfb::Bytes &to);
    void appendPixels(rfb::Bytes &to, const Pixels &pixels);
    void uncover();
    void forgetPicture();

    const std::string from_;
    const std::size_t updateSize_;
    const std::function<void()> wake_;
    Desk &desk_;
    // The desk asks for these from the beginning on.
    bool requested_ = false;   ///< an update
    bool takesJpegs_ = false;  ///< of any size
    const Joined joined_;
    ViewerKeys keys_;
    ViewerPointer pointer_;
    StallWatch stall_;
    bool wantsFence_ = false;
    Time now_{};  ///< of the message that is taken

    rfb::PixelFormat format_;
    std::vector<std::int32_t> encodings_;
    rfb::Encoding encoding_ = rfb::kRaw;
    int quality_ = rfb::TightEncoder::kLossless;
    std::shared_ptr<EncodedTiles> tiles_;
    rfb::ZrleEncoder zrle_;
    rfb::Bytes replies_;  ///< to the viewer's own fences, and the map of colours

    bool refresh_ = false;     ///< all of the picture is asked for
    bool inputWaits_ = false;  ///< for send()
    bool unchanged_ = false;   ///< nothing to send when it was looked at last
    Time updated_{}, refreshed_{};
    unsigned width_, height_;          ///< as the viewer knows them
    unsigned surface_ = 0;             ///< the number of the one that sent_ is about
    std::vector<std::uint64_t> sent_;  ///< the version of each tile that the viewer has
    std::size_t next_ = 0;             ///< the tile to look at first
    unsigned jpeg_ = 0;                ///< the number of the one that it has; 0: none
    unsigned banner_ = 0;              ///< the number of the one that it has
    Rectangle covered_{};              ///< where that lies
    bool bannerHidden_ = false;        ///< pixels were sent over it

    // What the viewer was told; none: not yet.
    bool toldKeys_ = false, toldSize_ = false, relative_ = false;
    unsigned sizeAnswer_ = 0;  ///< to a wish for another size: it is not granted
    std::optional<unsigned> leds_;
};

}  // namespace gateway
