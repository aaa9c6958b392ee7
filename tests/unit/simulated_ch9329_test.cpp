#include "sim/chips/ch9329.h"
#include "sim/computer/plain_computer.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using sim::Bytes;

// The chip without a wire: bytes in, answers out.
class Chip : public testing::Test, public sim::SerialLine {
  protected:
    Chip() : chip_(computer_, 9600, 115200) {}

    void send(const Bytes &bytes, int baud, sim::Clock::duration delay) override {
        answers_.push_back(bytes);
        baud_ = baud;
        delay_ = delay;
    }
    sim::Clock::duration jitter() const override { return {}; }

    static Bytes frame(std::uint8_t code, const Bytes &data, std::uint8_t address = 0) {
        Bytes bytes{0x57, 0xAB, address, code, static_cast<std::uint8_t>(data.size())};
        for (const auto byte : data) bytes.push_back(byte);
        unsigned sum = 0;
        for (const auto byte : bytes) sum += byte;
        bytes.push_back(static_cast<std::uint8_t>(sum));
        return bytes;
    }

    // Returns everything that the chip answers to these bytes.
    Bytes ask(const Bytes &bytes, sim::Clock::duration pause = 1s) {
        answers_.clear();
        now_ += pause;
        chip_.receive(*this, bytes.data(), bytes.size(), now_);
        Bytes all;
        for (const Bytes &answer : answers_) all.insert(all.end(), answer.begin(), answer.end());
        return all;
    }

    sim::PlainComputer computer_;
    sim::Ch9329 chip_;
    sim::Clock::time_point now_ = sim::Clock::now();
    std::vector<Bytes> answers_;
    int baud_ = 0;
    sim::Clock::duration delay_{};
};

const Bytes kNothing;
const Bytes kKeyA{0, 0, 4, 0, 0, 0, 0, 0};

TEST_F(Chip, AnswersAsSeenOnHardware) {
    EXPECT_EQ(ask(frame(0x02, kKeyA)), (Bytes{0x57, 0xAB, 0, 0x82, 1, 0, 0x85}));
    EXPECT_EQ(ask(frame(0x04, {2, 0, 0, 0, 0, 0, 0})), (Bytes{0x57, 0xAB, 0, 0x84, 1, 0, 0x87}));
    EXPECT_EQ(ask(frame(0x05, {1, 0, 0, 0, 0})), (Bytes{0x57, 0xAB, 0, 0x85, 1, 0, 0x88}));
    EXPECT_EQ(ask(frame(0x01, {})),
              (Bytes{0x57, 0xAB, 0, 0x81, 8, 0x38, 1, 0, 0, 0, 0, 0, 0, 0xC4}));
    EXPECT_EQ(ask({0x57, 0xAB, 0, 0x05, 5, 1, 0, 0, 0, 0, 0xEE}),
              (Bytes{0x57, 0xAB, 0, 0xC5, 1, 0xE4, 0xAC}))
        << "a wrong sum";
}

TEST_F(Chip, RefusesWhatIsWrong) {
    EXPECT_EQ(ask(frame(0x20, {})), frame(0xE0, {0xE3}));
    EXPECT_EQ(ask(frame(0x02, {0, 0, 4})), frame(0xC2, {0xE5}));
    EXPECT_EQ(ask(frame(0x04, {1, 0, 0, 0, 0, 0, 0})), frame(0xC4, {0xE5}));
    EXPECT_EQ(ask(frame(0x09, Bytes(50, 0))), frame(0xC9, {0xE5})) << "no speed that it has";
    EXPECT_EQ(computer_.state().reports, 0U);
    EXPECT_EQ(chip_.counters().refused, 4U);
}

TEST_F(Chip, FindsFramesAmongRubbishAndBackToBack) {
    Bytes bytes{0, 0xAB, 0x57, 0x57, 0xAB, 0, 2, 65};
    const Bytes whole = frame(0x02, kKeyA);
    bytes.insert(bytes.end(), whole.begin(), whole.end());
    bytes.insert(bytes.end(), {0, 0});
    bytes.insert(bytes.end(), whole.begin(), whole.end());
    EXPECT_EQ(ask(bytes).size(), 14U);
    EXPECT_EQ(chip_.counters().frames, 2U);
    EXPECT_EQ(chip_.counters().skipped, 10U);
    chip_.strictPackets(true);
    Bytes twice = whole;
    twice.insert(twice.end(), whole.begin(), whole.end());
    EXPECT_EQ(ask(twice).size(), 7U) << "a packet holds one frame";
}

