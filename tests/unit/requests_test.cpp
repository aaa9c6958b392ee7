#include "protocol/requests.h"

#include <gtest/gtest.h>

namespace {

TEST(Requests, NamesAreMadeConventionalAndHeldAgainstTheRules) {
    EXPECT_EQ(quillon::conventionalName("ann", "1.2.3.4"), "1.2.3.4-ann");
    EXPECT_EQ(quillon::conventionalName("ann-marie", "1.2.3.4"), "1.2.3.4-ann-marie");
    EXPECT_EQ(quillon::conventionalName("5.6.7.8-ann", "1.2.3.4"), "5.6.7.8-ann");
    EXPECT_EQ(quillon::objection({std::string(31, 'n'), "255.255.255.255", 5}), "");
    for (const auto &name :
         std::vector<std::string>{std::string(32, 'n'), "a b", "a|b", "a=b", "\x1b"})
        EXPECT_NE(quillon::objection({name, "", 5}), "") << name;
    for (const char *output : {"1.2.3.4=5", "1111111111111111"})
        EXPECT_NE(quillon::objection({"a", output, 5}), "") << output;
}

}  // namespace
