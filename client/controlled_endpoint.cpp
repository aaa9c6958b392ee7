#include <quillon/controlled_endpoint.h>

#include <algorithm>
#include <stdexcept>
#include <thread>

#include "protocol/ports.h"
#include "protocol/requests.h"
#include <quillon/session.h>

namespace quillon {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLinkPeriod{500}, kLostAfter{2000}, kPatience{1000};
// Behind an application for control the test waits for 10 s.
constexpr milliseconds kUsbPatience{12000};
// Each of these questions leaves a line in the endpoint's log, and link messages tell of changes.
constexpr milliseconds kHolderPeriod{5000}, kSettingsPeriod{30000}, kAgain{300};
// The endpoint takes no records for 190 ms while it asks its chip for the lock LEDs.
constexpr milliseconds kLocksPeriod{5000}, kQuietBefore{400}, kQuietAfter{250};
constexpr milliseconds kFarewell{250};  // the last state and its resends

}  // namespace

std::string whyNotTaken(const EndpointStatus &status, const std::string &address) {
    if (!status.reachable) return "the endpoint does not answer";
    if (!status.settings || !status.holder || !permissionsOn(*status.settings)) return "";
    if (!status.holder->linked) return "nobody is linked, and the endpoint may take nothing; apply";
    if (maySend(*status.settings, address) != MaySend::kNo) return "";
    return "the endpoint takes nothing from " + address + ": " + status.holder->user +
           " holds control";
}

ControlledEndpoint::ControlledEndpoint(const Setup &setup)
    : tag_(setup.asSoftware ? kSoftwareTag : ""),
      watchesLocks_(setup.watchesLocks),
      records_(setup.to, setup.port, setup.from),
      commands_(setup.to, kOperatorPort, setup.from),
      link_(setup, setup.port, kLinkQuestion, kLinkPeriod),
      locks_(setup, setup.port, kLockKeysQuestion, kPatience),
      holder_(setup, kOperatorPort, kHolderQuestion, kPatience),
      settings_(setup, kOperatorPort, kSettingsQuestion, kPatience),
      usb_(setup, kOperatorPort, usbQuestion(setup.to), kUsbPatience),
      input_(setup.pace, setup.healing) {
    link_.next = holder_.next = settings_.next = Time{};
}

ControlledEndpoint::~ControlledEndpoint() {
    if (lastSent_ != Time{} && !atRest()) finish();
}

void ControlledEndpoint::addTo(std::vector<pollfd> &fds) const {
    for (const Question *question : {&link_, &locks_, &holder_, &settings_, &usb_})
        fds.push_back({question->endpoint.fd(), POLLIN, 0});
}

ControlledEndpoint::Time ControlledEndpoint::due() const {
    const auto questionDue = [](const Question &question) {
        return question.waiting ? question.asked + question.patience : question.next;
    };
    const Time first = std::min(input_.due(), questionDue(link_));
    if (!status_.reachable) return first;
    return std::min(
        {first, locksDue(), questionDue(holder_), questionDue(settings_), questionDue(usb_)});
}

bool ControlledEndpoint::trySend(Endpoint &endpoint, const std::string &bytes) {
    // The first error may be that of an earlier datagram, and then this one did not leave.
    for (int tries = 0; tries < 2; ++tries) try {
            endpoint.send(bytes.data(), bytes.size());
            return true;
        } catch (const std::runtime_error &) {
            continue;  // the questions find out whether the endpoint is lost
        }
    return false;
}

void ControlledEndpoint::ask(Question &question, Time now) {
    question.asked = now;
    question.next = Time::max();
    question.waiting = true;
    trySend(question.endpoint, question.text);
}

std::optional<std::string> ControlledEndpoint::answer(Question &question, Time now) {
    try {
        auto text = question.endpoint.receive();
        if (text && question.waiting) {
            question.waiting = false;
            return text;
        }
    } catch (const std::runtime_error &) {
        // Nobody listens there just now; the time-out decides.
    }
    if (question.waiting && now - question.asked >= question.patience) {
        question.waiting = false;
        question.next = now;
    }
    return std::nullopt;
}

