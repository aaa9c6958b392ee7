#include "main/chip_setup.h"

#include <termios.h>

#include "cmd_ch9329.h"
#include "software_config.h"
#include "tests/support/on_line.h"

namespace {

using Config = SoftwareConfig;
using test::printedBy;

void configure(Config::SoftWareConfigID id, const std::string &value) {
    Singleton<Config>::getInstance()->SetConfig(id, value);
}

std::string saidByOpenPort() {
    std::string said;
    test::complainedBy([&] { said = printedBy([] { openPort(); }); });
    return said;
}

TEST(ParameterBlock, TemplateBecomesAValidWriteRequest) {
    char frame[kParameterFrame];
    ch9329Ini(frame);
    const unsigned char head[] = {0x57, 0xAB, 0, 0x88, 0x32, 0x80, 0x80, 0, 0, 1, 0xC2, 0, 8,
                                  0,    0,    3, 0x86, 0x1A, 0x29, 0xE1, 0, 0, 0, 1,    0, 0x0D};
    EXPECT_EQ(memcmp(frame, head, sizeof head), 0);
    EXPECT_EQ(frame[55], 0x42);
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(getRate(frame, 0), 115200); }),
              "get CH9329 BaudRate= 115200\n");
    frame[3] = 0x09;
    EXPECT_EQ(frameSum(frame, 55), 0xC3);
}

// A chip that runs at 115200, and at another speed after a restart.
class ChipSetup : public testing::Test {
  protected:
    ChipSetup() {
        ports_.attach(3, chip_);
        configure(Config::kBaudRate, "115200");
        saidByOpenPort();
    }

    sim::PlainComputer computer_;
    test::ScriptedDevice device_;
    sim::Ch9329 chip_{computer_, 115200, 9600};
    sim::SerialPorts ports_{false};
};

TEST_F(ChipSetup, OpenPortTakesPortAndSpeedFromTheSettings) {
    configure(Config::kBaudRate, "57600");
    configure(Config::kParity, "E");
    const std::pair<const char *, const char *> ports[] = {
        {"COM3", "uart3 open\n"}, {"COM2", "uart2 open\n"}, {"COM0", ""}};
    for (const auto &[port, opened] : ports) {
        configure(Config::kComPort, port);
        EXPECT_EQ(saidByOpenPort(),
                  opened + std::string("[openPort]-0: serial buad rate using 57600\n"));
        EXPECT_EQ(ports_.hostBaud(port[3] - '0'), 57600);
    }
    termios options{};
    ASSERT_EQ(tcgetattr(MySerial::fd_, &options), 0);
    EXPECT_EQ(options.c_iflag, static_cast<tcflag_t>(INPCK | ISTRIP));
    EXPECT_EQ(options.c_cc[VTIME], 10);
    EXPECT_EQ(options.c_cc[VMIN], 1);
}

TEST_F(ChipSetup, RewriteKeepsAllButTheSpeed) {
    char block[64];
    ASSERT_EQ(ch9329Rata(block), 1);
    const auto before = chip_.parameters();
    EXPECT_EQ(getRate(block, kParameterFrame), 9600);
    setBaudRate(block, kParameterFrame);
    char reply[kReplyRoom];
    int count = 0;
    for (int tries = 0; tries < 50 && count == 0; ++tries) cntRead(reply, &count, 64, 0);
    ASSERT_EQ(count, 7);
    EXPECT_EQ(static_cast<unsigned char>(reply[3]), 0x89) << "refused";
    auto expected = before;
    expected[4] = 0x01;
    expected[5] = 0xC2;
    expected[6] = 0x00;
    EXPECT_EQ(chip_.parameters(), expected);
    EXPECT_EQ(chip_.baud(), 115200);
}

TEST_F(ChipSetup, ResetPrintsTheAnswer) {
    const std::string said = printedBy([] { EXPECT_EQ(resetCH9329(), 1); });
    EXPECT_NE(said.find("com read data-->7\n0x57 0xab 0x0 0x8f 0x1 0x0 0x92 \n"), std::string::npos)
        << said;
    EXPECT_EQ(chip_.baud(), 9600) << "the stored speed acts after the restart";
}

TEST_F(ChipSetup, ParameterReplyCountsOnlyAtItsExactLength) {
    ports_.attach(3, device_);
    device_.answer('?', test::Bytes(5, 0x22));  // already on the line, and discarded
    MySerial::nwrite("?", 1);
    device_.waitFor(1);
    for (const std::size_t size : {56U, 55U, 71U, 300U}) {
        device_.answer(0x0A, test::Bytes(size, 0x11));
        char room[64 + 1];
        room[64] = 'x';
        EXPECT_EQ(ch9329Rata(room), size == 56 ? 1 : 0) << size;
        EXPECT_EQ(room[64], 'x');
    }
}

}  // namespace
