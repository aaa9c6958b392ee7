// A compression stream of zlib that is flushed after each piece.
#pragma once

#include <zlib.h>

#include <cstddef>

#include "gateway/rfb/protocol.h"

namespace gateway::rfb {

class Deflate {
  public:
    /// Takes 40 kB: a window of 4 kB, which is what a tile needs.
    Deflate();
    ~Deflate();
    Deflate(const Deflate &) = delete;
    Deflate &operator=(const Deflate &) = delete;

    /// Begins a new stream.
    void reset();
    /// Compresses bytes, and appends all that a reader needs to have them.
    void append(Bytes &to, const Bytes &bytes);

  private:
    z_stream stream_{};
};

}  // namespace gateway::rfb
