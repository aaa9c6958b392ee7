// Finds the frames among the bytes of a chip's line, and describes them in words.
#pragma once

#include <string>
#include <vector>

#include "sim/chips/serial_device.h"

namespace sim {

/// Size of the CH9350 frame with this code after 57 AB; it holds no length itself. 0: no frame.
std::size_t ch9350FrameSize(std::uint8_t code);

/// Cuts what passes in one direction of a line into frames, of either chip.
class FrameSplitter {
  public:
    /// Takes bytes and returns what is complete now: frames, and the bytes between them.
    std::vector<Bytes> take(const Bytes &bytes);
    /// Bytes of a frame that is not complete yet.
    const Bytes &rest() const { return pending_; }

  private:
    std::size_t completeSize() const;

    Bytes pending_;
};

/// "keyboard: ctrl+a", "pointer at 2048,2048 of 4096", "bytes outside of frames".
std::string inWords(const Bytes &frame);

/// "57 ab 00 01"; after most bytes it ends with " ..".
std::string inHex(const Bytes &bytes, std::size_t most);

}  // namespace sim
