// What another side compressed with zlib, piece by piece.
#pragma once

#include <zlib.h>

#include <cstddef>

#include "gateway/rfb/protocol.h"

namespace gateway::rfb {

class Inflate {
  public:
    /// Takes 40 kB.
    Inflate();
    ~Inflate();
    Inflate(const Inflate &) = delete;
    Inflate &operator=(const Inflate &) = delete;

    /// Appends most bytes at most; returns how many of count were used up. Where nothing is used
    /// and nothing comes, it needs more. Throws ProtocolError for what zlib did not make.
    std::size_t append(Bytes &to, const std::uint8_t *bytes, std::size_t count, std::size_t most);

  private:
    z_stream stream_{};
};

}  // namespace gateway::rfb
