#include <gtest/gtest.h>

#include <quillon/discovery.h>

namespace {

TEST(Discovery, AnAnswerCountsForWhoSentItOnce) {
    quillon::Discovery discovery;
    discovery.take({"query|192.168.1.10|1|bob|5", "192.168.1.66", 41302});
    discovery.take({"query|kEth0Ip|0||0", "192.168.1.10", 41302});
    discovery.take({"query|192.168.1.10|1|mallory|5", "192.168.1.10", 41302});
    discovery.take({"garbage", "192.168.1.67", 41302});
    ASSERT_EQ(discovery.found().size(), 2U);
    EXPECT_EQ(discovery.found()[0].address, "192.168.1.66");
    EXPECT_FALSE(discovery.found()[1].holder.linked);
    EXPECT_EQ(discovery.surplus(), 2U);
}

}  // namespace
