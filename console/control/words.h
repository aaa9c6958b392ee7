// The status lines of control, in words.
#pragma once

#include <string>

#include <quillon/controlled_endpoint.h>

namespace quillon {

/// "answers in 0.4 ms | mouse: positions on 1920x1080 | caps off, num on | down: ctrl+a".
std::string deviceWords(const EndpointStatus &status, const HealedInput &input);

}  // namespace quillon
