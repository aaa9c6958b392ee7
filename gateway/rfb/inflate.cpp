#include "gateway/rfb/inflate.h"

#include <new>

namespace gateway::rfb {

Inflate::Inflate() {
    if (inflateInit(&stream_) != Z_OK) throw std::bad_alloc();
}

Inflate::~Inflate() {
    inflateEnd(&stream_);
}

std::size_t Inflate::append(Bytes &to, const std::uint8_t *bytes, std::size_t count,
                            std::size_t most) {
    const std::size_t size = to.size();
    to.resize(size + most);
    stream_.next_in = const_cast<Bytef *>(bytes);
    stream_.avail_in = static_cast<uInt>(count);
    stream_.next_out = to.data() + size;
    stream_.avail_out = static_cast<uInt>(most);
    const int status = inflate(&stream_, Z_SYNC_FLUSH);
    to.resize(size + most - stream_.avail_out);
    if (status != Z_OK && status != Z_BUF_ERROR)
        throw ProtocolError("pixels that cannot be decompressed");
    return count - stream_.avail_in;
}

}  // namespace gateway::rfb
