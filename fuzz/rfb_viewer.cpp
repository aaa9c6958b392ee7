// All that a viewer can send: handshake, messages, and what its keys and buttons do to the input.

#include <algorithm>
#include <string>

#include "fuzz/require.h"
#include "gateway/input/viewer_keys.h"
#include "gateway/input/viewer_pointer.h"
#include "gateway/rfb/encoders.h"
#include "gateway/rfb/handshake.h"
#include "gateway/rfb/viewer_messages.h"

namespace {

using namespace gateway;
using Bytes = rfb::Bytes;

rfb::Credentials credentialsOf(unsigned char choice) {
    const rfb::Credentials all[] = {{rfb::Credentials::kNone, "", ""},
                                    {rfb::Credentials::kPassword, "", "geheim12"},
                                    {rfb::Credentials::kPlain, "viewer", "geheim"}};
    return all[choice % 3];
}

// The rest of the bytes behind the handshake, cut as it comes; none when it did not come through.
bool shakeHands(unsigned char choice, const unsigned char *bytes, std::size_t size, Bytes &rest) {
    rfb::Handshake handshake(credentialsOf(choice), rfb::Challenge{});
    const std::size_t piece = choice / 3 + 1U;
    Bytes out;
    for (std::size_t at = 0; at < size; at += piece) {
        rest.insert(rest.end(), bytes + at, bytes + std::min(size, at + piece));
        const auto state = handshake.take(rest, out);
        fuzz::require(out.size() < 1000, "an answer is short");
        fuzz::require(rest.size() <= 2048 + piece || state != rfb::Handshake::kGoesOn,
                      "what waits is short");
        if (state == rfb::Handshake::kRefused) return false;
        if (state != rfb::Handshake::kDone) continue;
        const std::size_t used = std::min(size, at + piece);
        rest.insert(rest.end(), bytes + used, bytes + size);
        return true;
    }
    return false;
}

const quillon::Typist &german() {
    static const quillon::Typist typist({"de", "", quillon::ComputerSystem::kX11},
                                        quillon::LockKeys{});
    return typist;
}

class Input {
  public:
    void take(const rfb::KeyEvent &event) {
        const ViewerKey key = event.code ? ViewerKey{ViewerKey::kScanCode, *event.code}
                                         : ViewerKey{ViewerKey::kKeysym, event.keysym};
        if (event.down)
            keys_.press(key);
        else
            keys_.release(key);
        fuzz::require(input_.waiting() < 1000, "what waits is bounded");
    }
    void take(const rfb::PointerEvent &event) {
        pointer_.place(event.buttons, {event.x, event.y}, {1920, 1080}, {1024, 768, false});
        pointer_.moveBy(event.buttons, event.x - 0x7FFF, event.y - 0x7FFF);
        fuzz::require(input_.waiting() < 1000, "what waits is bounded");
    }
    // Tiles of one, some and many colours, in whatever format was wanted.
    void take(const rfb::PixelFormat &format) {
        for (const rfb::Pixel colours : {1U, 7U, 300U}) {
            rfb::Pixel tile[20 * 20];
            for (rfb::Pixel i = 0; i < 20 * 20; ++i) tile[i] = i % colours * 0x010203U;
            Bytes data;
            tight_.append(data, {tile, 20, 20, 20}, format,
                          static_cast<int>(format.redShift % 11U) - 1);
            zrle_.append(data, {tile, 20, 20, 20}, format);
            fuzz::require(data.size() < 8 * sizeof tile, "a tile is small");
        }
    }
    template <class Other>
    void take(const Other &) {}

    void end() {
        keys_.letGo();
        pointer_.letGo();
        input_.releaseAll();
        fuzz::require(!keys_.holding() && !pointer_.holding(), "nothing is held");
        fuzz::require(input_.keyboard() == quillon::Stroke{}, "every key goes up");
        fuzz::require(input_.button() == quillon::kNoButton, "every button goes up");
    }

  private:
    quillon::HealedInput input_{std::chrono::milliseconds(0)};
    ViewerKeys keys_{input_, german};
    ViewerPointer pointer_{input_};
    rfb::TightEncoder tight_;
    rfb::ZrleEncoder zrle_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    if (size == 0) return 0;
    Bytes rest;
    if (bytes[0] >= 128) rest.assign(bytes + 1, bytes + size);
    if (bytes[0] < 128 && !shakeHands(bytes[0], bytes + 1, size - 1, rest)) return 0;
    rfb::MessageReader reader;
    Input input;
    try {
        const std::size_t piece = bytes[0] % 7U + 1;
        for (std::size_t at = 0; at < rest.size(); at += piece) {
            reader.feed(rest.data() + at, std::min(piece, rest.size() - at));
            while (const auto message = reader.next())
                std::visit([&](const auto &kind) { input.take(kind); }, *message);
        }
    } catch (const rfb::ProtocolError &) {
        input.end();  // as the session does
    }
    input.end();
    return 0;
}
