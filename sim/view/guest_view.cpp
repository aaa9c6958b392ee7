#include "sim/view/guest_view.h"

#include <algorithm>
#include <exception>

#include "terminal/screen.h"

namespace sim {

GuestView::GuestView(Machine &machine) : machine_(machine) {
    thread_ = std::thread([this] { look(); });
}

GuestView::~GuestView() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ending_ = true;
        changed_.notify_all();
    }
    thread_.join();
}

void GuestView::look() {
    constexpr std::chrono::milliseconds kPeriod(250);
    std::unique_lock<std::mutex> lock(mutex_);
    while (!ending_) {
        lock.unlock();
        Machine::Screen screen;
        std::string instead;
        try {
            screen = machine_.screen();
            if (screen.lines.empty())
                instead = "a picture of " + std::to_string(screen.width) + "x" +
                          std::to_string(screen.height) +
                          ", no text: \"ctl screenshot FILE.png\", or --vnc and a viewer";
        } catch (const std::exception &error) {
            instead = error.what();
        }
        lock.lock();
        screen_ = std::move(screen);
        instead_ = std::move(instead);
        changed_.wait_for(lock, kPeriod, [this] { return ending_; });
    }
}

int GuestView::draw(int row, int rows) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (screen_.lines.empty()) {
        quillon::put(row, 2, instead_, A_BOLD, quillon::kYellow);
        return 1;
    }
    const int count = static_cast<int>(screen_.lines.size()), shown = std::min(rows, count);
    const int first = std::clamp(screen_.cursorRow - shown + 1, 0, count - shown);
    auto line = screen_.lines.begin() + first;
    for (int i = 0; i < shown; ++i) quillon::putText(row + i, 0, *line++);
    const int cursor = screen_.cursorRow - first;
    if (screen_.cursorRow >= 0 && cursor < shown && screen_.cursorColumn < COLS)
        mvchgat(row + cursor, screen_.cursorColumn, 1, A_REVERSE, 0, nullptr);
    return shown;
}

}  // namespace sim
