#include "protocol/input.h"

#include <gtest/gtest.h>

namespace {

using quillon::Datagram;

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

}  // namespace
