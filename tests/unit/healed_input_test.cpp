#include <quillon/healed_input.h>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using quillon::HealedInput, quillon::Stroke;

constexpr Stroke kA{0, 0x04}, kB{0, 0x05};

// What is sent in a time: "MILLISECONDS:USAGE " for keys, "MILLISECONDSmBUTTONS " for the mouse.
std::string sentIn(HealedInput &input, HealedInput::Time &now, std::chrono::milliseconds time) {
    std::string all;
    const auto begin = now;
    for (; now < begin + time; now += 1ms)
        while (const auto record = input.next(now)) {
            const int byte = record->size() == 11   ? (*record)[5]
                             : record->size() == 10 ? (*record)[4]
                                                    : (*record)[3];
            all += std::to_string((now - begin) / 1ms) + (record->size() == 11 ? ":" : "m") +
                   std::to_string(byte) + " ";
        }
    return all;
}

class Healed : public testing::Test {
  protected:
    HealedInput input_{8ms};
    HealedInput::Time now_{1h};
};

TEST_F(Healed, ChangesAreSaidAgainSoonThenEverySecond) {
    EXPECT_EQ(input_.due(), HealedInput::Time::max());
    input_.setKeyboard(kA);
    EXPECT_EQ(sentIn(input_, now_, 2500ms), "0:4 40:4 200:4 1200:4 2200:4 ");
    input_.setKeyboard({});
    EXPECT_EQ(sentIn(input_, now_, 20s), "0:0 40:0 200:0 1200:0 2200:0 3200:0 4200:0 ");
    EXPECT_EQ(input_.due(), HealedInput::Time::max());
    input_.refresh();
    EXPECT_EQ(sentIn(input_, now_, 30ms), "0:0 ");
}

TEST_F(Healed, ShortStatesAreSaidFourTimesUnlessRecordsWait) {
    input_.setKeyboard(kA);
    input_.setKeyboard({});
    EXPECT_EQ(sentIn(input_, now_, 39ms), "0:4 8:4 16:4 24:4 32:0 ");
    EXPECT_EQ(sentIn(input_, now_, 50ms), "33:0 ");
    input_.setKeyboard(kB);
    EXPECT_EQ(sentIn(input_, now_, 30ms), "0:0 8:0 16:5 ");
    for (int i = 0; i < 20; ++i) input_.setKeyboard(i % 2 == 0 ? kA : kB);
    const std::string burst = sentIn(input_, now_, 400ms);
    EXPECT_LT(std::count(burst.begin(), burst.end(), ':'), 20 + 8 + 3) << burst;
    HealedInput plain(8ms, false);
    plain.setKeyboard(kA);
    plain.setKeyboard({});
    EXPECT_EQ(sentIn(plain, now_, 5s), "0:4 8:0 ");
}

TEST_F(Healed, PositionsComeOnceMoreAndMovementsNever) {
    for (std::uint16_t x = 0; x < 10; ++x) input_.moveTo(x, 5);
    EXPECT_EQ(sentIn(input_, now_, 5s), "0m0 100m0 ");
    input_.setButton(quillon::kLeft);
    EXPECT_EQ(sentIn(input_, now_, 1500ms), "0m1 40m1 200m1 1200m1 ");
    input_.setButton(quillon::kNoButton);
    EXPECT_EQ(sentIn(input_, now_, 5s), "0m0 40m0 200m0 ");
    input_.setRelative(true);
    input_.moveByDistance(100, -3);
    input_.moveByDistance(100, 0);
    input_.moveByDistance(-5, 0);
    input_.turnWheel(1);
    EXPECT_EQ(sentIn(input_, now_, 5s), "0m0 8m0 16m0 ");
}

TEST_F(Healed, KeysAreSaidAgainBesideMovementsAndEverythingCanBeLeft) {
    input_.setRelative(true);
    input_.setKeyboard(kA);
    std::string all;
    for (int i = 0; i < 60; ++i) {
        input_.moveByDistance(300, 0);
        all += sentIn(input_, now_, 4ms);
    }
    EXPECT_EQ(std::count(all.begin(), all.end(), ':'), 3) << all;
    input_.setKeyboard({});
    input_.abandon(20ms);
    input_.releaseAll();
    EXPECT_EQ(sentIn(input_, now_, 300ms), "0:0 8m0 40:0 48m0 200:0 208m0 ");
}

}  // namespace
