// The keys of a terminal as keys of the computer.
#pragma once

#include <optional>
#include <vector>

#include "layouts/typing.h"
#include "protocol/keys.h"
#include "terminal/terminal_input.h"

namespace quillon {

/// The terminal says that the key types a character, which is no command.
bool typesCharacter(const TerminalEvent &event);

/// The key event by its position, as a US keyboard has it, whatever the computer's layout; none for
/// a key without one.
std::optional<Stroke> positionOf(const TerminalEvent &event);

/// The strokes for a key event, one after the other: those that type its character on the computer,
/// or the key with its modifiers. The usage of a single one may be a modifier key's. None for a key
/// that the computer's keyboard lacks.
std::vector<Stroke> strokesOf(const TerminalEvent &event, const Typist &typist);

}  // namespace quillon
