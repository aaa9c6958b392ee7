// The questions whether somebody else may take control, on the screen of control.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "console/control/menu.h"
#include <quillon/console_ports.h>
#include <quillon/questions.h>

namespace quillon {

/// Sees to it that an answer reaches the question that the person has read. A question that took
/// the place of another on the screen is not answered before a person could have noticed.
class Consent {
  public:
    using Time = Question::Time;

    /// ownAddress: the address in the answers. endpoint: the address whose questions go first.
    Consent(std::string ownAddress, const std::string &endpoint)
        : ownAddress_(std::move(ownAddress)), questions_(endpoint) {}

    /// A question came; true when it is a new one for the person.
    bool add(const LinkMessage &message, const DatagramSocket::Received &from, Time now);
    /// The user whose question nobody answered in time, one at a call; none when there is none.
    std::optional<std::string> takeLate(Time now);

    /// The menu opens: the answers there are for the question that is first now.
    void offer();
    std::optional<Menu::Asking> offered() const;
    /// Answers the offered question. Returns what happened; refused is set when nothing was sent.
    std::string answer(bool granted, ConsolePorts &ports, Time now, std::string &refused);

    /// What the person is asked, empty without a question. Call it each time the screen is drawn.
    std::string shown(const std::string &escapeName, Time now);

  private:
    const std::string ownAddress_;
    Questions questions_;
    std::optional<Question> offered_;  ///< the question that the menu names
    unsigned shown_ = 0;               ///< number of the question on the screen, 0 for none
    Time replaced_{};                  ///< when the last one left the screen
    Time certainFrom_{};               ///< an answer from then on is for the question on the screen
};

}  // namespace quillon
