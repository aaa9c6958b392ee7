#include "sim/usb/usb_device.h"

#include <gtest/gtest.h>

namespace {

using sim::Bytes, sim::Clock, sim::ReportBuffer, sim::UsbDevice, sim::UsbFace;
using Request = UsbDevice::Request;
using namespace std::chrono_literals;

constexpr std::uint8_t kKeys = UsbDevice::kKeyboardEndpoint;

Bytes key(std::uint8_t usage) {
    return {0, 0, usage, 0, 0, 0, 0, 0};
}

class ChipOnUsb : public testing::Test {
  protected:
    void take(ReportBuffer buffer = ReportBuffer::kQueue) {
        device_ = UsbDevice(UsbFace::kCh9329, buffer);
        device_.configure(1);
        device_.poll(kKeys, true);
    }
    // What the computer fetches now; nothing when none is ready.
    std::optional<Bytes> fetch(Clock::time_point now = Clock::now()) {
        auto report = device_.next(kKeys, now);
        Bytes fetched;
        if (report) device_.fetched(kKeys, fetched);
        return report;
    }
    UsbDevice device_{UsbFace::kCh9329, ReportBuffer::kQueue};
};

TEST_F(ChipOnUsb, KeepsReportsInOrderUntilTheyAreFetched) {
    take();
    for (std::uint8_t i = 1; i <= 32; ++i) device_.put(kKeys, key(i));
    EXPECT_EQ(device_.replaced(), 0U);
    device_.put(kKeys, key(100));  // the newest takes the place of the last
    EXPECT_EQ(device_.replaced(), 1U);
    EXPECT_EQ(device_.next(kKeys, Clock::now()), key(1));
    EXPECT_FALSE(device_.next(kKeys, Clock::now())) << "one is on its way";
    EXPECT_EQ(device_.waiting(), 32U);
    Bytes fetched;
    EXPECT_TRUE(device_.fetched(kKeys, fetched));
    EXPECT_EQ(fetched, key(1));
    for (std::uint8_t i = 2; i < 32; ++i) EXPECT_EQ(fetch(), key(i));
    EXPECT_EQ(fetch(), key(100));
    EXPECT_FALSE(fetch());
    EXPECT_FALSE(device_.fetched(kKeys, fetched)) << "nothing was on its way";
}

TEST_F(ChipOnUsb, WithoutAQueueTheNewestReportIsTheOneThatCounts) {
    take(ReportBuffer::kOne);
    for (std::uint8_t i = 1; i <= 3; ++i) device_.put(kKeys, key(i));
    EXPECT_EQ(device_.replaced(), 2U);
    EXPECT_EQ(fetch(), key(3));
}

TEST_F(ChipOnUsb, LosesWhatNobodyCanFetch) {
    device_.put(kKeys, key(4));
    EXPECT_EQ(device_.lost(), 1U);
    device_.configure(1);
    device_.put(kKeys, key(5));
    EXPECT_FALSE(device_.next(kKeys, Clock::now())) << "not polled yet";
    device_.reset();
    device_.configure(1);
    device_.poll(kKeys, true);
    EXPECT_FALSE(fetch()) << "the reset emptied the queue";
    device_.put(0x84, key(6));
    EXPECT_EQ(device_.lost(), 3U) << "one before the reset, and one without an endpoint";
}

TEST_F(ChipOnUsb, RepeatsAReportAsOftenAsTheComputerAsked) {
    take();
    device_.put(kKeys, key(4));
    EXPECT_EQ(fetch(), key(4));
    EXPECT_EQ(device_.due(), Clock::time_point::max());
    ASSERT_TRUE(device_.control({0x21, 10, 8 << 8, 0, 0}, {}));  // SET_IDLE, 32 ms
    const auto now = Clock::now();
    EXPECT_FALSE(fetch(now));
    EXPECT_EQ(device_.next(kKeys, now + 40ms), key(4));
    EXPECT_EQ(device_.waiting(), 0U) << "a repetition is no news";
    Bytes fetched;
    EXPECT_FALSE(device_.fetched(kKeys, fetched));
    EXPECT_EQ(device_.control({0xA1, 2, 0, 0, 1}, {}), Bytes{8});  // GET_IDLE

    constexpr std::uint8_t kRelative = kKeys + 1;
    device_.poll(kRelative, true);
    device_.put(kRelative, {1, 0, 5, 5, 0});
    ASSERT_TRUE(device_.next(kRelative, now));
    device_.fetched(kRelative, fetched);
    ASSERT_TRUE(device_.control({0x21, 10, 8 << 8, 1, 0}, {}));
    EXPECT_FALSE(device_.next(kRelative, now + 40ms)) << "the pointer would move again";
}

TEST_F(ChipOnUsb, AnswersTheRequestsOfAKeyboardAndRefusesOthers) {
    take();
    const auto get = [&](std::uint16_t value, std::uint16_t index, std::uint16_t length) {
        return device_.control({0x80, 6, value, index, length}, {});
    };
    EXPECT_EQ(get(0x0100, 0, 64)->size(), 18U);
    EXPECT_EQ(get(0x0100, 0, 8)->size(), 8U) << "no more than was asked for";
    const auto configuration = get(0x0200, 0, 0xFFFF);
    EXPECT_EQ(configuration->size(), 84U);
    EXPECT_EQ((*configuration)[2], 84U);
    for (std::uint16_t n = 0; n < 3; ++n) EXPECT_TRUE(get(0x2200, n, 512));
    EXPECT_FALSE(get(0x2200, 3, 512));
    EXPECT_FALSE(get(0x2200, 0xFFFF, 512));
    EXPECT_FALSE(get(0x0303, 0, 64));
    EXPECT_FALSE(get(0x0600, 0, 64));
    EXPECT_FALSE(device_.control({0x21, 10, 0, 9, 0}, {})) << "no interface 9";
    EXPECT_FALSE(device_.control({0xC0, 1, 0, 0, 8}, {})) << "nobody's own requests";
    EXPECT_EQ(device_.control({0xA1, 1, 0x0100, 0, 8}, {}), Bytes(8));

    ASSERT_TRUE(device_.control({0x21, 9, 0x0200, 0, 1}, {0xFE}));
    EXPECT_EQ(device_.leds(), 0x06);
    ASSERT_TRUE(device_.control({0x21, 9, 0x0200, 0, 0}, {}));
    EXPECT_EQ(device_.leds(), 0x06) << "a report without a byte says nothing";
    ASSERT_TRUE(device_.control({0x21, 11, 0, 0, 0}, {}));
    EXPECT_EQ(device_.control({0xA1, 3, 0, 0, 1}, {}), Bytes{0});
    device_.configure(0);
    EXPECT_EQ(device_.configuration(), 0);
}

}  // namespace
