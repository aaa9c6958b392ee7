// The tiles of a surface, encoded once for all viewers that take the same format.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "gateway/picture/surface.h"

namespace gateway {

/// Tiles in Tight for one format. Viewers hold it; it ends with the last of them.
class EncodedTiles {
  public:
    /// quality: see rfb::TightEncoder::append().
    EncodedTiles(const rfb::PixelFormat &format, int quality)
        : format_(format), quality_(quality) {}

    /// The data of a tile as it is now. surface: always the same one, until clear().
    const rfb::Bytes &tile(const Surface &surface, std::size_t tile, rfb::TightEncoder &encoder);
    /// Forgets all, because there is another surface.
    void clear() { entries_.clear(); }

  private:
    struct Entry {
        std::uint64_t version = 0;
        rfb::Bytes data;
    };
    const rfb::PixelFormat format_;
    const int quality_;
    std::vector<Entry> entries_;
};

class TileCache {
  public:
    std::shared_ptr<EncodedTiles> forFormat(const rfb::PixelFormat &format, int quality);
    void clear();
    rfb::TightEncoder &encoder() { return encoder_; }

  private:
    rfb::TightEncoder encoder_;
    std::map<std::pair<rfb::PixelFormat, int>, std::weak_ptr<EncodedTiles>> byFormat_;
};

}  // namespace gateway
