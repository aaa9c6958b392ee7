#include "computer.h"

#include <gtest/gtest.h>

#include "keymap.h"

namespace {

class Typing : public testing::Test {
  protected:
    Typing() { computer_.attach(); }

    void report(std::uint8_t modifiers, std::initializer_list<std::uint8_t> keys) {
        std::uint8_t bytes[8] = {modifiers};
        std::copy(keys.begin(), keys.end(), bytes + 2);
        computer_.keyboardReport(bytes);
    }

    void press(const console::Stroke &stroke) {
        report(stroke.modifiers, {stroke.usage});
        report(0, {});
    }

    sim::Computer computer_;
};

TEST_F(Typing, AllPrintableCharactersArrive) {
    std::string all = "\t\n";
    for (char c = ' '; c < 0x7F; ++c) all += c;
    for (const char c : all) {
        ASSERT_TRUE(console::strokeOf(c)) << c;
        press(*console::strokeOf(c));
    }
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
    press({0, console::kUsageCapsLock});
    EXPECT_EQ(computer_.state().leds, sim::kCapsLed);
    press(*console::strokeOf('a'));
    press(*console::strokeOf('A'));
    press(*console::strokeOf('1'));
    press(*console::strokeOf('!'));
    EXPECT_EQ(computer_.state().text, "Aa1!");
    press({0, console::kUsageBackspace});
    EXPECT_EQ(computer_.state().text, "Aa1");
}

}  // namespace
