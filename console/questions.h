// Questions for consent that a person has not answered yet.
#pragma once

#include <chrono>
#include <deque>
#include <optional>

#include "datagram_socket.h"
#include "link_messages.h"

namespace console {

struct Question {
    using Time = std::chrono::steady_clock::time_point;

    LinkMessage message;
    DatagramSocket::Received from;
    Time until;  ///< then the endpoint waits no more
};

class Questions {
  public:
    /// When a person has so many already, another is not asked.
    void add(const LinkMessage &message, const DatagramSocket::Received &from, Question::Time now);
    bool empty() const { return waiting_.empty(); }
    /// The oldest.
    const Question &front() const { return waiting_.front(); }
    /// Takes one away; false when it is gone already.
    bool remove(const Question &question);
    /// Takes away one that nobody answered in time.
    std::optional<Question> takeLate(Question::Time now);

  private:
    std::deque<Question> waiting_;
};

}  // namespace console
