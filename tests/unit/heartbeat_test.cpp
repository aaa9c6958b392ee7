#include "main/heartbeat.h"

#include <optional>
#include <thread>

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
    // Both outputs are lost: the saved level stays.
    outputs_->setAnswering("192.168.7.20", false);
    pass();
    EXPECT_EQ(curtInfo.heartPre, 5);
    outputs_->setAnswering("192.168.7.20", true);
    outputs_->setAnswering("192.168.7.21", true);
    pass();
    EXPECT_EQ(curtInfo.curOutPre, 5);
}

TEST_F(Heartbeat, AnswerToTheSecondPingIsInTime) {
    UDPSocket output;  // at an address without another console
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

}  // namespace
