// The daemon that ships, on the simulated board, with a virtual PC as its computer.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "sim/pc/virtual_pc.h"
#include "tests/support/on_board.h"

namespace test {

/// An event of the Linux guest's input devices, in the kernel's numbers.
struct Event {
    unsigned type, code;
    int value;
};

class OnPc : public OnBoard {
  protected:
    ~OnPc() override;

    /// Starts board and computer, and waits until the computer has the keyboard. picture: a
    /// listening socket for its picture, or -1.
    void power(sim::Boot boot, const std::string &settings = kFast, int picture = -1);
    sim::VirtualPc &pc() { return *pc_; }
    sim::Qmp &qmp() { return pc_->qemu()->qmp(); }

    /// Waits until Linux has opened as many input devices of the chip; 3 for a CH9329.
    bool hasDevices(int count);

    /// The text of the screen; empty in a graphics mode.
    std::string screen();
    /// Waits until the screen holds a text; false after 20 s, with the screen in the output.
    bool shows(const std::string &text);

    /// Runs a shell command in the Linux guest; what it printed.
    std::string guest(const std::string &command);
    /// Events since the last call, once wanted says that they are enough, within 20 s.
    std::vector<Event> events(const std::function<bool(const std::vector<Event> &)> &wanted);
    /// The next one that this takes; a type of 0 when none came.
    Event event(const std::function<bool(const Event &)> &wanted);
    /// The value of the next one with this type and code. The test fails when none comes.
    int value(unsigned type, unsigned code) {
        const Event found = event([=](const Event &e) { return e.type == type && e.code == code; });
        EXPECT_EQ(found.type, type) << "no event with code " << code;
        return found.value;
    }

    /// Runs the program quillon-console; what it said. The test fails when it does.
    std::string console(const std::string &arguments);

  private:
    bool waitForLine(const std::function<bool()> &isSo);
    void take(std::size_t port, const std::string &line);

    sim::VirtualPc *pc_ = nullptr;  ///< the board's
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Event> events_;
    std::string said_;
    unsigned commands_ = 0;
    int devices_ = 0;
};

}  // namespace test
