#include "protocol/us_layout.h"

#include <gtest/gtest.h>

#include "protocol/input.h"

namespace {

std::vector<std::pair<int, int>> typed(const std::string &text) {
    std::vector<quillon::Stroke> states;
    std::string error;
    EXPECT_TRUE(quillon::typeStrokes(text, states, error)) << error;
    std::vector<std::pair<int, int>> strokes;
    for (const quillon::Datagram &record : quillon::recordsOf(states)) {
        EXPECT_EQ(record.size(), 11U);
        strokes.emplace_back(record[3], record[5]);
    }
    return strokes;
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

}  // namespace
