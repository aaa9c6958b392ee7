#include "cmd_ch9329.h"

#include "protocol/records.h"
#include "software_config.h"
#include "state.h"
#include "tests/support/on_line.h"

namespace {

using test::Bytes, test::holds, test::printedBy;

// The chip's commands, with a device on the line that answers as the test wants.
class ChipCommands : public test::OnLine {
  protected:
    ChipCommands() { ports_.attach(3, device_); }

    // Sends a record; returns the count bytes that the line carried for it.
    Bytes sent(int (*send)(char *, int), Bytes record, std::size_t count) {
        const std::size_t before = device_.heard().size();
        EXPECT_EQ(send(reinterpret_cast<char *>(record.data()), static_cast<int>(record.size())),
                  1);
        const Bytes all = device_.waitFor(before + count);
        return Bytes(all.begin() + static_cast<long>(before), all.end());
    }

    // Lets the device answer a get-information request with these LEDs.
    void answerInformation(unsigned leds) {
        Bytes reply{0x57, 0xAB, 0, 0x81, 8, 0x38, 1, 0, 0, 0, 0, 0, 0, 0};
        reply[7] = static_cast<std::uint8_t>(leds);
        reply[13] = static_cast<std::uint8_t>(0xC4 + leds);
        device_.answer(0x03, reply);
    }

    // Returns what a query for the lock keys prints.
    std::string query(bool answered) {
        return printedBy([&] { EXPECT_EQ(queryKeyLock(&caps_, &num_, &scroll_), answered); });
    }

    bool caps_ = true, num_ = true, scroll_ = true;
};

TEST_F(ChipCommands, FramesCarryWhatTheirRecordsSay) {
    const Bytes key{0x57, 0xAB, 0x01, 0x02, 0x99, 0x04, 5, 6, 7, 8, 9},
        keyFrame{0x57, 0xAB, 0, 2, 8, 2, 0, 4, 0, 0, 0, 0, 0, 0x12};
    EXPECT_EQ(sent(SendData, key, 14), keyFrame);
    EXPECT_EQ(sent(sendRelData, key, 14), keyFrame);
    EXPECT_EQ(sent(sendRelData, {0x57, 0xAB, 0x02, 0, 5, 0xFB, 0xFF}, 13),
              (Bytes{0x57, 0xAB, 0, 5, 5, 1, 0, 5, 0xFB, 0xFF, 0x0C, 0, 0}));
    // x 960 of 1920, y 270 of 1080, wheel down by one
    EXPECT_EQ(sent(SendData, {0x57, 0xAB, 4, 1, 1, 0xC0, 0x03, 0x0E, 0x01, 0xFF}, 13),
              (Bytes{0x57, 0xAB, 0, 4, 7, 2, 1, 0x00, 0x08, 0x00, 0x04, 0xFF, 0x1B}));
}

TEST_F(ChipCommands, OnlyOneOfThreeButtonsPasses) {
    for (const unsigned buttons : {0U, 1U, 2U, 3U, 4U, 5U, 8U, 0x81U, 0xFFU}) {
        const auto byte = static_cast<std::uint8_t>(buttons);
        const bool single = buttons == 1 || buttons == 2 || buttons == 4;
        EXPECT_EQ(sent(sendRelData, {0x57, 0xAB, 2, byte, 0, 0, 0}, 13)[6], single ? buttons : 0U);
    }
}

TEST_F(ChipCommands, OtherLengthsTouchNoLine) {
    char record[64] = {0x57};
    for (const int length : {0, 1, 7, 9, 12, 13, 64})
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(SendData(record, length), 0); }), "error data\n");
    for (const int length : {0, 6, 8, 10, 12})
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(sendRelData(record, length), 0); }), "error data\n");
    EXPECT_TRUE(device_.heard().empty());
}

TEST_F(ChipCommands, AcknowledgementIsDrainedAndMissingOneIsNoError) {
    device_.answer(0x0C, {0x57, 0xAB, 0, 0x82, 1, 0, 0x85});
    char release[11] = {0x57, '\xAB', 1};
    EXPECT_EQ(printedBy([&] { SendData(release, 11); }), "");
    char press[11] = {0x57, '\xAB', 1, 0, 0, 4};
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(SendData(press, 11), 1); }), "select time out\n");
}

TEST(GetNewLocation, CapsAndNeverDividesByZero) {
    const auto located = [](std::uint16_t x, std::uint16_t y) {
        auto record = quillon::absoluteRecord(x, y, quillon::kNoButton, 0);
        char frame[32] = {};
        getNewLocation(reinterpret_cast<char *>(record.data()), frame);
        const auto at = [&](int i) { return static_cast<unsigned char>(frame[i]); };
        return std::pair{at(7) | at(8) << 8, at(9) | at(10) << 8};
    };
    EXPECT_EQ(located(1919, 1079), (std::pair{4093, 4092}));
    EXPECT_EQ(located(1920, 65535), (std::pair{4095, 4095}));
    EXPECT_EQ(located(0xFF, 0x80), (std::pair{544, 485}));
    vi_w = 0;
    vi_h = 1;
    EXPECT_EQ(located(500, 0), (std::pair{0, 0}));
}

