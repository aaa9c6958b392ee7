// Files in which people write down what a program is to do.
#pragma once

#include <optional>
#include <string>

namespace quillon {

/// The text of a file; none for one that is not there. What is no file of its own, such as a pipe,
/// is refused before it is read. Throws std::runtime_error with the name of the file, also for one
/// of more than 1 MiB.
std::optional<std::string> readConfigText(const std::string &file);

/// Throws std::runtime_error, with name and line, for a letter beyond ASCII that is not in a line
/// of comment: the library that reads TOML has a gap in its table of letters for keys, where it
/// must not go.
void refuseForeignLetters(const std::string &text, const std::string &name);

}  // namespace quillon
