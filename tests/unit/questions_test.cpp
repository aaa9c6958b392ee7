#include <gtest/gtest.h>

#include <quillon/questions.h>

namespace {

using namespace std::chrono_literals;

quillon::LinkMessage asks(const std::string &user) {
    return *quillon::parseLinkMessage("apply|192.168.1.10|" + user);
}

TEST(Questions, AFloodLeavesRoomForOthers) {
    quillon::Questions questions("192.168.1.10");
    const auto now = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i)
        questions.add(asks("mallory" + std::to_string(i)), {"", "192.168.1.66", 1}, now);
    EXPECT_EQ(questions.surplus(), 96U);
    for (int i = 0; i < 50; ++i)
        questions.add(asks("eve"), {"", "192.168.2." + std::to_string(i), 1}, now);
    EXPECT_EQ(questions.size(), 16U);
    const auto *bob = questions.add(asks("bob"), {"", "192.168.1.10", 41303}, now);
    ASSERT_NE(bob, nullptr);
    EXPECT_EQ(questions.front().message.user, "bob");
    EXPECT_EQ(questions.add(asks("bob"), {"", "192.168.1.10", 41303}, now), nullptr);
    const unsigned number = questions.front().number;
    EXPECT_TRUE(questions.remove(number));
    EXPECT_FALSE(questions.remove(number));
    EXPECT_EQ(questions.find(number), nullptr);
    EXPECT_FALSE(questions.takeLate(now + 10s));
    for (int i = 0; i < 16; ++i) EXPECT_TRUE(questions.takeLate(now + 11s));
    EXPECT_TRUE(questions.empty());
    EXPECT_EQ(questions.surplus(), 0U);
}

}  // namespace
