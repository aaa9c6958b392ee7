// All that a server of RFB can send, from its version on.

#include <algorithm>

#include "fuzz/canvas.h"
#include "gateway/source/vnc_source.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    using namespace gateway;
    if (size == 0) return 0;
    const std::size_t piece = bytes[0] % 64U + 1;
    static const unsigned char kGreeting[] =
        "RFB "
        "003.008\n\x01\x01\0\0\0\0\0\x40\0\x30\x20\x18\0\1\0\xFF\0\xFF\0\xFF\x10\x08\0\0\0\0\0\0\0";
    fuzz::CheckedCanvas canvas;
    const Source::Time now{};
    VncSource source(canvas, {bytes[0] >= 192, "geheim", std::chrono::seconds(10)}, now);
    try {
        const auto work = [&] {
            while (source.work(now)) source.stayAwake(now);
            fuzz::require(source.output(now).size() < 65536, "an answer is short");
        };
        if (bytes[0] >= 64) source.take(kGreeting, sizeof kGreeting);
        work();
        for (std::size_t at = 1; at < size; at += piece) {
            source.take(bytes + at, std::min(piece, size - at));
            work();
        }
    } catch (const SourceError &) {
    } catch (const rfb::ProtocolError &) {
    }
    return 0;
}
