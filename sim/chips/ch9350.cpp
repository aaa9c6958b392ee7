#include "sim/chips/ch9350.h"

#include <algorithm>

#include "sim/chips/frames.h"

namespace sim {
namespace {

using Lock = std::lock_guard<std::mutex>;

constexpr auto kStatusPeriod = std::chrono::seconds(1);

}  // namespace

Ch9350::Ch9350(Computer &computer) : computer_(computer) {
    computer_.attach(face());
}

UsbFace Ch9350::face() const {
    return state_ == 2 ? UsbFace::kCh9350Relative : UsbFace::kCh9350Absolute;
}

// A change of state changes the descriptors, so the computer has to read them again.
void Ch9350::change(int state) {
    const bool other = state != state_;
    state_ = state;
    if (!other || !plugged_) return;
    computer_.detach();
    computer_.attach(face());
}

// Size of the frame that pending_ begins with; 0 when none begins there.
std::size_t Ch9350::frameSize() const {
    constexpr std::uint8_t kStatus = 0x12;  // the chip only sends this one
    if (pending_[0] != 0x57 || pending_[1] != 0xAB || pending_[2] == kStatus) return 0;
    return ch9350FrameSize(pending_[2]);
}

void Ch9350::receive(SerialLine &line, const std::uint8_t *bytes, std::size_t count,
                     Clock::time_point) {
    const Lock lock(mutex_);
    pending_.insert(pending_.end(), bytes, bytes + count);
    while (pending_.size() >= 3) {
        const std::size_t size = frameSize();
        if (pending_.size() < size) return;
        if (size != 0 && !losses_.happen()) handleFrame(line);
        pending_.erase(pending_.begin(),
                       pending_.begin() + static_cast<long>(std::max<std::size_t>(size, 1)));
    }
}

void Ch9350::handleFrame(SerialLine &line) {
    const std::uint8_t *data = pending_.data() + 3;
    const auto signedAt = [&](int i) { return static_cast<std::int8_t>(data[i]); };
    switch (pending_[2]) {
        case 0x01: {
            std::uint8_t report[8];
            std::copy(data, data + sizeof report, report);
            computer_.keyboardReport(report);
            break;
        }
        case 0x02:
            if (state_ == 2)
                computer_.relativeReport(data[0], signedAt(1), signedAt(2), signedAt(3));
            break;
        case 0x04:
            if (state_ == 3)
                computer_.absoluteReport(data[1], data[2] | data[3] << 8, data[4] | data[5] << 8,
                                         signedAt(6));
            break;
        case 0x40:
            if (data[0] == 2 || data[0] == 3) change(data[0]);
            break;
        default:
            if (!silent_) line.send(status(), baud(), {});
            break;
    }
}

Bytes Ch9350::status() const {
    // Without a computer the LEDs are not known.
    const Computer::State state = computer_.state();
    const std::uint8_t leds = state.attached ? state.leds : std::uint8_t{0xFF};
    const std::uint8_t link = state.attached ? 0x07 : 0x04;
    return {0x57, 0xAB, 0x12, 0, 0, 0, 0, leds, link, 0xAC, 0x20};
}

Clock::time_point Ch9350::due() {
    const Lock lock(mutex_);
    return nextStatus_;
}

void Ch9350::run(SerialLine &line, Clock::time_point now) {
    const Lock lock(mutex_);
    if (now < nextStatus_) return;
    nextStatus_ = now + kStatusPeriod;
    if (!silent_) line.send(status(), baud(), {});
}

void Ch9350::powerCycle() {
    const Lock lock(mutex_);
    state_ = 3;
    pending_.clear();
    computer_.detach();
    if (plugged_) computer_.attach(face());
}

void Ch9350::plug() {
    const Lock lock(mutex_);
    plugged_ = true;
    computer_.attach(face());
}

void Ch9350::unplug() {
    const Lock lock(mutex_);
    plugged_ = false;
    computer_.detach();
}

void Ch9350::silence(bool on) {
    const Lock lock(mutex_);
    silent_ = on;
}

void Ch9350::lose(const Losses &losses) {
    const Lock lock(mutex_);
    losses_ = losses;
}

void Ch9350::chatter(bool on) {
    const Lock lock(mutex_);
    nextStatus_ = on ? Clock::now() : Clock::time_point::max();
}

}  // namespace sim
