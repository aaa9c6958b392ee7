#include "main/forwarding.h"

#include "protocol/records.h"
#include "state.h"
#include "tests/support/on_line.h"

namespace {

using namespace std::chrono_literals;
using test::Bytes;

using Forwarding = test::OnLine;

TEST_F(Forwarding, RawRecordsAreScaledInPlace) {
    ports_.attach(3, device_);
    const auto scaled = [&](std::uint16_t x, std::uint16_t y) {
        auto record = quillon::absoluteRecord(x, y, quillon::kNoButton, 0);
        const std::size_t before = device_.heard().size();
        serialcontrol(reinterpret_cast<char *>(record.data()), 10, 20);
        const Bytes heard = device_.waitFor(before + 10);
        const auto at = [&](std::size_t i) { return heard.at(before + i); };
        return std::pair{at(5) | at(6) << 8, at(7) | at(8) << 8};
    };
    EXPECT_EQ(scaled(960, 540), (std::pair{511, 511}));
    EXPECT_EQ(scaled(1920, 1079), (std::pair{1023, 1022}));
    EXPECT_EQ(scaled(0, 5000), (std::pair{0, 1023}));
    // -1 x 1023, divided by 1920 without a sign: 0x222221, whose low 16 bits are over the limit
    EXPECT_EQ(scaled(0xFFFF, 0), (std::pair{1023, 0}));
    vi_w = vi_h = 0;
    EXPECT_EQ(scaled(100, 100), (std::pair{0, 0}));

    char other[] = {1, 2, 3};
    serialcontrol(other, 3, 0);
    EXPECT_EQ(device_.waitFor(53).back(), 3);
}

TEST_F(Forwarding, LinkTestFindsTheComputerAndLeavesNumLock) {
    for (const bool isCh9329 : {true, false}) {
        version = isCh9329;
        sim::HidChip &chip = isCh9329 ? static_cast<sim::HidChip &>(framed_) : raw();
        ports_.attach(3, chip);
        for (const std::uint8_t leds : {sim::kCapsLed, sim::kNumLed}) {
            computer_.setLeds(leds);
            query_link = true;
            EXPECT_TRUE(query_usb_link());
            EXPECT_FALSE(query_link);
            EXPECT_EQ(computer_.state().leds, leds);
        }
        const unsigned before = computer_.state().reports;
        chip.unplug();
        EXPECT_FALSE(query_usb_link());
        EXPECT_EQ(computer_.state().reports, before);
        chip.plug();
    }
}

TEST_F(Forwarding, LinkTestWaitsForALateStatus) {
    // Answers every status request after 100 ms, and switches Num Lock each time.
    struct Slow : sim::SerialDevice {
        int baud() override { return 115200; }
        void receive(sim::SerialLine &line, const std::uint8_t *bytes, std::size_t count,
                     sim::Clock::time_point) override {
            if (bytes[count - 1] != 0x40) return;
            leds ^= 1;
            line.send({0x57, 0xAB, 0x12, 0, 0, 0, 0, leds, 0, 0, 0}, 115200, 100ms);
        }
        std::uint8_t leds = 0;
    } slow;
    ports_.attach(3, slow);
    version = false;
    EXPECT_TRUE(query_usb_link());
    ports_.attach(3, device_);
}

TEST_F(Forwarding, LinkTestStrokesOnceWithoutAnAnswer) {
    ports_.attach(3, device_);
    version = false;
    EXPECT_FALSE(query_usb_link());
    const Bytes request{0x57, 0xAB, 0x80, 0x40}, heard = device_.waitFor(30);
    ASSERT_EQ(heard.size(), 30U);
    EXPECT_EQ(Bytes(heard.begin(), heard.begin() + 4), request);
    EXPECT_EQ(heard[9], 0x53);
    EXPECT_EQ(heard[20], 0x00);
    EXPECT_EQ(Bytes(heard.end() - 4, heard.end()), request);
}

// The result for each of the pieces, and the text that is gathered.
std::string merged(const char *head, const char *tail, const std::vector<std::string> &pieces) {
    char all[64] = "";
    std::string results;
    for (std::string piece : pieces)
        results += std::to_string(mergeSerialMessage(all, piece.data(), head, tail)) + " ";
    return results + all;
}

TEST(MergeSerialMessage, GathersFromHeadToTail) {
    EXPECT_EQ(merged("<h", "t>", {"nothing", "x<h1", "2", "3t>rest"}), "3 1 1 2 x<h123t>");
    EXPECT_EQ(merged("<h", "t>", {"<...t"}), "2 <...t") << "first characters at both ends do";
    EXPECT_EQ(merged("##", "##", {"..##x"}), "1 ..##x") << "a tail comes after the head";
    EXPECT_EQ(merged("<h", "t>", {"t><h a t> b", ""}), "2 1 t><h a t>");
}

}  // namespace
