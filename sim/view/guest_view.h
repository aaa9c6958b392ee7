// What a virtual PC shows, looked at again and again by a thread of its own, because that may wait.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "sim/computer/computer.h"

namespace sim {

class GuestView {
  public:
    explicit GuestView(Machine &machine);
    ~GuestView();
    GuestView(const GuestView &) = delete;
    GuestView &operator=(const GuestView &) = delete;

    /// Draws the text screen, or in words what there is instead, into so many rows of the
    /// terminal from row on. Where they are too few, those around the cursor. Returns the number
    /// of rows that it drew.
    int draw(int row, int rows) const;

  private:
    void look();

    Machine &machine_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    Machine::Screen screen_;
    std::string instead_;  ///< of a screen
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace sim
