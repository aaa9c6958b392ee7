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

// Result and value.
using Parsed = std::pair<int, unsigned>;

template <class Parser>
Parsed parse(Parser parser, const char *text) {
    unsigned value = 7777;
    const int result = parser(text, &value);
    return {result, value};
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

TEST(Atoul, AcceptsUpToTheLargestUnsigned) {
    EXPECT_EQ(parse(atoul, ""), (Parsed{0, 0}));
    EXPECT_EQ(parse(atoul, "4294967295"), (Parsed{0, 4294967295}));
    EXPECT_EQ(parse(atoul, "4294967296"), (Parsed{-1, 429496729}));
    EXPECT_EQ(parse(atoul, "42949672950"), (Parsed{-1, 4294967295}));
    EXPECT_EQ(parse(atoul, "12a"), (Parsed{-1, 12}));
    EXPECT_EQ(parse(atoul, "-1"), (Parsed{-1, 0}));
    EXPECT_EQ(parse(atoul, " 1"), (Parsed{-1, 0}));
}

TEST(Atoulx, AcceptsEightSignificantDigits) {
    EXPECT_EQ(parse(atoulx, ""), (Parsed{0, 0}));
    EXPECT_EQ(parse(atoulx, "fF"), (Parsed{0, 255}));
    EXPECT_EQ(parse(atoulx, "0000FFFFFFFF"), (Parsed{0, 0xFFFFFFFF}));
    EXPECT_EQ(parse(atoulx, "100000000"), (Parsed{-1, 0x10000000}));
    EXPECT_EQ(parse(atoulx, "1g"), (Parsed{-1, 1}));
    EXPECT_EQ(parse(atoulx, "\xE4"), (Parsed{-1, 0}));
}

TEST(StrToNumber, TakesPrefixedHexadecimalAndElseDecimal) {
    EXPECT_EQ(parse(StrToNumber, "0x1F"), (Parsed{0, 31}));
    EXPECT_EQ(parse(StrToNumber, "0X1f"), (Parsed{0, 31}));
    EXPECT_EQ(parse(StrToNumber, "010"), (Parsed{0, 10}));
    EXPECT_EQ(parse(StrToNumber, "0"), (Parsed{0, 0}));
    EXPECT_EQ(parse(StrToNumber, "0x"), (Parsed{-1, 7777}));
    EXPECT_EQ(parse(StrToNumber, "0xg"), (Parsed{-1, 0}));
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
