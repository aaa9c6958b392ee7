// Questions for consent that a person has not answered yet. Nothing here waits or sends.
#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <string>

#include "protocol/link_messages.h"
#include <quillon/datagram_socket.h>

namespace quillon {

struct Question {
    using Time = std::chrono::steady_clock::time_point;

    unsigned number;  ///< by which a person names it, from 1 on
    LinkMessage message;
    DatagramSocket::Received from;
    Time until;  ///< then the endpoint waits no more
    unsigned repeats = 0;
};

/// Holds one question for each endpoint and user; an endpoint asks again for each output that it
/// has linked. The endpoint is the address that sent the question, whatever name is in it. Four
/// places are for each endpoint and sixteen for all but the preferred, so that a flood fills the
/// places of its sender alone; the rest is counted.
class Questions {
  public:
    /// An endpoint whose questions go before those of others; an empty address for none.
    explicit Questions(std::string preferred = "") : preferred_(std::move(preferred)) {}

    /// The question when it is a new one for the person, valid until the next change. Null for a
    /// repeat, and for one that has no place; those count as surplus, and so do repeats from the
    /// ninth on. An endpoint waits 10 s for the answer, see takeLate().
    const Question *add(const LinkMessage &message, const DatagramSocket::Received &from,
                        Question::Time now);
    bool empty() const { return waiting_.empty(); }
    std::size_t size() const { return waiting_.size(); }
    /// Of the preferred endpoint the oldest, else the oldest of all. Only when not empty().
    const Question &front() const { return waiting_.front(); }
    const std::deque<Question> &all() const { return waiting_; }
    const Question *find(unsigned number) const;
    /// Takes one away; false when it is gone already.
    bool remove(unsigned number);
    /// Takes away one that nobody answered in time.
    std::optional<Question> takeLate(Question::Time now);
    /// How many were too many since nothing waited.
    unsigned surplus() const { return surplus_; }

  private:
    void forgetSurplus();

    const std::string preferred_;
    std::deque<Question> waiting_;
    unsigned last_ = 0, surplus_ = 0;
};

}  // namespace quillon
