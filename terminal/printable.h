// The one way of foreign text to a terminal.
#pragma once

#include <string>

namespace quillon {

/// The text with '?' for every byte that a terminal might take as part of a command: control
/// characters, and all beyond ASCII, for a terminal that reads Latin-1 takes some of those bytes
/// as such even inside UTF-8. What came from the network, a file or another user is printed so.
std::string printable(std::string text);

/// The same for a text of several lines, which stay.
std::string printableLines(std::string text);

}  // namespace quillon
