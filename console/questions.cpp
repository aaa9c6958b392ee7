#include "questions.h"

#include <algorithm>

namespace console {

void Questions::add(const LinkMessage &message, const DatagramSocket::Received &from,
                    Question::Time now) {
    constexpr std::chrono::seconds kPatience(10);  // an endpoint's
    constexpr std::size_t kMost = 16;
    if (waiting_.size() < kMost) waiting_.push_back({message, from, now + kPatience});
}

bool Questions::remove(const Question &question) {
    const auto same = [&](const Question &other) {
        return other.until == question.until && other.from.sender == question.from.sender;
    };
    const auto found = std::find_if(waiting_.begin(), waiting_.end(), same);
    if (found == waiting_.end()) return false;
    waiting_.erase(found);
    return true;
}

std::optional<Question> Questions::takeLate(Question::Time now) {
    if (empty() || now <= front().until) return std::nullopt;
    const Question late = front();
    waiting_.pop_front();
    return late;
}

}  // namespace console
