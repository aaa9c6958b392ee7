// The bytes of RFB: what a viewer sends, the handshake, and pixels that are read back.

#include "gateway/picture/tile_cache.h"
#include "gateway/rfb/encoders.h"
#include "gateway/rfb/handshake.h"
#include "gateway/rfb/inflate.h"
#include "gateway/rfb/viewer_messages.h"
#include "tests/support/support.h"

namespace {

using namespace gateway::rfb;
using test::bytes, test::text;

Bytes hex(const std::string &digits) {
    Bytes all;
    for (std::size_t i = 0; i + 1 < digits.size(); i += digits[i + 2] == ' ' ? 3 : 2)
        all.push_back(static_cast<std::uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    return all;
}

// The messages of a stream that comes byte by byte, in short words.
std::string read(const std::string &digits) {
    MessageReader reader;
    std::string words;
    for (const std::uint8_t byte : hex(digits + " ")) {
        reader.feed(&byte, 1);
        while (const auto message = reader.next()) {
            if (const auto *key = std::get_if<KeyEvent>(&*message))
                words += (key->down ? "down " : "up ") + std::to_string(key->keysym) +
                         (key->code ? "/" + std::to_string(*key->code) : "") + " ";
            if (const auto *pointer = std::get_if<PointerEvent>(&*message))
                words += std::to_string(pointer->buttons) + "@" + std::to_string(pointer->x) + "," +
                         std::to_string(pointer->y) + " ";
            if (const auto *encodings = std::get_if<SetEncodings>(&*message))
                for (const auto encoding : encodings->wanted)
                    words += std::to_string(encoding) + " ";
            if (const auto *fence = std::get_if<FenceEvent>(&*message))
                words += "fence " + text(fence->payload) + " ";
            if (std::get_if<SetDesktopSize>(&*message) != nullptr) words += "size ";
            if (const auto *update = std::get_if<UpdateRequest>(&*message))
                words += update->incremental ? "more " : "all ";
        }
    }
    return words;
}

TEST(ViewerMessages, AreReadWhereverTheStreamIsCut) {
    EXPECT_EQ(read("04 01 00 00 00 00 00 61 ff 00 00 00 00 00 00 fc 00 00 00 1a"),
              "down 97 up 252/26 ");
    EXPECT_EQ(read("05 81 02 58 01 f4 03 01 00 00 00 00 07 80 04 38"), "129@600,500 more ");
    EXPECT_EQ(read("02 00 00 02 00 00 00 07 ff ff fe fe"), "7 -258 ");
    EXPECT_EQ(read("f8 00 00 00 00 00 00 00 02 68 69"), "fence hi ");
    // A text of the clipboard, also the extended one with its negative length, and a wished size.
    EXPECT_EQ(read("06 00 00 00 00 00 00 02 61 62 04 00 00 00 00 00 00 61"), "up 97 ");
    EXPECT_EQ(read("06 00 00 00 ff ff ff fe 61 62 04 00 00 00 00 00 00 61"), "up 97 ");
    EXPECT_EQ(read("fb 00 00 10 00 10 01 00 00000000 00000000 00100010 00000000 "
                   "04 00 00 00 00 00 00 61"),
              "size up 97 ");
}

TEST(ViewerMessages, BeyondBoundsEndTheConnection) {
    EXPECT_THROW(read("02 00 ff ff"), ProtocolError);                 // encodings
    EXPECT_THROW(read("f8 00 00 00 00 00 00 00 ff"), ProtocolError);  // a fence
    EXPECT_THROW(read("06 00 00 00 7f ff ff ff"), ProtocolError);     // a text
    EXPECT_THROW(read("06 00 00 00 80 00 00 00"), ProtocolError);     // of -2^31 bytes
    EXPECT_THROW(read("ff 01"), ProtocolError);                       // sound
    EXPECT_THROW(read("07"), ProtocolError);                          // no message
    const std::string format = "00 000000 ";
    EXPECT_THROW(read(format + "18 18 00 01 00ff 00ff 00ff 10 08 00 000000"), ProtocolError);
    EXPECT_THROW(read(format + "20 18 00 01 00ff 00ff 00ff 1e 08 00 000000"), ProtocolError);
    EXPECT_THROW(read(format + "20 18 00 01 0000 00ff 00ff 10 08 00 000000"), ProtocolError);
    EXPECT_THROW(read(format + "10 10 00 00 001f 003f 001f 0b 05 00 000000"), ProtocolError);
}

// Runs a handshake in which the viewer says these things; returns what it heard.
struct Viewer {
    explicit Viewer(Credentials credentials) : handshake(std::move(credentials), challenge()) {
        heard = text(handshake.greeting());
    }
    static Challenge challenge() {
        Challenge bytes{};
        for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i);
        return bytes;
    }
    Handshake::State say(const Bytes &words) {
        in.insert(in.end(), words.begin(), words.end());
        Bytes out;
        const auto state = handshake.take(in, out);
        heard = text(out);
        return state;
    }

    Handshake handshake;
    Bytes in;
    std::string heard;
};

TEST(RfbHandshake, SpeaksEveryVersion) {
    const Credentials none, password{Credentials::kPassword, "", "geheim12"};
    Viewer newest(none);
    EXPECT_EQ(newest.heard, "RFB 003.008\n");
    EXPECT_EQ(newest.say(bytes("RFB 003.008\n")), Handshake::kGoesOn);
    EXPECT_EQ(newest.heard, "\x01\x01");
    newest.say({1});
    EXPECT_EQ(newest.heard, std::string(4, '\0'));
    EXPECT_EQ(newest.say({0}), Handshake::kDone);

    Viewer older(none);
    older.say(bytes("RFB 003.007\n"));
    older.say({1});
    EXPECT_EQ(older.heard, "");
    EXPECT_EQ(older.say({1}), Handshake::kDone);

    Viewer oldest(password);
    oldest.say(bytes("RFB 003.003\n"));
    EXPECT_EQ(oldest.heard.substr(0, 4), std::string("\0\0\0\x02", 4));
    const Challenge answer = encrypted(Viewer::challenge(), "geheim12");
    oldest.say(Bytes(answer.begin(), answer.end()));
    EXPECT_EQ(oldest.heard, std::string(4, '\0'));

    Viewer stranger(none);
    EXPECT_EQ(stranger.say(bytes("GET / HTTP/1.1\r\n")), Handshake::kRefused);
    Viewer chooser(password);
    chooser.say(bytes("RFB 003.008\n"));
    EXPECT_EQ(chooser.say({1}), Handshake::kRefused) << "no security, which was not offered";
}

TEST(RfbHandshake, EncryptsTheChallengeAsViewersDo) {
    // Made with OpenSSL's DES in ECB mode and the key with turned bytes.
    const Challenge answer = encrypted(Challenge{}, "password");
    EXPECT_EQ(text(Bytes(answer.begin(), answer.begin() + 8)),
              text(hex("ff 97 50 2e 94 22 f0 89 ")));
    Viewer wrong({Credentials::kPassword, "", "geheim12"});
    wrong.say(bytes("RFB 003.008\n"));
    wrong.say({2});
    EXPECT_EQ(wrong.say(Bytes(16, 7)), Handshake::kRefused);
    EXPECT_TRUE(test::holds(wrong.heard, "the password is wrong"));
}

TEST(RfbHandshake, TakesUserAndPasswordInsideTls) {
    const Credentials plain{Credentials::kPlain, "viewer", "geheim"};
    const auto upToTls = [](Viewer &viewer, const std::string &more) {
        viewer.say(bytes("RFB 003.008\n"));
        viewer.say({19});
        viewer.say({0, 2});
        return viewer.say(bytes(std::string("\0\0\x01\x06", 4) + more));
    };
    const auto login = [](const std::string &user, const std::string &password) {
        Bytes words;
        append32(words, static_cast<std::uint32_t>(user.size()));
        append32(words, static_cast<std::uint32_t>(password.size()));
        appendBytes(words, user + password);
        return words;
    };
    Viewer right(plain);
    EXPECT_EQ(upToTls(right, ""), Handshake::kStartTls);
    EXPECT_EQ(right.say(login("viewer", "geheim")), Handshake::kGoesOn);
    EXPECT_EQ(right.heard, std::string(4, '\0'));
    for (const auto &[user, password] :
         {std::pair("viewer", "falsch"), std::pair("other", "geheim"), std::pair("", "")}) {
        Viewer wrong(plain);
        upToTls(wrong, "");
        EXPECT_EQ(wrong.say(login(user, password)), Handshake::kRefused) << user;
    }
    Viewer smuggler(plain);
    EXPECT_EQ(upToTls(smuggler, text(login("viewer", "geheim"))), Handshake::kRefused);
    Viewer endless(plain);
    upToTls(endless, "");
    EXPECT_EQ(endless.say({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), Handshake::kRefused);
}

// ---- pixels

Bytes inflated(Inflate &stream, const std::uint8_t *from, std::size_t count) {
    Bytes plain;
    EXPECT_EQ(stream.append(plain, from, count, 100000), count);
    return plain;
}

// The pixels of a tile, as values of the format; size: bytes of a pixel.
struct Unpacked {
    const Bytes &from;
    std::size_t at = 0;

    std::uint32_t number(std::size_t size) {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < size; ++i) value |= std::uint32_t{from.at(at++)} << 8 * i;
        return value;
    }
};

// Numbers of colours, rows from a byte on.
std::vector<std::uint32_t> unpack(const Bytes &packed, const std::vector<std::uint32_t> &colours,
                                  unsigned width, unsigned height, unsigned bits) {
    std::vector<std::uint32_t> pixels;
    std::size_t at = 0;
    for (unsigned y = 0; y < height; ++y) {
        unsigned used = 0;
        for (unsigned x = 0; x < width; ++x) {
            if (used == 8) {
                ++at;
                used = 0;
            }
            used += bits;
            pixels.push_back(colours.at(packed.at(at) >> (8 - used) & ((1U << bits) - 1)));
        }
        ++at;
    }
    EXPECT_EQ(at, packed.size());
    return pixels;
}

std::vector<std::uint32_t> untight(const Bytes &data, unsigned width, unsigned height,
                                   std::size_t size) {
    Unpacked in{data};
    const unsigned control = data.at(in.at++);
    EXPECT_EQ(control & 0x0FU, 1U) << "the first stream begins anew";
    Inflate stream;
    const std::size_t count = std::size_t{width} * height;
    if (control >> 4U == 8) return std::vector<std::uint32_t>(count, in.number(size));
    std::vector<std::uint32_t> colours;
    if ((control & 0x40U) != 0) {
        EXPECT_EQ(data.at(in.at++), 1);
        colours.resize(data.at(in.at++) + 1U);
        for (auto &colour : colours) colour = in.number(size);
    }
    const unsigned bits = colours.empty() ? 0 : colours.size() == 2 ? 1 : 8;
    const std::size_t plainSize =
        colours.empty() ? count * size : (width * bits + 7) / 8 * std::size_t{height};
    Bytes plain;
    if (plainSize < 12) {
        plain.assign(data.begin() + static_cast<std::ptrdiff_t>(in.at), data.end());
    } else {
        std::size_t length = 0;
        for (unsigned shift = 0; shift < 21; shift += 7) {
            const unsigned byte = data.at(in.at++);
            length |= std::size_t{byte & (shift == 14 ? 0xFFU : 0x7FU)} << shift;
            if ((byte & 0x80U) == 0) break;
        }
        EXPECT_EQ(in.at + length, data.size());
        plain = inflated(stream, data.data() + in.at, length);
    }
    EXPECT_EQ(plain.size(), plainSize);
    if (!colours.empty()) return unpack(plain, colours, width, height, bits);
    std::vector<std::uint32_t> pixels;
    for (Unpacked all{plain}; pixels.size() < count;) pixels.push_back(all.number(size));
    return pixels;
}

std::vector<std::uint32_t> unzrle(const Bytes &data, Inflate &stream, unsigned width,
                                  unsigned height, std::size_t size) {
    EXPECT_EQ(read32(data.data()), data.size() - 4);
    const Bytes plain = inflated(stream, data.data() + 4, data.size() - 4);
    Unpacked in{plain};
    const unsigned kind = plain.at(in.at++);
    EXPECT_LE(kind, 16U);
    const std::size_t count = std::size_t{width} * height;
    std::vector<std::uint32_t> pixels;
    if (kind == 0) {
        while (pixels.size() < count) pixels.push_back(in.number(size));
        EXPECT_EQ(in.at, plain.size());
        return pixels;
    }
    std::vector<std::uint32_t> colours(kind);
    for (auto &colour : colours) colour = in.number(size);
    if (kind == 1) return std::vector<std::uint32_t>(count, colours[0]);
    return unpack(Bytes(plain.begin() + static_cast<std::ptrdiff_t>(in.at), plain.end()), colours,
                  width, height,
                  kind == 2   ? 1
                  : kind <= 4 ? 2
                              : 4);
}

TEST(RfbEncoders, GiveThePixelsBack) {
    const PixelFormat usual;
    const PixelFormat small{16, 16, false, false, 31, 63, 31, 11, 5, 0};
    const PixelFormat tiny{8, 8, false, true, 7, 7, 3, 5, 2, 0};
    // Shapes at the bounds, and numbers of colours at the bounds of each kind of palette.
    for (const auto &[width, height] : {std::pair(64U, 64U), std::pair(1U, 1U), std::pair(5U, 2U)})
        for (const unsigned colours : {1U, 2U, 3U, 4U, 5U, 16U, 17U, 256U, 257U, 4000U}) {
            std::vector<Pixel> tile(std::size_t{width} * height);
            for (std::size_t i = 0; i < tile.size(); ++i)
                tile[i] = static_cast<Pixel>(i % colours * 0x010305U + 7U) & 0xFFFFFFU;
            const Pixels pixels{tile.data(), width, width, height};
            TightEncoder tight;
            ZrleEncoder zrle;
            Inflate zrleStream;
            for (const PixelFormat &format : {usual, small, tiny, usual}) {
                std::vector<std::uint32_t> wanted, tightWanted;
                for (const Pixel pixel : tile) {
                    wanted.push_back(translated(pixel, format));
                    // Tight has red first where the others have blue.
                    tightWanted.push_back(format == usual ? (pixel & 0xFFU) << 16U |
                                                                (pixel & 0xFF00U) | pixel >> 16U
                                                          : wanted.back());
                }
                const std::size_t size = format.bits == 32 ? 3 : format.bits / 8U;
                Bytes data;
                tight.append(data, pixels, format, TightEncoder::kLossless);
                EXPECT_EQ(untight(data, width, height, size), tightWanted)
                    << colours << " colours, " << int{format.bits} << " bits";
                data.clear();
                zrle.append(data, pixels, format);
                EXPECT_EQ(unzrle(data, zrleStream, width, height, size), wanted)
                    << colours << " colours, " << int{format.bits} << " bits";
            }
        }
}

TEST(RfbEncoders, WriteFormatsAsTheyAreAskedFor) {
    Bytes data;
    appendPixel(data, 0x123456, PixelFormat{});
    appendPixel(data, 0x123456, PixelFormat{32, 24, true, false, 255, 255, 255, 16, 8, 0});
    appendPixel(data, 0xFF8000, PixelFormat{16, 16, true, false, 31, 63, 31, 11, 5, 0});
    appendCompact(data, 0x123456, PixelFormat{32, 24, false, false, 255, 255, 255, 24, 16, 8});
    appendTightPixel(data, 0x123456, PixelFormat{32, 24, true, false, 255, 255, 255, 0, 8, 16});
    EXPECT_EQ(text(data), text(hex("56 34 12 00 00 12 34 56 fc 00 56 34 12 12 34 56 ")));
}

TEST(Surface, KnowsWhichTilesChangedAndKeepsOthers) {
    gateway::Surface surface(200, 100);
    EXPECT_EQ(surface.tiles(), 8U);
    const std::vector<Pixel> red(100 * 100, 0xFF0000);
    surface.draw(60, 60, {red.data(), 100, 10, 10});
    std::string changed;
    for (std::size_t tile = 0; tile < surface.tiles(); ++tile)
        if (surface.changed(tile) == surface.version()) changed += std::to_string(tile);
    EXPECT_EQ(changed, "0145");
    const auto before = surface.version();
    surface.draw(60, 60, {red.data(), 100, 10, 10});
    EXPECT_EQ(surface.version(), before) << "the same pixels are no change";
    surface.draw(190, 90, {red.data(), 100, 100, 100});
    EXPECT_EQ(*surface.at(199, 99), 0xFF0000U);
    surface.draw(500, 500, {red.data(), 100, 100, 100});
    EXPECT_EQ(surface.tile(7).pixels.width, 8U);
    EXPECT_EQ(surface.tile(7).pixels.height, 36U);

    gateway::TileCache cache;
    const auto format = [&] { return cache.forFormat({}, TightEncoder::kLossless); };
    const auto one = format(), other = format();
    EXPECT_EQ(one, other) << "viewers with one format share the data";
    const Bytes first = one->tile(surface, 0, cache.encoder());
    const std::vector<Pixel> blue(100, 0x0000FF);
    surface.draw(0, 0, {blue.data(), 10, 10, 10});
    EXPECT_NE(one->tile(surface, 0, cache.encoder()), first);
}

}  // namespace
