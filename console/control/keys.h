// The keys of a terminal as keys of the computer.
#pragma once

#include <optional>

#include "protocol/keys.h"
#include "terminal/terminal_input.h"

namespace quillon {

/// The stroke for a key event, whose usage may be a modifier key's; none for a key that the
/// computer's keyboard lacks.
std::optional<Stroke> strokeOf(const TerminalEvent &event);

}  // namespace quillon
