#include "gateway/rfb/deflate.h"

#include <new>

namespace gateway::rfb {

Deflate::Deflate() {
    constexpr int kLevel = 1, kWindowBits = 12, kMemory = 5;
    if (deflateInit2(&stream_, kLevel, Z_DEFLATED, kWindowBits, kMemory, Z_DEFAULT_STRATEGY) !=
        Z_OK)
        throw std::bad_alloc();
}

Deflate::~Deflate() {
    deflateEnd(&stream_);
}

void Deflate::reset() {
    deflateReset(&stream_);
}

void Deflate::append(Bytes &to, const Bytes &bytes) {
    stream_.next_in = const_cast<Bytef *>(bytes.data());
    stream_.avail_in = static_cast<uInt>(bytes.size());
    constexpr std::size_t kStep = 4096;
    do {
        const std::size_t size = to.size();
        to.resize(size + kStep);
        stream_.next_out = to.data() + size;
        stream_.avail_out = kStep;
        deflate(&stream_, Z_SYNC_FLUSH);
        to.resize(size + kStep - stream_.avail_out);
    } while (stream_.avail_out == 0);
}

}  // namespace gateway::rfb
