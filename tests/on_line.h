// The daemon's serial port, open on a simulated line.
#pragma once

#include <unistd.h>

#include "ch9329.h"
#include "ch9350.h"
#include "myserial.h"
#include "support.h"

namespace test {

/// /dev/ttyAMA3 is open at 115200; a test attaches to it what it wants.
class OnLine : public testing::Test {
  protected:
    OnLine() {
        complainedBy([] { MySerial::open_port(MySerial::KUART3); });
        MySerial::set_opt(115200, 8, 1, 'N', 0, 0);
    }

    bool becomes(const std::function<bool(const sim::Computer::State &)> &wanted) const {
        return computer_.waitFor(wanted, std::chrono::seconds(5));
    }

    // A chip has 60 ms for an answer, also on a busy machine.
    [[maybe_unused]] const int priority_ = nice(-20);
    sim::Computer computer_;
    ScriptedDevice device_;
    sim::Ch9329 framed_{computer_, 115200, 115200};
    sim::Ch9350 raw_{computer_};
    sim::SerialPorts ports_{false};  // goes before what hangs on it
};

}  // namespace test