// A while after the last record, and a while before the next.
ControlledEndpoint::Time ControlledEndpoint::locksDue() const {
    if (locks_.waiting) return locks_.asked + kPatience;
    if (testsUsb()) return Time::max();  // both questions read answers of the chip
    if (!wantsLocks_ && !watchesLocks_) return Time::max();
    const Time wanted = wantsLocks_ ? Time{} : locks_.asked + kLocksPeriod;
    const Time earliest = std::max(wanted, lastSent_ + kQuietBefore), next = input_.due();
    return next != Time::max() && next - earliest < kQuietAfter ? Time::max() : earliest;
}

void ControlledEndpoint::askWhatIsDue(Time now) {
    if (!link_.waiting && link_.next <= now) ask(link_, now);
    if (!status_.reachable) return;
    for (Question *question : {&holder_, &settings_})
        if (!question->waiting && question->next <= now) ask(*question, now);
    if (wantsUsb_ && !locks_.waiting && !usb_.waiting) {
        wantsUsb_ = false;
        status_.usb.reset();
        ask(usb_, now);
    }
    if (!locks_.waiting && locksDue() <= now) {
        wantsLocks_ = false;
        ask(locks_, now);
    }
}

void ControlledEndpoint::setReachable(bool reachable, Time now) {
    if (reachable == status_.reachable) return;
    status_.reachable = reachable;
    if (!reachable) return;
    // It may have lost power, and with it the state of keyboard and pointer.
    input_.refresh();
    askWhoControls(now);
    wantsLocks_ = true;
}

void ControlledEndpoint::takeAnswers(Time now) {
    if (const auto text = answer(link_, now)) {
        status_.roundTrip =
            std::chrono::duration_cast<std::chrono::microseconds>(now - link_.asked);
        status_.link = parseLink(*text);
        if (status_.link) input_.setRelative(status_.link->relative);
        lastHeard_ = now;
        setReachable(true, now);
        link_.next = link_.asked + kLinkPeriod;
    }
    if (const auto text = answer(locks_, now)) {
        status_.locks = parseLockKeys(*text);
        status_.locksAsked = locks_.asked;
        lastHeard_ = now;
    }
    if (const auto text = answer(holder_, now)) {
        const auto before = std::move(status_.holder);
        status_.holder = parseHolder(*text);
        status_.holderAsked = holder_.asked;
        // What came from a console after it lost control was dropped, releases too.
        if (before && status_.holder && before->user != status_.holder->user) input_.refresh();
        holder_.next = now + (holder_.again-- > 0 ? kAgain : kHolderPeriod);
    }
    if (const auto text = answer(settings_, now)) {
        status_.settings = parseSettings(*text);
        status_.settingsAsked = settings_.asked;
        settings_.next = now + (settings_.again-- > 0 ? kAgain : kSettingsPeriod);
    }
    const bool tested = usb_.waiting;
    if (const auto text = answer(usb_, now)) status_.usb = parseUsbLinked(*text);
    usb_.next = Time::max();
    if (tested && !usb_.waiting) input_.refresh();  // the endpoint took no records meanwhile
    if (now - lastHeard_ >= kLostAfter) setReachable(false, now);
}

void ControlledEndpoint::sendRecords(Time now) {
    while (const auto record = input_.next(now)) {
        lastSent_ = now;
        trySend(records_, tag_ + std::string(record->begin(), record->end()));
    }
}

void ControlledEndpoint::serve(Time now) {
    takeAnswers(now);
    askWhatIsDue(now);
    sendRecords(now);
}

void ControlledEndpoint::command(const std::string &text, Time now) {
    trySend(commands_, text);
    link_.next = std::min(link_.next, now);
    askWhoControls(now);
}

void ControlledEndpoint::askWhoControls(Time now) {
    // Once more, for the first answer may be one to an earlier question.
    for (Question *question : {&holder_, &settings_}) {
        question->waiting = false;
        question->next = now;
        question->again = 1;
    }
}

void ControlledEndpoint::releaseAsSoftware() {
    constexpr int kTimes = 3;
    for (int times = 0; times < kTimes; ++times)
        for (const Datagram &record : input_.released())
            trySend(records_, kSoftwareTag + std::string(record.begin(), record.end()));
}

void ControlledEndpoint::finish() {
    constexpr milliseconds kSlowest{20};
    input_.abandon(kSlowest);
    input_.releaseAll();
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + kFarewell;
    for (auto now = Clock::now(); now < end; now = Clock::now()) {
        sendRecords(now);
        std::this_thread::sleep_until(std::min(end, input_.due()));
    }
    lastSent_ = Time{};
}

}  // namespace quillon
