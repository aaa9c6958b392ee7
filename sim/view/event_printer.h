// Prints what reaches the computer, one line for each event.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "sim/computer/computer.h"

namespace sim {

/// Gathers typed characters into a line until Enter, another kind of event, or half a second
/// without a character.
class EventPrinter {
  public:
    explicit EventPrinter(Computer &computer);
    ~EventPrinter();
    EventPrinter(const EventPrinter &) = delete;
    EventPrinter &operator=(const EventPrinter &) = delete;

  private:
    void take(const Computer::Event &event);
    void printTyped();
    void printPausedLines();

    Computer &computer_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string typed_;
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace sim
