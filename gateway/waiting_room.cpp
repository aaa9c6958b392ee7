#include "gateway/waiting_room.h"

#include <algorithm>
#include <utility>

namespace gateway {
namespace {

// Who has been sent away keeps a place until it has left, but does not count.
bool counts(const WaitingRoom::Entry &entry) {
    return entry.dismiss != nullptr;
}

}  // namespace

std::shared_ptr<WaitingRoom::Ticket> WaitingRoom::enter(const std::string &from,
                                                        std::function<void()> dismiss) {
    const auto same = [&](const Entry &entry) { return counts(entry) && entry.from == from; };
    const auto count = [&](const auto &which) {
        return static_cast<std::size_t>(std::count_if(waiting_->begin(), waiting_->end(), which));
    };
    auto longest = waiting_->end();
    if (count(same) >= share_)
        longest = std::find_if(waiting_->begin(), waiting_->end(), same);
    else if (count(counts) >= places_)
        longest = std::find_if(waiting_->begin(), waiting_->end(), counts);
    if (longest != waiting_->end()) std::exchange(longest->dismiss, nullptr)();
    waiting_->push_back({from, std::move(dismiss)});
    return std::make_shared<Ticket>(waiting_, std::prev(waiting_->end()));
}

}  // namespace gateway
