// Becoming the user of the service, to see what the daemon would see.
#pragma once

#include <optional>
#include <string>

namespace service {

/// Turns root into a user with that user's groups, and the capabilities of quillon.service alone.
/// Throws std::runtime_error when there is no such user, or the system refuses.
void becomeUser(const std::string &name);

/// The number of a user; none when there is no such user.
std::optional<unsigned> userNumber(const std::string &name);

}  // namespace service
