// The frames on the chip's line, taken out of the bytes and put in words.
#pragma once

#include <string>
#include <vector>

#include "sim/chips/serial_device.h"

namespace sim {

/// Size of the CH9350 frame with this code behind 57 AB; it has neither length nor sum. 0: none.
std::size_t ch9350FrameSize(std::uint8_t code);

/// Cuts what passes in one direction of a line into frames, of either chip.
class FrameSplitter {
  public:
    /// What is complete now: frames, and the bytes between them.
    std::vector<Bytes> take(const Bytes &bytes);
    /// What waits for its end.
    const Bytes &rest() const { return pending_; }

  private:
    std::size_t completeSize() const;

    Bytes pending_;
};

/// "keyboard: ctrl+a", "pointer at 2048,2048 of 4096", "bytes outside of frames".
std::string inWords(const Bytes &frame);

/// "57 ab 00 01", cut with ".." behind so many bytes.
std::string inHex(const Bytes &bytes, std::size_t most);

}  // namespace sim
