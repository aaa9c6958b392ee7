
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "support.h"

namespace {

using namespace std::chrono_literals;
using test::Bytes;

// A host program's end of a port, without the preload library.
class Host {
  public:
    explicit Host(speed_t speed) : fd_(open("/dev/ttyAMA1", O_RDWR | O_NOCTTY)) {
        termios options{};
        cfmakeraw(&options);
        cfsetispeed(&options, speed);
        cfsetospeed(&options, speed);
        tcsetattr(fd_, TCSANOW, &options);
    }
    ~Host() { close(fd_); }

    void write(const Bytes &bytes) {
        EXPECT_EQ(::write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    // One read, as soon as something is there; empty when nothing came in time.
    Bytes read(std::chrono::milliseconds patience) {
        pollfd readable{fd_, POLLIN, 0};
        if (poll(&readable, 1, static_cast<int>(patience.count())) <= 0) return {};
        std::uint8_t buffer[256];
        const ssize_t n = ::read(fd_, buffer, sizeof buffer);
        return Bytes(buffer, buffer + n);
    }

  private:
    int fd_;
};

TEST(SerialPorts, NothingPassesAtTheWrongSpeed) {
    test::ScriptedDevice device;
    sim::SerialPorts ports(false);
    ports.attach(1, device);
    device.answer('?', {1});
    Host host(B9600);
    host.write({'?'});
    EXPECT_TRUE(host.read(50ms).empty());
    device.setBaud(9600);
    host.write({'?'});
    EXPECT_EQ(host.read(2s), Bytes{1});
    EXPECT_EQ(device.heard().size(), 1U) << "what came at the wrong speed turned up later";
}

TEST(SerialPorts, PacedWireTakesItsTimeAndKeepsShortAnswersWhole) {
    test::ScriptedDevice device;
    sim::SerialPorts ports(true);
    ports.attach(1, device);
    device.setBaud(2400);
    device.answer('?', Bytes(7, 0x33));
    Host host(B2400);
    const auto start = sim::Clock::now();
    Bytes request(23, 'x');
    request.push_back('?');
    host.write(request);
    EXPECT_EQ(host.read(2s), Bytes(7, 0x33)) << "a short answer comes at once";
    // 24 + 7 bytes of 10 bits at 2400 per second
    EXPECT_GE(sim::Clock::now() - start, 129ms);
}

TEST(SerialPorts, PowerCutLosesWhatIsOnTheWire) {
    test::ScriptedDevice device;
    sim::SerialPorts ports(true);
    ports.attach(1, device);
    device.setBaud(9600);
    device.answer('?', {1});
    Host host(B9600);
    host.write(Bytes(2000, 'x'));  // two seconds
    ports.powerCut();
    host.write({'?'});
    EXPECT_EQ(host.read(2s), Bytes{1});
    EXPECT_LT(device.heard().size(), 1000U);
}

}  // namespace
