#include <quillon/questions.h>

#include <algorithm>

namespace quillon {
namespace {

auto numbered(unsigned number) {
    return [number](const Question &question) { return question.number == number; };
}

}  // namespace

const Question *Questions::add(const LinkMessage &message, const DatagramSocket::Received &from,
                               Question::Time now) {
    constexpr std::chrono::seconds kPatience(10);  // an endpoint's
    constexpr std::size_t kMost = 16, kMostOfOne = 4;
    constexpr unsigned kMostRepeats = 7;  // all eight outputs may be this console
    std::size_t same = 0;
    for (Question &other : waiting_) {
        if (other.from.sender != from.sender) continue;
        ++same;
        if (other.message.user != message.user) continue;
        if (++other.repeats > kMostRepeats) ++surplus_;
        return nullptr;
    }
    const bool preferred = !preferred_.empty() && from.sender == preferred_;
    if (same >= kMostOfOne || (waiting_.size() >= kMost && !preferred)) {
        ++surplus_;
        return nullptr;
    }
    auto place = waiting_.end();
    if (preferred)
        place = std::find_if(waiting_.begin(), waiting_.end(), [&](const Question &other) {
            return other.from.sender != preferred_;
        });
    return &*waiting_.insert(place, {++last_, message, from, now + kPatience});
}

const Question *Questions::find(unsigned number) const {
    const auto found = std::find_if(waiting_.begin(), waiting_.end(), numbered(number));
    return found == waiting_.end() ? nullptr : &*found;
}

bool Questions::remove(unsigned number) {
    const auto found = std::find_if(waiting_.begin(), waiting_.end(), numbered(number));
    if (found == waiting_.end()) return false;
    waiting_.erase(found);
    forgetSurplus();
    return true;
}

std::optional<Question> Questions::takeLate(Question::Time now) {
    const auto found = std::find_if(waiting_.begin(), waiting_.end(),
                                    [&](const Question &question) { return now > question.until; });
    if (found == waiting_.end()) return std::nullopt;
    const Question late = *found;
    waiting_.erase(found);
    forgetSurplus();
    return late;
}

void Questions::forgetSurplus() {
    if (waiting_.empty()) surplus_ = 0;
}

}  // namespace quillon
