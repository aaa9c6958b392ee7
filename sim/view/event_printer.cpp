#include "sim/view/event_printer.h"

#include <chrono>
#include <cstdio>

#include "terminal/printable.h"

namespace sim {
namespace {

// In the order of Computer::Event::Kind.
constexpr const char *kLabels[] = {"typed", "key",   "pointer", "buttons",
                                   "wheel", "locks", "usb",     "power"};

void print(Computer::Event::Kind kind, const std::string &what) {
    printf("%-9s %s\n", kLabels[kind], quillon::printableText(what).c_str());
    fflush(stdout);
}

}  // namespace

EventPrinter::EventPrinter(Computer &computer) : computer_(computer) {
    thread_ = std::thread([this] { printPausedLines(); });
    computer_.onEvent([this](const Computer::Event &event) { take(event); });
}

EventPrinter::~EventPrinter() {
    computer_.onEvent(nullptr);
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ending_ = true;
        changed_.notify_all();
    }
    thread_.join();
}

void EventPrinter::take(const Computer::Event &event) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (event.kind != Computer::Event::kText) {
        printTyped();
        print(event.kind, event.what);
    } else if (event.what == "\n") {
        typed_ += "\\n";
        printTyped();
    } else {
        typed_ += event.what == "\t" ? "\\t" : event.what;
    }
    changed_.notify_all();
}

void EventPrinter::printTyped() {
    if (!typed_.empty()) print(Computer::Event::kText, typed_);
    typed_.clear();
}

void EventPrinter::printPausedLines() {
    constexpr auto kPause = std::chrono::milliseconds(500);
    std::unique_lock<std::mutex> lock(mutex_);
    while (!ending_) {
        if (typed_.empty())
            changed_.wait(lock);
        else if (changed_.wait_for(lock, kPause) == std::cv_status::timeout)
            printTyped();
    }
    printTyped();
}

}  // namespace sim
