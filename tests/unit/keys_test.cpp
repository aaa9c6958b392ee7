#include "protocol/keys.h"

#include <gtest/gtest.h>

namespace {

using quillon::Stroke;

std::optional<Stroke> combo(const std::string &text) {
    std::string error;
    const auto stroke = quillon::parseCombo(text, error);
    EXPECT_EQ(stroke.has_value(), error.empty()) << text;
    return stroke;
}

TEST(Combo, ReadsModifiersAndOneKey) {
    EXPECT_EQ(combo("ctrl+alt+delete"), (Stroke{0x05, 0x4C}));
    EXPECT_EQ(combo("F5"), (Stroke{0, 0x3E}));
    EXPECT_EQ(combo("f24"), (Stroke{0, 0x73}));
    EXPECT_EQ(combo("AltGr+/"), (Stroke{0x40, 0x38}));
    EXPECT_EQ(combo("win"), (Stroke{0x08, 0}));
    for (const char *wrong : {"", "+", "ctrl+", "a+b", "f0", "f25", "f5x", "ctrl+foo", "A+", "!"})
        EXPECT_FALSE(combo(wrong)) << wrong;
}

TEST(Combo, EveryKeyNameReadsBackAsItsKey) {
    for (int usage = 1; usage < 0x74; ++usage) {
        const std::string name = quillon::keyName(static_cast<std::uint8_t>(usage));
        if (name.rfind("key 0x", 0) == 0) continue;
        EXPECT_EQ(combo(name), (Stroke{0, static_cast<std::uint8_t>(usage)})) << name;
    }
}

}  // namespace
