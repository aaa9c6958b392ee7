#include "sim/usb/usb_cable.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

namespace {

using sim::Descriptor, sim::UsbCable;

TEST(UsbCable, WaitsForNoRoomAndSeesTheEnd) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    Descriptor other(ends[1]);
    const char junk[4096]{};
    while (send(ends[0], junk, sizeof junk, MSG_DONTWAIT) > 0) continue;
    UsbCable cable{Descriptor(ends[0])};
    cable.write();
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
