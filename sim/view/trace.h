// Everything that a board hears and says, as a pcapng file: its datagrams, and what passes on its
// serial lines.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

#include "sim/chips/frames.h"
#include "sim/host/serial_ports.h"

namespace sim {

/// Opens a file to write, or throws std::runtime_error. Before the private host has other paths.
FILE *openTrace(const std::string &path);

/// Interface 0 is the network (Ethernet), 1 to 4 are /dev/ttyAMA0 to 3: link type USER0, a frame of
/// the chip, or the bytes between two, in each packet; outbound is what the board sends.
class Trace {
  public:
    /// On the private host; throws std::runtime_error when the system refuses.
    explicit Trace(FILE *file);
    ~Trace();
    /// Writes what is left and ends; empty, or why not everything is in the file.
    std::string finish();
    Trace(const Trace &) = delete;
    Trace &operator=(const Trace &) = delete;

    /// What passed on a serial line; from one thread.
    void take(const Traffic &traffic);

  private:
    void check(bool written);
    void capture();
    void write(unsigned interface, std::uint32_t direction, const std::uint8_t *bytes,
               std::size_t size);

    FILE *file_;
    int socket_ = -1, wake_ = -1;
    std::mutex mutex_;
    std::string trouble_;  ///< of the first write that failed; none is tried after it
    FrameSplitter splitters_[SerialPorts::kCount][2];
    std::thread thread_;
};

}  // namespace sim
