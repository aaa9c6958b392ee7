// The daemon's serial port, open on a simulated line.
#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>

#include "myserial.h"
#include "sim/chips/ch9329.h"
#include "sim/chips/ch9350.h"
#include "sim/computer/plain_computer.h"
#include "tests/support/support.h"

namespace test {

using sim::Bytes;

/// A device that answers as the test wants, and keeps what it received.
class ScriptedDevice : public sim::SerialDevice {
  public:
    int baud() override { return baud_; }

    void receive(sim::SerialLine &line, const std::uint8_t *bytes, std::size_t count,
                 sim::Clock::time_point) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        heard_.insert(heard_.end(), bytes, bytes + count);
        if (bytes[count - 1] == trigger_) line.send(answer_, baud_, {});
        for (int i = 0; babbling_ && i < 4 * 128; ++i)
            line.send(Bytes(4, 0x42), baud_, std::chrono::milliseconds(1));
        changed_.notify_all();
    }

    /// Answers every request that ends in lastByte with these bytes.
    void answer(std::uint8_t lastByte, const Bytes &with) {
        const std::lock_guard<std::mutex> lock(mutex_);
        trigger_ = lastByte;
        answer_ = with;
    }

    /// Answers everything with 2048 bytes, four in each millisecond.
    void babble() {
        const std::lock_guard<std::mutex> lock(mutex_);
        babbling_ = true;
    }

    void setBaud(int baud) { baud_ = baud; }

    Bytes heard() const { return waitFor(0); }

    /// Waits until it received count bytes, 5 s at most; returns all that it received.
    Bytes waitFor(std::size_t count) const {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_for(lock, std::chrono::seconds(5), [&] { return heard_.size() >= count; });
        return heard_;
    }

  private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    Bytes heard_, answer_;
    int trigger_ = -1;
    bool babbling_ = false;
    int baud_ = 115200;
};

/// /dev/ttyAMA3 is open at 115200 bits per second; a test attaches a device to it.
class OnLine : public testing::Test {
  protected:
    OnLine() {
        complainedBy([] { MySerial::open_port(MySerial::KUART3); });
        MySerial::set_opt(115200, 8, 1, 'N', 0, 0);
    }

    bool becomes(const std::function<bool(const sim::Computer::State &)> &wanted) const {
        return computer_.waitFor(wanted, std::chrono::seconds(5));
    }

    /// A CH9350 in place of framed_, at the same computer.
    sim::Ch9350 &raw() {
        if (!raw_) raw_.emplace(computer_);
        return *raw_;
    }

    sim::PlainComputer computer_;
    ScriptedDevice device_;
    sim::Ch9329 framed_{computer_, 115200, 115200};
    std::optional<sim::Ch9350> raw_;
    sim::SerialPorts ports_{false};  // last, so that it ends before its devices
};

}  // namespace test
