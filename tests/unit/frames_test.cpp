#include "sim/chips/frames.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using sim::Bytes;

TEST(Frames, AreCutOutOfTheBytesAndPutInWords) {
    const Bytes key{0x57, 0xAB, 0x00, 0x02, 8, 1, 0, 4, 0, 0, 0, 0, 0, 0x11};
    const Bytes refused{0x57, 0xAB, 0x00, 0xC5, 1, 0xE4, 0xAC};
    const Bytes raw{0x57, 0xAB, 0x01, 0, 0, 0x39, 0, 0, 0, 0, 0};
    const Bytes junk{0x57, 0x57, 0xAB, 0x77, 1};
    const Bytes text{'S', '9', '\r'};
    Bytes all;
    for (const Bytes &part : {key, refused, junk, raw, text})
        all.insert(all.end(), part.begin(), part.end());
    for (const std::size_t step : {std::size_t{1}, std::size_t{3}, all.size()}) {
        sim::FrameSplitter splitter;
        std::vector<std::string> words;
        Bytes together;
        for (std::size_t at = 0; at < all.size(); at += step)
            for (const Bytes &frame : splitter.take(
                     Bytes(all.begin() + static_cast<long>(at),
                           all.begin() + static_cast<long>(std::min(all.size(), at + step))))) {
                if (words.empty() || words.back() != sim::inWords(frame))
                    words.push_back(sim::inWords(frame));
                together.insert(together.end(), frame.begin(), frame.end());
            }
        EXPECT_EQ(together, all);
        ASSERT_GE(words.size(), 5U);
        EXPECT_EQ(words[0], "keyboard: ctrl+a");
        EXPECT_EQ(words[1], "refused: movement: wrong sum");
        EXPECT_NE(std::find(words.begin(), words.end(), "keyboard: capslock"), words.end());
    }
    EXPECT_EQ(sim::inWords({0x57, 0xAB, 0, 0x81, 8, 0x38, 1, 2, 0, 0, 0, 0, 0, 0}),
              "computer attached, num off, caps on, scroll off");
    EXPECT_EQ(sim::inWords({0x57, 0xAB, 0x02, 1, 0xFF, 2, 0xFE}),
              "pointer by -1,2, left down, wheel -2");
    EXPECT_EQ(sim::inHex(key, 3), "57 ab 00 ..");
}

}  // namespace
