// An endpoint that somebody controls: takes the input, and keeps an eye on the endpoint. Nothing
// here waits; the caller polls.
#pragma once

#include <poll.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "protocol/answers.h"
#include <quillon/endpoint.h>
#include <quillon/healed_input.h>

namespace quillon {

struct EndpointStatus {
    bool reachable = false;
    std::chrono::microseconds roundTrip{0};  ///< of the last question, when reachable
    std::optional<Link> link;
    std::optional<Holder> holder;
    std::optional<Settings> settings;
    std::optional<LockKeys> locks;
    std::optional<bool> usb;  ///< answer to the last testUsb(); none while and when there is none
};

class ControlledEndpoint {
  public:
    using Time = HealedInput::Time;

    struct Setup {
        std::string to, from;
        std::uint16_t port = 80;
        std::chrono::milliseconds pace{8};
        bool healing = true;
        bool asSoftware = false;
    };
    /// Throws std::runtime_error when the system refuses.
    explicit ControlledEndpoint(const Setup &setup);

    HealedInput &input() { return input_; }
    const EndpointStatus &status() const { return status_; }
    std::string ownAddress() const { return records_.ownAddress(); }

    /// To poll for input until due(); then call serve.
    void addTo(std::vector<pollfd> &fds) const;
    Time due() const;
    void serve(Time now);

    /// An operator's command, which has no answer; what it changed is asked for.
    void command(const std::string &text, Time now);
    /// Something about who controls it changed.
    void askWhoControls(Time now);
    void askLockKeys() { wantsLocks_ = true; }
    /// Whether a computer is attached, see status(). The endpoint takes no records meanwhile.
    void testUsb() { wantsUsb_ = true; }
    bool testsUsb() const { return wantsUsb_ || usb_.waiting; }
    /// Everything up, as software's records, which are taken from who is not linked, too.
    void releaseAsSoftware();
    /// Everything up, said as often as healing says it. Takes a quarter of a second.
    void finish();

  private:
    /// A text that is asked now and then; the answer comes back to a socket of its own.
    struct Question {
        Question(const Setup &setup, std::uint16_t port, std::string words,
                 std::chrono::milliseconds time)
            : endpoint(setup.to, port, setup.from), text(std::move(words)), patience(time) {}

        Endpoint endpoint;
        const std::string text;
        const std::chrono::milliseconds patience;
        Time asked{};
        Time next = Time::max();
        bool waiting = false;
        int again = 0;  ///< so often it is asked soon after an answer
    };

    void ask(Question &question, Time now);
    std::optional<std::string> answer(Question &question, Time now);
    void askWhatIsDue(Time now);
    void takeAnswers(Time now);
    void heard(Time now);
    void setReachable(bool reachable, Time now);
    Time locksDue() const;
    void sendRecords(Time now);
    bool trySend(Endpoint &endpoint, const std::string &bytes);

    const std::string tag_;
    Endpoint records_, commands_;
    Question link_, locks_, holder_, settings_, usb_;
    HealedInput input_;
    EndpointStatus status_;
    Time lastHeard_{}, lastSent_{};
    bool wantsLocks_ = true, wantsUsb_ = false;
};

}  // namespace quillon
