// Heartbeats to the outputs, and the size of the picture.

#include <optional>
#include <thread>

#include "main/heartbeat.h"
#include "main/video_watch.h"
#include "sim/host/network.h"
#include "sim/host/output_consoles.h"
#include "state.h"
#include "tests/support/support.h"
#include "udpsocket/udpsocket.h"

namespace {

class Heartbeat : public testing::Test {
  protected:
    Heartbeat() {
        sim::makeEth0({"192.168.7.10", "192.168.7.20", "192.168.7.21"});
        outputs_.emplace(std::vector<std::string>{"192.168.7.20", "192.168.7.21"});
        htBeatSocket = &socket_;
        socket_.CreateUDPServer(41301, 1, true, true);
        for (const char *output : {"192.168.7.20", "0.0.0.0", "192.168.7.21"}) {
            curtInfo.link[curLink_num] = 1;
            strcpy(curtInfo.curOutIp[curLink_num++], output);
        }
        curtInfo.curOutPre = 5;
    }

    std::string pass() {
        return test::printedBy([&] { heartbeatPass(socket_); });
    }

    std::optional<sim::OutputConsoles> outputs_;
    UDPSocket socket_;
};

TEST_F(Heartbeat, LevelIsLostWithAnOutputAndComesBack) {
    EXPECT_EQ(pass(),
              "[checkConnect]-0: send to output:192.168.7.20 heartbeat\n"
              "[checkConnect]-0: heartBeat rcv ackheart\n"
              "[checkConnect]-0: send to output:192.168.7.21 heartbeat\n"
              "[checkConnect]-0: heartBeat rcv ackheart\n");
    EXPECT_EQ(curtInfo.curOutPre, 5);
    outputs_->setAnswering("192.168.7.21", false);
    EXPECT_NE(pass().find("not get out 192.168.7.21 heartbeat\n"), std::string::npos);
    EXPECT_EQ(curtInfo.curOutPre, 0);
    EXPECT_EQ(curtInfo.heartPre, 5);
    // Both lost: the level that was saved stays.
    outputs_->setAnswering("192.168.7.20", false);
    pass();
    EXPECT_EQ(curtInfo.heartPre, 5);
    outputs_->setAnswering("192.168.7.20", true);
    outputs_->setAnswering("192.168.7.21", true);
    pass();
    EXPECT_EQ(curtInfo.curOutPre, 5);
}

TEST_F(Heartbeat, AnswerToTheSecondPingIsInTime) {
    UDPSocket output;  // at an address where no other console is
    output.CreateUDPServer(41237, 5, true, true);
    curLink_num = 1;
    strcpy(curtInfo.curOutIp[0], "192.168.7.10");
    curtInfo.link[2] = 0;
    std::thread second([&] {
        char ping[16];
        for (int i = 0; i < 2; ++i) EXPECT_EQ(output.RecvFrom(ping, sizeof ping), 5);
        output.EchoTo("ackheart", 8);
    });
    EXPECT_EQ(pass(),
              "[checkConnect]-0: send to output:192.168.7.10 heartbeat\nrcv timeout-->0s:0us\n");
    second.join();
    EXPECT_EQ(curtInfo.curOutPre, 5);
}

TEST_F(Heartbeat, NobodyLinkedIsNobodyPinged) {
    strcpy(curtInfo.curOutIp[0], "1.2.3.4");
    EXPECT_EQ(pass().rfind("[checkConnect]-0: send to output:1.2.3.4 heartbeat\n", 0), 0U);
    strcpy(curtInfo.curOutIp[0], "1.2.3.");
    EXPECT_EQ(pass().find("1.2.3."), std::string::npos);
    curLink_num = 0;
    EXPECT_EQ(pass(), "");
}

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
    // An unchanged reading between does not reset the count.
    read(800, 600);
    read(1280, 720);
    read(800, 600);
    EXPECT_EQ(vi_w, 1280U);
    read(640, 480);
    EXPECT_EQ(vi_w, 640U);
    // Without a signal every reading differs.
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
    // A kernel without the board's driver, and no preload library here.
    EXPECT_EQ(test::printedBy([] { EXPECT_EQ(timeCheckVi(nullptr), nullptr); }),
              " Error: Protocol not supported\n[timeCheckVi]-0: create socket error\n");
}

}  // namespace
