#include "sim/computer/plain_computer.h"

#include <gtest/gtest.h>

#include "protocol/keys.h"
#include "protocol/us_layout.h"

namespace {

class Typing : public testing::Test {
  protected:
    Typing() { computer_.attach(sim::UsbFace::kCh9329); }

    void report(std::uint8_t modifiers, std::initializer_list<std::uint8_t> keys) {
        std::uint8_t bytes[8] = {modifiers};
        std::copy(keys.begin(), keys.end(), bytes + 2);
        computer_.keyboardReport(bytes);
    }

    void press(const quillon::Stroke &stroke) {
        report(stroke.modifiers, {stroke.usage});
        report(0, {});
    }

    void type(const std::string &text) {
        for (const char c : text) press(quillon::strokeOf(c).value());
    }

    sim::PlainComputer computer_;
};

TEST_F(Typing, AllPrintableCharactersArrive) {
    std::string all = "\t\n";
    for (char c = ' '; c < 0x7F; ++c) all += c;
    type(all);
    EXPECT_EQ(computer_.state().text, all);
}

TEST_F(Typing, HeldKeyTypesOnceAndSecondKeyBesideItTypesToo) {
    report(0, {0x04});
    report(0, {0x04});
    report(0, {0x04, 0x05});
    report(0, {0x05});
    EXPECT_EQ(computer_.state().text, "ab");
}

TEST_F(Typing, CapsLockInvertsLettersOnlyAndBackspaceTakesBack) {
    press({0, quillon::kUsageCapsLock});
    EXPECT_EQ(computer_.state().leds, sim::kCapsLed);
    type("aA1!");
    EXPECT_EQ(computer_.state().text, "Aa1!");
    press({0, quillon::kUsageBackspace});
    EXPECT_EQ(computer_.state().text, "Aa1");
}

}  // namespace
