#include "sim/usb/usb_cable.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>

namespace {

using sim::Descriptor, sim::UsbCable, sim::UsbDevice, sim::UsbFace;

TEST(UsbCable, NeverWaitsForAComputerThatDoesNotRead) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    Descriptor other(ends[1]);
    const char junk[4096]{};
    while (send(ends[0], junk, sizeof junk, MSG_DONTWAIT) > 0) continue;
    UsbCable cable{Descriptor(ends[0])};
    UsbDevice device(UsbFace::kCh9329, sim::ReportBuffer::kQueue);
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 1000; ++i) {
        cable.plug(&device);
        cable.write();
        cable.plug(nullptr);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_TRUE(cable.blocked());
    EXPECT_TRUE(cable.read());
    char bytes[65536];
    while (recv(other.get(), bytes, sizeof bytes, MSG_DONTWAIT) > 0) continue;
    cable.write();
    EXPECT_FALSE(cable.blocked());
    EXPECT_GT(recv(other.get(), bytes, sizeof bytes, MSG_DONTWAIT), 0) << "the greeting";
    other.reset();
    EXPECT_FALSE(cable.read()) << "the computer is gone";
}

}  // namespace
