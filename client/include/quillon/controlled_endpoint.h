// An endpoint that a person controls: sends the input, sees to it that no key stays down, and keeps
// asking the endpoint how it is. No function but finish() and the destructor waits: the caller
// polls. Only the constructor throws; what cannot be sent shows in status(). An object is for one
// thread at a time.
#pragma once

#include <poll.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "protocol/answers.h"
#include "protocol/ports.h"
#include <quillon/endpoint.h>
#include <quillon/healed_input.h>

namespace quillon {

/// What is known of an endpoint; none for what it has not answered yet. While it is not reachable,
/// what it answered last.
struct EndpointStatus {
    bool reachable = false;                  ///< it has answered within the last 2 s
    std::chrono::microseconds roundTrip{0};  ///< of the last question, while it is reachable
    std::optional<Link> link;
    std::optional<Holder> holder;
    std::optional<Settings> settings;
    /// When the questions were asked that those two are the answers to.
    std::chrono::steady_clock::time_point holderAsked{}, settingsAsked{};
    std::optional<LockKeys> locks;
    /// When the question was asked that the locks are the answer to.
    std::chrono::steady_clock::time_point locksAsked{};
    std::optional<bool> usb;  ///< answer to the last testUsb(); none until it comes
};

/// Why an endpoint takes nothing from an address, for a person; empty when it does, as far as is
/// known.
std::string whyNotTaken(const EndpointStatus &status, const std::string &address);

class ControlledEndpoint {
  public:
    using Time = HealedInput::Time;

    struct Setup {
        std::string to;    ///< the endpoint's address, IPv4 in dotted form
        std::string from;  ///< local address to send from; empty: the system chooses
        std::uint16_t port = kRecordPort;
        /// Least time between two records. A chip's line carries a keyboard record in 1.8 ms.
        std::chrono::milliseconds pace{8};
        bool healing = true;      ///< see HealedInput
        bool asSoftware = false;  ///< wraps records, so that an endpoint takes them from everybody
        /// Asks for the lock LEDs every 5 s when nobody types, and not only on askLockKeys().
        bool watchesLocks = true;
    };
    /// Throws std::runtime_error for a text that is no address, and when the system refuses.
    explicit ControlledEndpoint(const Setup &setup);
    /// Calls finish() if records were sent since the last one, unless everything is at rest.
    ~ControlledEndpoint();
    ControlledEndpoint(const ControlledEndpoint &) = delete;
    ControlledEndpoint &operator=(const ControlledEndpoint &) = delete;

    /// What is put in here goes to the endpoint with the next calls of serve().
    HealedInput &input() { return input_; }
    const EndpointStatus &status() const { return status_; }
    /// The address of this machine that the endpoint sees.
    std::string ownAddress() const { return records_.ownAddress(); }

    /// Appends the sockets to poll for input. Poll until due() at the latest, then call serve().
    void addTo(std::vector<pollfd> &fds) const;
    Time due() const;
    /// Takes answers, asks what is due and sends what is due. now: the steady clock's time.
    void serve(Time now);

    /// Sends an operator command, which has no answer (see requests.h), and asks soon what changed.
    void command(const std::string &text, Time now);
    /// Asks again who holds control and for the settings, because something was heard of a change.
    void askWhoControls(Time now);
    /// Asks for the lock LEDs as soon as no input waits: it stops records for 190 ms.
    void askLockKeys() { wantsLocks_ = true; }
    /// Asks whether a computer is attached, see status(); an answer counts for 12 s. The endpoint
    /// takes no records meanwhile.
    void testUsb() { wantsUsb_ = true; }
    bool testsUsb() const { return wantsUsb_ || usb_.waiting; }
    /// Lets keys go, and buttons where a position is known, by records of software: an endpoint
    /// takes those also from a console that lost control.
    void releaseAsSoftware();
    /// Forgets input that waits, lets everything go, and says so as often as healing does. Waits a
    /// quarter of a second. Call it at the end: records leave faster from then on.
    void finish();
    /// Nothing is down, and nothing is to be sent any more.
    bool atRest() const { return input_.due() == Time::max(); }

  private:
    /// A text that is asked from time to time; the answer comes back to a socket of its own.
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
        int again = 0;  ///< how many more times it is asked soon after an answer
    };

    void ask(Question &question, Time now);
    std::optional<std::string> answer(Question &question, Time now);
    void askWhatIsDue(Time now);
    void takeAnswers(Time now);
    void setReachable(bool reachable, Time now);
    Time locksDue() const;
    void sendRecords(Time now);
    bool trySend(Endpoint &endpoint, const std::string &bytes);

    const std::string tag_;
    const bool watchesLocks_;
    Endpoint records_, commands_;
    Question link_, locks_, holder_, settings_, usb_;
    HealedInput input_;
    EndpointStatus status_;
    Time lastHeard_{}, lastSent_{};
    bool wantsLocks_ = true, wantsUsb_ = false;
};

}  // namespace quillon
