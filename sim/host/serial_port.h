// One serial port: a pseudo-terminal, and the wire to the device behind it. One thread at a time,
// but for what is said to be safe without that.
#pragma once

#include <atomic>
#include <deque>
#include <functional>

#include "sim/chips/serial_device.h"

namespace sim {

class SerialPort : public SerialLine {
  public:
    using Tap = std::function<void(bool toDevice, const Bytes &)>;

    /// Makes the pseudo-terminal and shows it at path on the private host. The tap hears what
    /// passes, from the caller of run.
    SerialPort(const char *path, bool paced, Tap tap);
    ~SerialPort() override;
    SerialPort(const SerialPort &) = delete;
    SerialPort &operator=(const SerialPort &) = delete;

    void attach(SerialDevice &device) { device_ = &device; }  ///< safe at any time
    int hostBaud() const;                                     ///< safe at any time

    /// To poll for input.
    int descriptor() const { return master_; }
    /// Takes what the host wrote, and moves on what is due in both directions.
    void run(Clock::time_point now);
    /// When run has to be called next, without input.
    Clock::time_point due() const;
    /// True when the wire has taken everything that the host wrote.
    bool drained() const { return toDevice_.empty(); }

    void hostOpened() { open_ = true; }
    void hostClosed();
    /// Loses what is on its way, also what the host wrote and did not read.
    void powerCut();

    void send(const Bytes &bytes, int baud, Clock::duration delay) override;
    Clock::duration jitter() const override;

  private:
    struct Chunk {
        Clock::time_point at;  ///< when its last bit has passed
        Bytes bytes;
        int baud;
    };

    void takeFromHost(Clock::time_point now);
    void handToDevice(const Chunk &chunk);
    void handToHost(const Chunk &chunk);

    int master_ = -1, keeper_ = -1;
    const bool paced_;
    const Tap tap_;
    bool open_ = true;  // until the host says otherwise: not every host has the preload library
    std::atomic<SerialDevice *> device_{nullptr};
    std::deque<Chunk> toDevice_, toHost_;
    Clock::time_point wireFree_{}, answerFree_{};
    Clock::time_point deviceTime_{};  ///< of what the device hears or does just now
};

}  // namespace sim
