// All foreign text passes here on its way to a terminal.
#pragma once

#include <string>

namespace quillon {

/// The text with '?' for every byte that a terminal might take as part of a command: control
/// characters, and every byte beyond ASCII, because a terminal that reads Latin-1 takes some of
/// them for control characters even inside UTF-8. Text from the network, a file or another user is
/// printed this way.
std::string printable(std::string text);

/// The same for a text of several lines; line feeds stay.
std::string printableLines(std::string text);

}  // namespace quillon
