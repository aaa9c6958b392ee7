#include "main/operator_loop.h"

#include <gtest/gtest.h>

#include <cstring>

#include "state.h"
#include "support.h"
#include "udpsocket/udpsocket.h"

namespace {

class Operator : public testing::Test {
  protected:
    Operator() {
        daemon_.CreateUDPServer(41302, 0, false, true);
        operator_.CreateUDPServer(5001, 1, true, true);
        strcpy(curLocalIp, "192.168.1.10");
    }

    std::string answerTo(const std::string &command) {
        operator_.SendTo("127.0.0.1", 41302, command.data(), static_cast<long>(command.size()));
        char text[kOperatorDatagram + 1] = {};
        daemon_.RecvFrom(text, kOperatorDatagram);
        log_ = test::printedBy([&] { handleOperatorCommand(daemon_, text); });
        char reply[256];
        const int n = operator_.RecvFrom(reply, sizeof reply);
        return std::string(reply, static_cast<std::size_t>(std::max(n, 0)));
    }

    UDPSocket daemon_, operator_;
    std::string log_;
};

TEST_F(Operator, QueryTellsWhoControls) {
    EXPECT_EQ(answerTo("query"), "query|192.168.1.10|0||0");
    strcpy(curtInfo.curName, "192.168.1.20-ann");
    curtInfo.curOutPre = -2;
    EXPECT_EQ(answerTo("query"), "query|192.168.1.10|0|192.168.1.20-ann|-2");
    curLink_num = 2;
    EXPECT_EQ(answerTo("query and more"), "query|192.168.1.10|1|192.168.1.20-ann|-2");
    EXPECT_EQ(log_, "osd rcv command-->query and more\n");
}

TEST_F(Operator, QueryIsCutAtItsField) {
    memset(curtInfo.curName, 'n', sizeof curtInfo.curName - 1);
    strcpy(curLocalIp, "192.168.100.100");
    curtInfo.curOutPre = -2147483647;
    const std::string reply = answerTo("query");
    EXPECT_EQ(reply.size(), 63U);
    EXPECT_EQ(reply.rfind("query|192.168.100.100|0|nnnn", 0), 0U);
}

TEST_F(Operator, WhatIsNoCommandGetsNoAnswer) {
    EXPECT_EQ(answerTo("Query"), "");
    EXPECT_EQ(log_, "osd rcv command-->Query\n");
    EXPECT_EQ(answerTo(std::string("\0query", 6)), "");
    EXPECT_EQ(answerTo(std::string(256, '%')), "");
}

}  // namespace
