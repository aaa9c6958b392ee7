#include "protocol/keys.h"

#include <gtest/gtest.h>

#include <cstring>

#include "protocol/answers.h"
#include "protocol/input.h"
#include "protocol/us_layout.h"

namespace {

using quillon::Datagram;
using quillon::Stroke;

std::optional<Stroke> combo(const std::string &text) {
    std::string error;
    const auto stroke = quillon::parseCombo(text, error);
    EXPECT_EQ(stroke.has_value(), error.empty()) << text;
    return stroke;
}

std::vector<std::pair<int, int>> typed(const std::string &text) {
    std::vector<Stroke> states;
    std::string error;
    EXPECT_TRUE(quillon::typeStrokes(text, states, error)) << error;
    std::vector<std::pair<int, int>> strokes;
    for (const Datagram &record : quillon::recordsOf(states)) {
        EXPECT_EQ(record.size(), 11U);
        strokes.emplace_back(record[3], record[5]);
    }
    return strokes;
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

TEST(TypeText, ShiftGoesDownAndUpInRecordsOfItsOwn) {
    using Strokes = std::vector<std::pair<int, int>>;
    EXPECT_EQ(
        typed("aB!c"),
        (Strokes{
            {0, 4}, {0, 0}, {2, 0}, {2, 5}, {2, 0}, {2, 0x1E}, {2, 0}, {0, 0}, {0, 6}, {0, 0}}));
    EXPECT_EQ(typed("A"), (Strokes{{2, 0}, {2, 4}, {2, 0}, {0, 0}}));
    EXPECT_EQ(typed(""), Strokes{});
}

TEST(Mouse, LargeDistancesAreCutIntoSteps) {
    const auto moves = quillon::moveBy(-300, 5);
    ASSERT_EQ(moves.size(), 3U);
    int x = 0, y = 0;
    for (const Datagram &move : moves) {
        ASSERT_EQ(move.size(), 7U);
        x += static_cast<std::int8_t>(move[4]);
        y += static_cast<std::int8_t>(move[5]);
    }
    EXPECT_EQ(x, -300);
    EXPECT_EQ(y, 5);
    EXPECT_EQ(quillon::moveBy(0, 0).size(), 0U);

    const auto turns = quillon::wheelAt(1, 2, -200);
    EXPECT_EQ(turns.size(), 3U);
    EXPECT_EQ(turns[1], (Datagram{0x57, 0xAB, 4, 1, 0, 1, 0, 2, 0, 0x81}));
}

TEST(MaySend, EveryLinkedOutputAndItsBeginnings) {
    quillon::Settings settings{{"per_enable", "1"}};
    EXPECT_EQ(quillon::maySend(settings, "10.0.0.1"), quillon::MaySend::kByChance);
    for (int slot = 0; slot < 8; ++slot)
        settings["connect_ip" + std::to_string(slot)] = "10.0.0." + std::to_string(slot);
    EXPECT_EQ(quillon::maySend(settings, "10.0.0.7"), quillon::MaySend::kYes);
    EXPECT_EQ(quillon::maySend(settings, "10.0.0.70"), quillon::MaySend::kYes);
    EXPECT_EQ(quillon::maySend(settings, "10.0.0.8"), quillon::MaySend::kNo);
}

TEST(Words, WhoControlsAndOnWhichOutputs) {
    std::optional<quillon::Holder> holder;
    std::optional<quillon::Settings> settings;
    EXPECT_EQ(quillon::whoWords(holder, settings, "ann"), "it is not known yet who holds control");
    holder = quillon::Holder{"192.168.1.10", "ann", true, 5};
    settings = quillon::Settings{{"per_enable", "1"}};
    EXPECT_EQ(quillon::whoWords(holder, settings, "ann"),
              "held by ann (you), level 5 | outputs none");
    int slot = 0;
    for (const char *output : {"10.0.0.20", "10.0.0.21", "10.0.1.21", "no_address", "no_address"})
        (*settings)["connect_ip" + std::to_string(slot++)] = output;
    EXPECT_EQ(quillon::whoWords(holder, settings, "bob"),
              "held by ann, level 5 | outputs 10.0.0.20 .21 10.0.1.21 no_address no_address");
    (*settings)["per_enable"] = "0";
    EXPECT_EQ(quillon::whoWords(holder, settings, "bob"),
              "permissions are off: everybody may send");
}

}  // namespace
