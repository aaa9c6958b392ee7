#include "gateway/picture/tile_cache.h"

namespace gateway {

const rfb::Bytes &EncodedTiles::tile(const Surface &surface, std::size_t tile,
                                     rfb::TightEncoder &encoder) {
    entries_.resize(surface.tiles());
    Entry &entry = entries_[tile];
    if (entry.version != surface.changed(tile)) {
        entry.data.clear();
        encoder.append(entry.data, surface.tile(tile).pixels, format_, quality_);
        entry.data.shrink_to_fit();
        entry.version = surface.changed(tile);
    }
    return entry.data;
}

std::shared_ptr<EncodedTiles> TileCache::forFormat(const rfb::PixelFormat &format, int quality) {
    for (auto it = byFormat_.begin(); it != byFormat_.end();)
        it = it->second.expired() ? byFormat_.erase(it) : std::next(it);
    std::weak_ptr<EncodedTiles> &known = byFormat_[{format, quality}];
    auto tiles = known.lock();
    if (!tiles) known = tiles = std::make_shared<EncodedTiles>(format, quality);
    return tiles;
}

void TileCache::clear() {
    for (const auto &[format, known] : byFormat_)
        if (const auto tiles = known.lock()) tiles->clear();
}

}  // namespace gateway