TEST_F(ChipCommands, CntReadGathersUntilTheLineIsQuiet) {
    Bytes answer(100);
    for (std::size_t i = 0; i < answer.size(); ++i) answer[i] = static_cast<std::uint8_t>(i * 3);
    device_.answer('?', answer);
    MySerial::nwrite("?", 1);
    char destination[kReplyRoom] = {};
    int count = -1;
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(cntRead(destination, &count, 7, 0)); }),
              "select time out\nUSB not link PC,timeout\n");
    ASSERT_EQ(count, 100);
    EXPECT_EQ(Bytes(destination, destination + count), answer);

    EXPECT_EQ(printedBy([&] { EXPECT_FALSE(cntRead(destination, &count, 7, 0)); }),
              "select time out\nUSB not link PC,timeout\n");
    EXPECT_EQ(count, 0);
}

TEST_F(ChipCommands, CntReadKeepsNoMoreThanItsRoomAndCutsABabblerOff) {
    device_.babble();
    MySerial::nwrite("?", 1);
    char destination[kReplyRoom + 1];
    destination[kReplyRoom] = 'x';
    int count = 0;
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(cntRead(destination, &count, kReplyRoom, 0)); }),
              "USB not link PC,timeout\n")
        << "it did not fall silent, and was cut off";
    EXPECT_EQ(count, kReplyRoom);
    EXPECT_EQ(destination[kReplyRoom - 1], 0x42);
    EXPECT_EQ(destination[kReplyRoom], 'x');
}

TEST_F(ChipCommands, LockKeysComeFromTheLedByte) {
    device_.answer('?', Bytes(7, 0x11));  // an answer that nobody read
    MySerial::nwrite("?", 1);
    device_.waitFor(1);
    for (unsigned leds = 0; leds < 8; ++leds) {
        answerInformation(leds);
        const std::string said = query(true);
        const std::string line = said.substr(said.find("0x81\n") + 5);
        // Each text names what is lit before "UP" and what is not before "DOWN".
        const std::size_t lit = leds == 7 ? line.size() : leds == 0 ? 0 : line.find(" UP");
        for (const auto &[name, led] : {std::pair{"NUM", 1}, {"CAPS", 2}, {"SCROLL", 4}})
            EXPECT_EQ(line.find(name) < lit, (leds & led) != 0) << line;
        EXPECT_EQ((num_ ? 1U : 0) | (caps_ ? 2U : 0) | (scroll_ ? 4U : 0), leds);
    }
    const Bytes heard = device_.heard();
    EXPECT_EQ(Bytes(heard.begin() + 1, heard.begin() + 7), (Bytes{0x57, 0xAB, 0, 1, 0, 3}));
}

TEST_F(ChipCommands, UnknownLedByteLeavesTheFlags) {
    for (const unsigned leds : {8U, 0x80U, 0xFFU}) {
        answerInformation(leds);
        num_ = false;
        EXPECT_TRUE(holds(query(true), "error echo\n"));
        EXPECT_TRUE(caps_ && !num_ && scroll_);
    }
}

TEST_F(ChipCommands, WrongOrMissingAnswerSwitchesAllOff) {
    EXPECT_TRUE(holds(query(false), "0x0\n\nread error\n"));
    EXPECT_FALSE(caps_ || num_ || scroll_);
    device_.answer(0x03, {0x57, 0xAB, 0, 0xC1, 1, 0xE4, 0xA8});
    EXPECT_TRUE(holds(query(false), "0xc1\n0x57 0xab 0x0 0xc1 0x1 0xe4 0xa8 \n"));
}

TEST_F(ChipCommands, GetInfoPrintsTheAnswerAndSetsThePort) {
    answerInformation(2);
    Singleton<SoftwareConfig>::getInstance()->SetConfig(SoftwareConfig::kBaudRate, "38400");
    const std::string said = printedBy([] { EXPECT_TRUE(cmd_get_info()); });
    EXPECT_TRUE(holds(said, "chip echo: 0x57 0xab 0x0 0x81 0x8 0x38 0x1 0x2 0x0 "));
    EXPECT_EQ(static_cast<unsigned char>(echo[3]), 0x81);
    EXPECT_EQ(static_cast<unsigned char>(cmd[1]), 0xAB);
    EXPECT_EQ(ports_.hostBaud(3), 38400);
}

}  // namespace
