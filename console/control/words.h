// The status lines of control, in words.
#pragma once

#include <string>

#include <quillon/controlled_endpoint.h>

namespace quillon {

/// "answers in 0.4 ms | mouse: positions on 1920x1080 | caps off, num on | down: ctrl+a".
std::string deviceWords(const EndpointStatus &status, const HealedInput &input);
/// Why an endpoint takes nothing from an address; empty when it does, as far as is known.
std::string whyNotTaken(const EndpointStatus &status, const std::string &address);

}  // namespace quillon
