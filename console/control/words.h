// The status lines of control, in words; the live board has the first of them, too.
#pragma once

#include <string>

#include <quillon/controlled_endpoint.h>

namespace quillon {

/// "held by 192.168.1.20-ann (you), level 5 | outputs 192.168.1.20 .21": the holder, and the
/// outputs, those of one network after the first by their last number.
std::string whoWords(const EndpointStatus &status, const std::string &ownName);
/// "answers in 0.4 ms | mouse: positions on 1920x1080 | caps off, num on | down: ctrl+a".
std::string deviceWords(const EndpointStatus &status, const HealedInput &input);
/// Why an endpoint takes nothing from an address; empty when it does, as far as is known.
std::string whyNotTaken(const EndpointStatus &status, const std::string &address);
/// "ctrl+a", "all keys up" for none.
std::string strokeWords(const Stroke &stroke);

}  // namespace quillon
