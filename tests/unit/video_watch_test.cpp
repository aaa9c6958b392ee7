#include "main/video_watch.h"

#include "state.h"
#include "tests/support/support.h"

namespace {

TEST(VideoWatch, TakesTheThirdReadingThatDiffers) {
    VideoReadings readings;
    const auto read = [&](unsigned w, unsigned h) {
        return test::printedBy([&] { takeVideoReading(readings, w, h); });
    };
    read(1280, 720);
    read(1280, 720);
    EXPECT_EQ(vi_w, 1920U);
    read(1280, 720);
    EXPECT_EQ(vi_w, 1280U);
    EXPECT_EQ(vi_h, 720U);
    // An unchanged reading in between does not reset the count.
    read(800, 600);
    read(1280, 720);
    read(800, 600);
    EXPECT_EQ(vi_w, 1280U);
    read(640, 480);
    EXPECT_EQ(vi_w, 640U);
    // A reading without a signal always counts as different.
    std::string said;
    for (int i = 0; i < 6; ++i) said += read(0, 480);
    for (int i = 0; i < 6; ++i) said += read(1280, 0);
    const std::string line = "---vi no signal---\n";
    EXPECT_EQ(said, line + line + line + line);
    EXPECT_EQ(vi_w, 480U);
    EXPECT_EQ(vi_h, 270U);
}

TEST(VideoWatch, GroupMasks) {
    EXPECT_EQ(netlink_group_mask(0), 0U);
    EXPECT_EQ(netlink_group_mask(5), 0x10U);
    EXPECT_EQ(netlink_group_mask(32), 0x80000000U);
    EXPECT_EQ(netlink_group_mask(33), 0U);
}

TEST(VideoWatch, SaysWhyItCannotStart) {
    // This kernel lacks the board's driver, and the preload library is not in use.
    EXPECT_EQ(test::printedBy([] { EXPECT_EQ(timeCheckVi(nullptr), nullptr); }),
              " Error: Protocol not supported\n[timeCheckVi]-0: create socket error\n");
}

}  // namespace
