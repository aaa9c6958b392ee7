// Writes all that a board receives and sends to a pcapng file: its UDP datagrams, and the bytes on
// its serial lines.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

#include "sim/chips/frames.h"
#include "sim/host/serial_ports.h"

namespace sim {

/// Opens a file to write, or throws std::runtime_error. Call it before runOnPrivateHost, where
/// paths may differ.
FILE *openTrace(const std::string &path);

/// Interface 0 is the network (Ethernet), 1 to 4 are /dev/ttyAMA0 to 3 (link type USER0). There a
/// packet is a frame, or the bytes between two frames; outbound is what the board sends.
class Trace {
  public:
    /// Starts to capture, on the private host. Throws std::runtime_error when the system refuses.
    explicit Trace(FILE *file);
    ~Trace();
    /// Writes what is left and closes the file; returns why it is not complete, or an empty text.
    std::string finish();
    Trace(const Trace &) = delete;
    Trace &operator=(const Trace &) = delete;

    /// Adds what passed on a serial line. Call it from one thread.
    void take(const Traffic &traffic);

  private:
    void check(bool written);
    void capture();
    void write(unsigned interface, std::uint32_t direction, const std::uint8_t *bytes,
               std::size_t size);

    FILE *file_;
    int socket_ = -1, wake_ = -1;
    std::mutex mutex_;
    std::string trouble_;  ///< about the first write that failed; none is tried after it
    FrameSplitter splitters_[SerialPorts::kCount][2];
    std::thread thread_;
};

}  // namespace sim
