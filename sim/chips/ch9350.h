// A CH9350 as the chip beside the computer, in its states 2 (boot keyboard, relative mouse) and 3
// (boot keyboard, absolute mouse). It takes records as consoles send them, and sends status frames.
#pragma once

#include <mutex>

#include "sim/chips/losses.h"
#include "sim/chips/serial_device.h"
#include "sim/computer/computer.h"

namespace sim {

/// Acknowledges nothing. Its pins select 115200 bits per second, and it starts in state 3.
class Ch9350 : public HidChip {
  public:
    explicit Ch9350(Computer &computer);

    int baud() override { return 115200; }
    void receive(SerialLine &line, const std::uint8_t *bytes, std::size_t count,
                 Clock::time_point at) override;
    Clock::time_point due() override;
    void run(SerialLine &line, Clock::time_point now) override;

    void powerCycle() override;
    void plug() override;
    void unplug() override;
    void silence(bool on) override;
    /// Sends a status frame every second unasked, as real ones do.
    void chatter(bool on);
    /// By chance a frame does not arrive.
    void lose(const Losses &losses);

  private:
    std::size_t frameSize() const;
    void handleFrame(SerialLine &line);
    Bytes status() const;
    UsbFace face() const;
    void change(int state);

    mutable std::mutex mutex_;
    Computer &computer_;
    Bytes pending_;
    Clock::time_point nextStatus_ = Clock::time_point::max();
    Losses losses_;
    int state_ = 3;
    bool plugged_ = true, silent_ = false;
};

}  // namespace sim
