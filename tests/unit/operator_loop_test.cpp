#include "main/operator_loop.h"

#include "sim/host/registers.h"
#include "state.h"
#include "tests/support/on_line.h"
#include "udpsocket/udpsocket.h"

namespace {

using test::holds;

class Operator : public test::OnLine {
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

TEST_F(Operator, QueryTellsWhoControlsAndIsCutAtItsField) {
    strcpy(curtInfo.curName, "192.168.1.20-ann");
    curtInfo.curOutPre = -2;
    EXPECT_EQ(answerTo("query"), "query|192.168.1.10|0|192.168.1.20-ann|-2");
    curLink_num = 2;
    EXPECT_EQ(answerTo("query and more"), "query|192.168.1.10|1|192.168.1.20-ann|-2");
    EXPECT_EQ(log_, "osd rcv command-->query and more\n");
    curLink_num = 0;
    memset(curtInfo.curName, 'n', sizeof curtInfo.curName - 1);
    strcpy(curLocalIp, "192.168.100.100");
    curtInfo.curOutPre = -2147483647;
    const std::string reply = answerTo("query");
    EXPECT_EQ(reply.size(), 63U);
    EXPECT_EQ(reply.rfind("query|192.168.100.100|0|nnnn", 0), 0U);
}

TEST_F(Operator, SettingsAreKeptAndTakeEffect) {
    sim::Registers registers;
    version = true;
    EXPECT_EQ(answerTo("chip=relative"), "");
    EXPECT_EQ(log_.rfind("osd rcv command-->chip=relative\nQMX set chip model:relative\n", 0), 0U);
    answerTo("chip=x=y");
    EXPECT_TRUE(holds(log_, "QMX set chip model:x=y\n[SaveConfig]-110: save"));
    EXPECT_TRUE(rel_enable);
    answerTo("per_enable=12");
    EXPECT_TRUE(per);
    answerTo("kUsbPower=1");
    EXPECT_EQ(registers.get(0x120F0170), 1U);
    test::expectHeld(test::readFile("./quillon.ini"),
                     {"usb_power=1\n", "chip_model=rel\n", "per_enable=12\n"});
    answerTo("chip=abs");
    EXPECT_FALSE(rel_enable);
    answerTo("per_enable");
    EXPECT_FALSE(per) << "no value is 0";
}

TEST_F(Operator, ValuesCannotBecomeOtherSettings) {
    answerTo("chip=abs");
    const std::string before = test::readFile("./quillon.ini");
    for (const char *command : {"per_enable=ip=1", "kUsbPower=a\x01", "per_enable=\x7f",
                                "per_enable=00000001", "kUsbPower=00000001"}) {
        answerTo(command);
        EXPECT_EQ(test::readFile("./quillon.ini"), before) << command;
        EXPECT_TRUE(holds(log_, "value refused\n")) << command;
    }
    EXPECT_FALSE(per || rel_enable);
}

TEST_F(Operator, SettingsFileGoesToTheSender) {
    EXPECT_EQ(answerTo("getKvmInfo"), "");
    EXPECT_TRUE(holds(log_, "fopen ini file error\n"));
    test::writeFile("./quillon.ini", std::string(600, 's'));
    const std::size_t open = test::descriptors();
    EXPECT_EQ(answerTo("getKvmInfo").size(), 512U);
    EXPECT_EQ(answerTo("getKvmInfo:192.168.1.11"), "");
    EXPECT_TRUE(holds(log_, "get cmd:getKvmInfo:192.168.1.11, need ip:192.168.1.11\n"));
    EXPECT_EQ(test::descriptors(), open);
}

TEST_F(Operator, LinkTestIsAnsweredWith64BytesToWhoIsMeant) {
    // No device is on the line.
    const std::string head = "[seq]\n[controlled]=";
    const std::string tail = "\n[answer]=127.0.0.1:05001\nusb_is_link_pc\n";
    for (const char *other : {"192.168.1.11", "192.168.1.100"})
        EXPECT_EQ(answerTo(head + other + tail), "");
    EXPECT_EQ(answerTo(head + "192.168.1.10\n[answer]=a:1\nusb_is_link_pc"), "");
    std::string expected = "[ack]\n[controlled]=192.168.1.10\nusb_is_link_pc=0";
    expected.resize(64, '\0');
    EXPECT_EQ(answerTo(head + "192.168.1.10" + tail), expected);
    const std::string toSender = head + "192.168.1.10\n[answer]=0.0.0.0000000:0\nusb_is_link_pc";
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
