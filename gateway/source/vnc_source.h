// A server of RFB as a source of pictures: the one of a virtual computer, or any other without a
// password or with VNC's. It gets no keys and no pointer.
#pragma once

#include <optional>
#include <string>

#include "gateway/rfb/decoders.h"
#include "gateway/source/source.h"

namespace gateway {

class VncSource : public Source {
  public:
    struct Setup {
        bool local;            ///< on this machine, where pixels cost more than bytes
        std::string password;  ///< empty: none
        std::chrono::milliseconds patience;
    };
    /// canvas must outlive it.
    VncSource(rfb::Canvas &canvas, Setup setup, Time now);

    void take(const std::uint8_t *bytes, std::size_t count) override;
    bool work(Time now) override;
    rfb::Bytes output(Time now) override;
    Time due() const override;
    void stayAwake(Time now) override;

  private:
    // Each takes one thing, and returns false when it needs more bytes.
    using Step = bool (VncSource::*)();
    bool takeVersion();
    bool takeSecurity33();
    bool takeSecurity();
    bool takeChallenge();
    bool takeResult();
    bool takeReason();
    bool takeScreen();
    bool takeMessage();
    bool takeRectangle();
    bool takePixels();
    bool takeScreens();
    void skip(std::size_t bytes);
    void startSecurity(unsigned type);
    void begin();
    void request(bool incremental, unsigned width, unsigned height);
    void resize(unsigned width, unsigned height);
    bool finishRectangle();

    rfb::Canvas &canvas_;
    const Setup setup_;
    rfb::Incoming in_;
    rfb::Bytes out_;
    Step step_ = &VncSource::takeVersion;
    unsigned minor_ = 8;  ///< of the version
    std::uint64_t skipping_ = 0;
    rfb::RectangleDecoder decoder_;
    unsigned rectangles_ = 0;  ///< that are still to come; kUncounted: until the last one
    rfb::Rectangle rectangle_{};
    unsigned width_ = 0, height_ = 0;
    bool running_ = false, probed_ = false;
    /// What is to be asked for; never more than one request waits, beside the probe.
    enum { kNothing, kChanges, kAll } wanted_ = kNothing;
    bool sleepy_ = false;  ///< it slows down when nobody says anything
    bool progress_ = false;
    Time now_{}, progressed_, asked_{}, awakeUntil_{}, wake_ = Time::max();
    std::optional<Time> updating_;  ///< since when an update comes
};

}  // namespace gateway
