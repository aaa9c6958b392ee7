#include "common/common.h"

#include <gtest/gtest.h>

#include "state.h"  // sharedLoad, sharedStore

namespace {

using Pieces = std::vector<std::string>;

Pieces split(const std::string &text, const std::string &separator) {
    Pieces pieces;
    SplitString(text, pieces, separator);
    return pieces;
}

// Result and value of each text.
std::string parsed(int (*parser)(const char *, unsigned *), const Pieces &texts) {
    std::string all;
    for (const std::string &text : texts) {
        unsigned value = 7777;
        const int result = parser(text.c_str(), &value);
        all += std::to_string(result) + ":" + std::to_string(value) + " ";
    }
    return all;
}

TEST(SplitString, KeepsEmptyPiecesButNoneAtTheEnd) {
    EXPECT_EQ(split("a,,b", ","), (Pieces{"a", "", "b"}));
    EXPECT_EQ(split("a,b,", ","), (Pieces{"a", "b"}));
    EXPECT_EQ(split(",", ","), (Pieces{""}));
    EXPECT_EQ(split("", ","), Pieces{});
    EXPECT_EQ(split("abc", ","), (Pieces{"abc"}));
    EXPECT_EQ(split("a::b", "::"), (Pieces{"a", "b"}));
    EXPECT_EQ(split("ab", ""), (Pieces{"ab"}));
    Pieces pieces{"before"};
    SplitString("a", pieces, ",");
    EXPECT_EQ(pieces, (Pieces{"before", "a"}));
}

TEST(Str2int, TakesTheNumberAtTheStart) {
    EXPECT_EQ(str2int(" 42x"), 42);
    EXPECT_EQ(str2int("-7"), -7);
    EXPECT_EQ(str2int("abc"), 0);
    EXPECT_EQ(str2int(""), 0);
    EXPECT_EQ(str2int("99999999999"), 2147483647);
}

TEST(Numbers, AreReadWithinTheirBounds) {
    EXPECT_EQ(parsed(atoul, {"", "4294967295", "4294967296", "42949672950", "12a", "-1", " 1"}),
              "0:0 0:4294967295 -1:429496729 -1:4294967295 -1:12 -1:0 -1:0 ");
    EXPECT_EQ(parsed(atoulx, {"", "fF", "0000FFFFFFFF", "100000000", "1g", "\xE4"}),
              "0:0 0:255 0:4294967295 -1:268435456 -1:1 -1:0 ");
    EXPECT_EQ(parsed(StrToNumber, {"0x1F", "0X1f", "010", "0", "0x", "0xg"}),
              "0:31 0:31 0:10 0:0 -1:7777 -1:0 ");
}

void *raise(void *word) {
    sharedStore(*static_cast<int *>(word), 1);
    return nullptr;
}

TEST(CreateThread, RunsDetachedAndJoinable) {
    int word = 0;
    const pthread_t joinable = CreateThread(raise, 0, 1, false, &word);
    ASSERT_NE(joinable, 0U);
    ASSERT_EQ(pthread_join(joinable, nullptr), 0);
    EXPECT_EQ(word, 1);
    word = 0;
    ASSERT_NE(CreateThread(raise, 0, 1, true, &word), 0U);
    while (sharedLoad(word) == 0) sched_yield();
}

}  // namespace
