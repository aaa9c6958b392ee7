// All that a server of a stream of JPEGs can send.

#include <algorithm>

#include "fuzz/canvas.h"
#include "gateway/source/mjpeg_source.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    using namespace gateway;
    if (size == 0) return 0;
    const std::size_t piece = bytes[0] % 64U * 8 + 1;
    static const unsigned char kHeader[] =
        "HTTP/1.0 200 OK\r\nContent-Type: multipart/x-mixed-replace;boundary=b\r\n\r\n--b\r\n\r\n";
    fuzz::CheckedCanvas canvas;
    const Source::Time now{};
    MjpegSource source(canvas, {"host", "/", "user", "geheim", std::chrono::seconds(10)}, now);
    try {
        if (bytes[0] >= 128) source.take(kHeader, sizeof kHeader - 1);
        for (std::size_t at = 1; at < size; at += piece) {
            source.take(bytes + at, std::min(piece, size - at));
            while (source.work(now)) {
            }
            fuzz::require(source.output(now).size() < 1000, "a request is short");
        }
    } catch (const SourceError &) {
    } catch (const rfb::ProtocolError &) {
    }
    return 0;
}
