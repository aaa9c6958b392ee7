#include "main/board.h"

#include <unistd.h>

#include <map>

#include "sim/board.h"
#include "sim/host/registers.h"
#include "software_config.h"
#include "tests/support/support.h"

namespace {

using Config = SoftwareConfig;
using test::printedBy;

constexpr char kInfo[] = "/version/hardware_info";

std::string identify(const std::string &file) {
    test::writeFile(kInfo, file);
    char board[kBoardSize + 1] = {};
    board[kBoardSize] = 'x';
    printedBy([&] { readHdVersion(board); });
    EXPECT_EQ(board[kBoardSize], 'x');
    board[kBoardSize] = '\0';
    return board;
}

TEST(ReadHdVersion, PrintsAndReturnsTheIdentifierOfAnyFile) {
    char board[kBoardSize] = "leftover";
    EXPECT_EQ(printedBy([&] { EXPECT_FALSE(readHdVersion(board)); }), "open hardware_info error\n");
    test::writeFile(kInfo, "{\"board\": \"QBR_1\", \"x\": \"y\"}");
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(readHdVersion(board)); }),
              "read hardware_info:{\"board\": \"QBR_1\", \"x\": \"y\"}\nget hdVersion:QBR_1\n");
    EXPECT_STREQ(board, "QBR_1");
    EXPECT_EQ(identify(""), "");
    EXPECT_EQ(identify("{\"bored\": \"a\"}"), "");
    EXPECT_EQ(identify("{\"board\": \"no end"), "");
    EXPECT_EQ(identify("\"board\": \"\""), "");
    EXPECT_EQ(identify(std::string(246, ' ') + "\"board\": \"a\""), "");
    EXPECT_EQ(identify("\"board\": \"" + std::string(200, 'b') + "\""), std::string(127, 'b'));
    EXPECT_EQ(identify("\"board\": \"" + std::string(400, 'b') + "\""), "");
}

using Registers = std::map<unsigned, unsigned>;

struct Expected {
    const char *board;
    std::vector<Registers> registers;
    const char *port;
    HDINFO family;
    bool ch9329 = true, video = true;
};

// Written from the boards' wiring, not from the daemon's table. Registers start with all bits of
// 0xFF00 set, so that a lost bit is noticed; registers that are not named must not change.
const Registers kPins1{{0x120F00F8, 1}, {0x120F00FC, 1}}, kPins2{{0x120F0100, 1}, {0x120F0104, 1}},
    kPins100{{0x121D0400, 0xFF20}, {0x121D0080, 0xFF20}},
    kPins3100{{0x120F006C, 0}, {0x12180400, 0xFF80}, {0x12180200, 0xFF80}},
    kPower3000{{0x120F0170, 0}, {0x12220400, 0xFF08}, {0x12220020, 0xFF00}},
    kPower300{{0x120F02D8, 0}, {0x12230400, 0xFF02}, {0x12230008, 0xFF00}};

const Expected kBoards[] = {
    {"QBRD10401m2_3000_R1", {kPins2, kPower3000}, "COM2", QBX_3000},
    {"QBRE10401m2_3000_R1", {kPins2, kPower3000}, "COM2", QBX_3000},
    {"QBRD10401m2_3010_R1xyz", {kPins2, kPower3000}, "COM2", QBX_3000},
    {"QBRD10402m_3100_R1", {kPins2, kPower3000, kPins3100}, "COM2", QBX_3000},
    {"QBRE10402n_100_R1", {kPins1, kPins100}, "COM1", QBX_3000, true, false},
    {"QBRD10402m_500_R1", {kPins1, kPins2}, "COM1", QBX_3000},
    {"QBRD10403n_5000_R1", {{}}, "COM1", QBX_31DV200},
    {"QBRF1040pm_300_R1", {kPower300}, "COM3", QBX_300},
    {"QBRF1040pm_310_R1", {kPower300}, "COM3", QBX_300},
    {"QBRF1040pm_300_R2", {kPower300}, "COM3", QBX_300},
    {"QBRF1040pn_100_R1", {kPower300}, "COM3", QBX_300},
    {"QBRF104050_100_R1", {kPower300}, "COM3", QBX_300},
    {"QBRD1040pm_100_R4", {kPower300}, "COM3", QBX_300},
    {"QBRD1040pn_100_R1", {kPower300}, "COM3", QBX_300},
    {"QBRD1040pm_100_R", {kPower300}, "COM3", QBX_300, false},
    {"", {kPower300}, "COM3", QBX_300, false},
};

TEST(SetUpBoard, SetsPinsPortAndFamilyOfEveryBoard) {
    sim::Registers registers;
    Registers start{{0x12220020, 0xFF08}, {0x12230008, 0xFF02}};
    for (const Registers &part : {kPins1, kPins2, kPins100, kPins3100, kPower3000, kPower300})
        for (const auto &word : part) start.insert({word.first, 0xFF00});
    for (const Expected &expected : kBoards) {
        SCOPED_TRACE(expected.board);
        for (const auto &[address, value] : start) registers.set(address, value);
        unlink("./quillon.ini");
        const auto config = Singleton<Config>::getInstance();
        config->SetConfig(Config::kComPort, "COM3");
        printedBy([&] { setUpBoard(expected.board); });

        Registers wanted;
        for (const Registers &part : expected.registers) wanted.insert(part.begin(), part.end());
        wanted.insert(start.begin(), start.end());
        for (const auto &[address, value] : wanted)
            EXPECT_EQ(registers.get(address), value) << std::hex << address;

        EXPECT_EQ(config->GetConfig(Config::kComPort), expected.port);
        const bool forced = std::string(expected.port) != "COM3";
        EXPECT_EQ(access("./quillon.ini", F_OK) == 0, forced) << "saved at once where forced";
        EXPECT_EQ(hd_info, expected.family);
        EXPECT_EQ(hasCh9329(expected.board), expected.ch9329);
        EXPECT_FALSE(isIdleBoard(expected.board));
        EXPECT_EQ(hasVideoWatch(expected.board), expected.video);
        EXPECT_EQ("COM" + std::to_string(sim::chipPort(expected.board, "COM3")), expected.port);
    }
    EXPECT_TRUE(isIdleBoard("QBRD10401m2_3020_R1"));
    EXPECT_FALSE(hasCh9329("QBRD10401m2_3020_R1"));
}

TEST(SetUsbPower, UnreadableRegisterIsReportedOnceAndNotWritten) {
    EXPECT_EQ(printedBy([] { EXPECT_TRUE(set_usb_power(true, QBX_31DV200)); }), "") << "has none";
    std::string said;
    test::complainedBy([&] { said = printedBy([] { set_usb_power(false, QBX_3000); }); });
    EXPECT_EQ(said,
              "write register 0x120f0170 failed\nread register 0x12220400 failed\n"
              "read register 0x12220020 failed\n");
}

}  // namespace
