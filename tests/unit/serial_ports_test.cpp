// The simulated serial ports, used through the daemon's serial code.

#include "tests/support/on_line.h"

namespace {

using namespace std::chrono_literals;
using test::Bytes;

void write(const Bytes &bytes) {
    MySerial::nwrite(reinterpret_cast<const char *>(bytes.data()), static_cast<int>(bytes.size()));
}

// One read, as soon as bytes are there; empty when none come in time.
Bytes read(std::chrono::microseconds patience) {
    char buffer[256];
    const int n = MySerial::nread(buffer, sizeof buffer, static_cast<int>(patience.count()));
    return Bytes(buffer, buffer + n);
}

using SerialPorts = test::OnLine;

TEST_F(SerialPorts, LetNothingPassAtTheWrongSpeed) {
    ports_.attach(3, device_);
    device_.answer('?', {1});
    device_.setBaud(9600);
    write({'?'});
    EXPECT_TRUE(read(50ms).empty());
    device_.setBaud(115200);
    write({'?'});
    EXPECT_EQ(read(2s), Bytes{1});
    EXPECT_EQ(device_.heard().size(), 1U) << "what came at the wrong speed turned up later";
}

class PacedWire : public testing::Test {
  protected:
    PacedWire() {
        device_.setBaud(2400);
        ports_.attach(3, device_);
        test::complainedBy([] { MySerial::open_port(MySerial::KUART3); });
        MySerial::set_opt(2400, 8, 1, 'N', 0, 0);
    }

    test::ScriptedDevice device_;
    sim::SerialPorts ports_{true};
};

TEST_F(PacedWire, TakesItsTimeAndKeepsShortAnswersWhole) {
    device_.answer('?', Bytes(7, 0x33));
    const auto start = sim::Clock::now();
    Bytes request(23, 'x');
    request.push_back('?');
    write(request);
    EXPECT_EQ(read(2s), Bytes(7, 0x33)) << "a short answer comes at once";
    // 24 + 7 bytes of 10 bits at 2400 bits per second
    EXPECT_GE(sim::Clock::now() - start, 129ms);
}

TEST_F(PacedWire, LosesAtAPowerCutWhatIsOnIt) {
    device_.answer('?', {1});
    write(Bytes(500, 'x'));  // two seconds
    ports_.powerCut();
    write({'?'});
    EXPECT_EQ(read(2s), Bytes{1});
    EXPECT_LT(device_.heard().size(), 250U);
}

}  // namespace
