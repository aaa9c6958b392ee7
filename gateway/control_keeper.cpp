#include "gateway/control_keeper.h"

namespace gateway {

const std::map<std::string, Taking> kTakingNames{
    {"never", Taking::kNever}, {"apply", Taking::kApply}, {"connect", Taking::kConnect}};

bool ControlKeeper::holds(const quillon::EndpointStatus &status) const {
    return status.holder && status.holder->linked && status.holder->user == request_.name;
}

std::optional<std::string> ControlKeeper::next(const quillon::EndpointStatus &status, Time now) {
    // The holder may have 10 s to answer, and the endpoint does nothing else meanwhile.
    constexpr std::chrono::seconds kPatience(13);
    if (taking_ == Taking::kNever || !status.reachable || !status.holder || !status.settings ||
        status.holderAsked < since_ || status.settingsAsked < since_ || now < quiet_ ||
        !quillon::permissionsOn(*status.settings))
        return std::nullopt;
    const bool mine = holds(status);
    if (mine) wanted_ = false;
    const bool linked =
        quillon::maySend(*status.settings, request_.output) == quillon::MaySend::kYes;
    if (mine ? linked : status.holder->linked && !wanted_) return std::nullopt;
    wanted_ = false;
    quiet_ = now + kPatience;
    const bool apply = !mine && taking_ == Taking::kApply;
    return apply ? quillon::applyRequest(request_) : quillon::connectRequest(request_);
}

}  // namespace gateway
