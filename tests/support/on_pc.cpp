#include "tests/support/on_pc.h"

#include <algorithm>

namespace test {
namespace {

constexpr std::chrono::seconds kPatience(20);

}  // namespace

OnPc::~OnPc() {
    board_.reset();  // its computer calls this object
}

void OnPc::power(sim::Boot boot, const std::string &settings, int picture) {
    sim::VirtualPc::Options options;
    options.pictureSocket = picture;
    options.pc.boot = boot;
    options.pc.folder = PROGRAM_DIR "/computer";
    const std::string missing = missingFor(options.pc);
    ASSERT_EQ(missing, "");
    options_.computer = [this, options] {
        auto pc = std::make_unique<sim::VirtualPc>(options);
        pc_ = pc.get();
        pc_->onSerialLine([this](std::size_t port, const std::string &line) { take(port, line); });
        return pc;
    };
    startListening(settings);
    const auto started = [&] {
        return pc_->state().attached || holds(pc_->condition(), "the computer is off");
    };
    ASSERT_TRUE(comesTrue(started, 3 * kPatience) && pc_->state().attached) << pc_->condition();
    if (boot != sim::Boot::kLinux) return;
    ASSERT_TRUE(hasDevices(options_.chip == sim::BoardOptions::kCh9329 ? 3 : 2));
}

bool OnPc::hasDevices(int count) {
    return waitForLine([&] { return devices_ == count; });
}

void OnPc::take(std::size_t port, const std::string &line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Event event{};
    if (port == 0)
        said_ += line + "\n";
    else if (sscanf(line.c_str(), "%u %u %d", &event.type, &event.code, &event.value) == 3)
        events_.push_back(event);
    else if (line.rfind("device ", 0) == 0)
        ++devices_;
    else if (line.rfind("gone ", 0) == 0)
        --devices_;
    changed_.notify_all();
}

bool OnPc::waitForLine(const std::function<bool()> &isSo) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, kPatience, isSo);
}

std::string OnPc::guest(const std::string &command) {
    const std::string end = "end " + std::to_string(++commands_) + "\n";
    pc_->writeSerial(command + "; echo; echo " + end);
    std::size_t at = 0;
    if (!waitForLine([&] { return (at = said_.find(end)) != std::string::npos; }))
        ADD_FAILURE() << "no answer to " << command;
    const std::lock_guard<std::mutex> lock(mutex_);
    std::string answer = said_.substr(0, at);
    said_.clear();
    if (!answer.empty()) answer.pop_back();  // of the first echo
    return answer;
}

std::vector<Event> OnPc::events(const std::function<bool(const std::vector<Event> &)> &wanted) {
    EXPECT_TRUE(waitForLine([&] { return wanted(events_); }));
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(events_, {});
}

Event OnPc::event(const std::function<bool(const Event &)> &wanted) {
    std::vector<Event>::iterator found;
    const auto seen = [&] {
        found = std::find_if(events_.begin(), events_.end(), wanted);
        return found != events_.end();
    };
    if (!waitForLine(seen)) return {};
    const std::lock_guard<std::mutex> lock(mutex_);
    seen();
    const Event event = *found;
    events_.erase(events_.begin(), found + 1);
    return event;
}

std::string OnPc::screen() {
    std::string text;
    try {
        for (const std::string &line : pc_->screen().lines) text += line + "\n";
    } catch (const std::runtime_error &error) {  // of a machine that is too busy
        text = error.what();
    }
    return text;
}

bool OnPc::shows(const std::string &text) {
    std::string seen;
    const bool shown = comesTrue([&] { return holds(seen = screen(), text); }, kPatience);
    EXPECT_TRUE(shown) << "no \"" << text << "\" on the screen:\n" << seen << pc_->condition();
    return shown;
}

std::string OnPc::console(const std::string &arguments) {
    // The computer of a busy machine fetches reports slowly, and the chip keeps no more than 32.
    const std::string pace = holds(arguments, "--interval") ? "" : " --interval 25";
    const Outcome outcome = run(std::string("quillon-console --to ") + kBoard + " --from " +
                                kConsole + pace + " " + arguments);
    EXPECT_EQ(outcome.status, 0) << arguments << ": " << outcome.said;
    return outcome.said;
}

}  // namespace test
