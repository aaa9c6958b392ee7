#include "main/operator_loop.h"

#include <gtest/gtest.h>

#include <cstring>

#include "ch9350.h"
#include "myserial.h"
#include "serial_ports.h"
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
        char reply[1024];
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

TEST_F(Operator, SettingsAreKeptAndTakeEffect) {
    version = true;
    EXPECT_EQ(answerTo("chip=relative"), "");
    EXPECT_EQ(log_.rfind("osd rcv command-->chip=relative\nQMX set chip model:relative\n", 0), 0U);
    EXPECT_TRUE(rel_enable);
    answerTo("chip=x=y");
    EXPECT_NE(log_.find("QMX set chip model:x=y\n[SaveConfig]-110: save"), std::string::npos);
    EXPECT_TRUE(rel_enable);
    answerTo("per_enable=12");
    EXPECT_TRUE(per);
    const std::string saved = test::readFile("./quillon.ini");
    EXPECT_NE(saved.find("chip_model=rel\n"), std::string::npos);
    EXPECT_NE(saved.find("per_enable=12\n"), std::string::npos);
    answerTo("chip=abs");
    EXPECT_FALSE(rel_enable);
    answerTo("per_enable");
    EXPECT_FALSE(per) << "no value is 0";
}

TEST_F(Operator, ValuesCannotBecomeOtherSettings) {
    answerTo("chip=abs");
    const std::string before = test::readFile("./quillon.ini");
    for (const char *command :
         {"per_enable=ip=1", "kUsbPower=a\x01", "per_enable=\x7f", "per_enable=00000001",
          "kUsbPower=00000001"}) {
        answerTo(command);
        EXPECT_EQ(test::readFile("./quillon.ini"), before) << command;
        EXPECT_NE(log_.find("value refused\n"), std::string::npos) << command;
    }
    EXPECT_FALSE(per || rel_enable);
}

TEST_F(Operator, SettingsFileGoesToTheSender) {
    EXPECT_EQ(answerTo("getKvmInfo"), "");
    EXPECT_NE(log_.find("fopen ini file error\n"), std::string::npos);
    test::writeFile("./quillon.ini", std::string(600, 's'));
    const std::size_t open = test::descriptors();
    EXPECT_EQ(answerTo("getKvmInfo").size(), 512U);
    EXPECT_EQ(answerTo("getKvmInfo:192.168.1.11"), "");
    EXPECT_NE(log_.find("get cmd:getKvmInfo:192.168.1.11, need ip:192.168.1.11\n"),
              std::string::npos);
    EXPECT_EQ(test::descriptors(), open);
}

TEST_F(Operator, LinkTestIsAnsweredWith64BytesToWhoIsMeant) {
    sim::Computer computer;
    sim::Ch9350 chip(computer);
    sim::SerialPorts ports(false);
    ports.attach(3, chip);
    test::complainedBy([] { MySerial::open_port(MySerial::KUART3); });
    MySerial::set_opt(115200, 8, 1, 'N', 0, 0);
    const std::string head = "[seq]\n[controlled]=";
    const std::string tail = "\n[answer]=127.0.0.1:05001\nusb_is_link_pc\n";
    for (const char *other : {"192.168.1.11", "192.168.1.100"})
        EXPECT_EQ(answerTo(head + other + tail), "");
    EXPECT_EQ(answerTo(head + "192.168.1.10\n[answer]=a:1\nusb_is_link_pc"), "");
    std::string expected = "[ack]\n[controlled]=192.168.1.10\nusb_is_link_pc=1", reply;
    expected.resize(64, '\0');
    // The chip has 60 ms for its status, which a busy machine may not give it.
    for (int i = 0; i < 5 && reply != expected; ++i) reply = answerTo(head + "192.168.1.10" + tail);
    EXPECT_EQ(reply, expected);
    const std::string toSender =
        head + "192.168.1.10\n[answer]=0.0.0.0000000:0\nusb_is_link_pc";
    EXPECT_EQ(answerTo(toSender).size(), 64U) << "zeroes behind the text there, too";
    EXPECT_EQ(answerTo("[seq] without the word"), "");
}

TEST_F(Operator, WhatIsNoCommandGetsNoAnswer) {
    EXPECT_EQ(answerTo("Query"), "");
    EXPECT_EQ(log_, "osd rcv command-->Query\n");
    EXPECT_EQ(answerTo(std::string("\0query", 6)), "");
    EXPECT_EQ(answerTo(std::string(256, '%')), "");
}

}  // namespace
