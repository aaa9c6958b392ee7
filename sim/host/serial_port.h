// One serial port: a pseudo-terminal, and the wire to the device behind it. For one thread at a
// time, except where it is said to be safe.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <string>

#include "sim/chips/serial_device.h"

namespace sim {

class SerialPort : public SerialLine {
  public:
    using Tap = std::function<void(bool toDevice, const Bytes &)>;

    /// Makes the pseudo-terminal: on the private host mounted at /dev/NAME, else with a link of
    /// that name in a folder of devices. run() calls tap with all bytes that pass. Throws
    /// std::runtime_error when the system refuses.
    SerialPort(const std::string &name, const std::string &devices, bool paced, Tap tap);
    ~SerialPort() override;
    SerialPort(const SerialPort &) = delete;
    SerialPort &operator=(const SerialPort &) = delete;

    void attach(SerialDevice &device) { device_ = &device; }  ///< safe from any thread
    int hostBaud() const;                                     ///< safe from any thread

    /// The descriptor to poll for input.
    int descriptor() const { return master_; }
    /// Takes what the host wrote, and delivers what is due in both directions.
    void run(Clock::time_point now);
    /// When run() has to be called at the latest if no input comes.
    Clock::time_point due() const;
    /// True when the wire has carried everything that the host wrote.
    bool drained() const { return toDevice_.empty(); }

    void hostOpened() { open_ = true; }
    void hostClosed();
    /// Loses what is on the wire, and what waits in the pseudo-terminal.
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
    std::string published_;  ///< the link in a folder of devices
    const bool paced_;
    const Tap tap_;
    bool open_ = true;  // also for a host without the preload library, which reports nothing
    std::atomic<SerialDevice *> device_{nullptr};
    std::deque<Chunk> toDevice_, toHost_;
    Clock::time_point wireFree_{}, answerFree_{};
    Clock::time_point deviceTime_{};  ///< of what the device receives or does now
};

}  // namespace sim
