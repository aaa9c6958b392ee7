// Control of an endpoint, taken and kept for the viewers of a gateway.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

#include "protocol/requests.h"
#include <quillon/controlled_endpoint.h>

namespace gateway {

/// How control is taken where permissions are on.
enum class Taking {
    kNever,
    kApply,   ///< the holder is asked, if they are not weaker
    kConnect  ///< at once, from everybody who is not stronger
};

/// By the names that options and files have for them.
extern const std::map<std::string, Taking> kTakingNames;

/// Knows no socket and no clock. Control that somebody else took is not taken back before want() is
/// called again; control that nobody holds is taken again.
class ControlKeeper {
  public:
    using Time = std::chrono::steady_clock::time_point;

    ControlKeeper(Taking taking, quillon::LinkRequest request)
        : taking_(taking), request_(std::move(request)) {}

    /// A viewer came that wants control.
    void want() { wanted_ = true; }
    /// The endpoint was away: what it answered to earlier questions does not count any more.
    void doubt(Time now) { since_ = now; }
    /// The command to send now, if any. It is sent when the endpoint has said who holds control,
    /// because every "connect" of the holder links one more output.
    std::optional<std::string> next(const quillon::EndpointStatus &status, Time now);
    /// Whether the gateway's user holds control, as the endpoint said last.
    bool holds(const quillon::EndpointStatus &status) const;
    /// The user, as the endpoint knows them.
    const std::string &user() const { return request_.name; }
    const quillon::LinkRequest &request() const { return request_; }

  private:
    const Taking taking_;
    const quillon::LinkRequest request_;
    bool wanted_ = true;
    Time since_{};  ///< of questions whose answers count
    Time quiet_{};  ///< until when an earlier command may still be carried out
};

}  // namespace gateway
