// The device at the far end of a serial line, and the line as the device sees it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;

class SerialLine {
  public:
    virtual ~SerialLine() = default;
    /// Sends bytes to the host at baud bits per second, delay after the end of what was sent
    /// before. The host gets none of them if its port has another speed when they arrive.
    virtual void send(const Bytes &bytes, int baud, Clock::duration delay) = 0;
    /// Longest pause that this line may add between two bytes that the host wrote together.
    virtual Clock::duration jitter() const = 0;
};

/// Bytes that passed on a line.
struct Traffic {
    Clock::time_point at;
    int port;
    bool toDevice;
    Bytes bytes;
};

/// All calls come from one thread.
class SerialDevice {
  public:
    virtual ~SerialDevice() = default;
    /// Speed of the device, bits per second; bytes at another speed never reach it.
    virtual int baud() = 0;
    virtual void receive(SerialLine &line, const std::uint8_t *bytes, std::size_t count,
                         Clock::time_point at) = 0;

    /// When run() has to be called, for a device that sends unasked; run() may be called before.
    virtual Clock::time_point due() { return Clock::time_point::max(); }
    virtual void run(SerialLine &, Clock::time_point) {}
};

/// A chip that is a keyboard and a mouse to the computer. Safe to use from any thread.
class HidChip : public SerialDevice {
  public:
    virtual void powerCycle() = 0;
    virtual void plug() = 0;
    virtual void unplug() = 0;
    /// On: takes everything and answers nothing.
    virtual void silence(bool on) = 0;
};

}  // namespace sim