TEST_F(Chip, CutAnywhereIsForgottenAfterTheGap) {
    const Bytes whole = frame(0x02, kKeyA);
    for (std::size_t cut = 1; cut < whole.size(); ++cut) {
        const Bytes head(whole.begin(), whole.begin() + static_cast<long>(cut));
        const Bytes tail(whole.begin() + static_cast<long>(cut), whole.end());
        EXPECT_EQ(ask(head), kNothing);
        EXPECT_EQ(ask(tail, 2ms).size(), 7U) << "within the gap, cut at " << cut;
        EXPECT_EQ(ask(head), kNothing);
        EXPECT_EQ(ask(whole, 4ms).size(), 7U) << "after the gap, cut at " << cut;
    }
}

TEST_F(Chip, KeepsToItsAddress) {
    auto block = chip_.parameters();
    block[2] = 7;
    EXPECT_EQ(ask(frame(0x09, Bytes(block.begin(), block.end()), 0x33)), frame(0x89, {0}))
        << "a chip without address takes every one";
    EXPECT_EQ(ask(frame(0x01, {}, 6)), kNothing);
    EXPECT_EQ(ask(frame(0x01, {}, 7)).size(), 14U);
    EXPECT_EQ(ask(frame(0x02, kKeyA, 0xFF)), kNothing) << "broadcasts are not answered";
    EXPECT_EQ(computer_.state().text, "a") << "but taken";
}

TEST_F(Chip, NewSpeedActsAfterARestartAndStaysUnlessItForgets) {
    EXPECT_EQ(chip_.baud(), 9600);
    EXPECT_EQ(ask(frame(0x08, {})).size(), 56U);
    EXPECT_EQ(ask(frame(0x0F, {})), frame(0x8F, {0}));
    EXPECT_EQ(baud_, 9600) << "the answer to a reset leaves at the old speed";
    EXPECT_EQ(chip_.baud(), 115200);
    EXPECT_EQ(ask(frame(0x01, {}), 10ms), kNothing) << "it restarts";
    EXPECT_EQ(ask(frame(0x01, {})).size(), 14U);
    chip_.powerCycle();
    EXPECT_EQ(chip_.baud(), 115200);
    chip_.forgetOnPowerLoss(true);
    chip_.powerCycle();
    EXPECT_EQ(chip_.baud(), 9600);
}

TEST_F(Chip, PulledCableIsSeenAndReleasesKeys) {
    computer_.setLeds(sim::kNumLed);
    EXPECT_EQ(ask(frame(0x01, {}))[7], sim::kNumLed);
    ask(frame(0x02, kKeyA));
    chip_.unplug();
    EXPECT_EQ(computer_.state().keys[0], 0);
    const Bytes info = ask(frame(0x01, {}));
    EXPECT_EQ(info[6] | info[7], 0);
    EXPECT_EQ(ask(frame(0x02, kKeyA)).size(), 7U) << "the line says nothing of USB";
    chip_.plug();
    EXPECT_EQ(computer_.state().text, "a");
}

TEST_F(Chip, FaultsOnRequest) {
    chip_.silence(true);
    EXPECT_EQ(ask(frame(0x01, {})), kNothing);
    chip_.silence(false);
    chip_.spoilAnswers(true);
    EXPECT_EQ(ask(frame(0x02, kKeyA)), (Bytes{0x57, 0xAB, 0, 0x82, 1, 0, 0x86}));
    chip_.spoilAnswers(false);
    chip_.answerLate(70ms);
    ask(frame(0x01, {}));
    EXPECT_EQ(delay_, 70ms);
    chip_.splitAnswers(5, 20ms);
    EXPECT_EQ(ask(frame(0x01, {})).size(), 14U);
    ASSERT_EQ(answers_.size(), 2U);
    EXPECT_EQ(answers_[0].size(), 5U);
    EXPECT_EQ(delay_, 20ms);
}

}  // namespace
