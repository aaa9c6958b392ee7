// What a person prefers for an endpoint: from the command line, the environment and a file.
#pragma once

#include <optional>
#include <string>

#include "layouts/typing.h"

namespace quillon {

/// What one source says; none or empty where it says nothing.
struct Preferences {
    std::string layout, variant, system;
    std::string user;
    std::optional<int> level;
};

/// $XDG_CONFIG_HOME/quillon/console.toml, else ~/.config/quillon/console.toml; empty without both.
std::string preferencesFile();

/// What a file says of an endpoint: its table [endpoint."ADDRESS"], and for what that leaves open
/// the table [default]. Nothing for a file that does not exist. Throws std::runtime_error that
/// names file, line and reason for one that cannot be read or understood.
Preferences readPreferences(const std::string &file, const std::string &endpoint);

/// The layout of the computer, of which the first that says one counts: the command line,
/// QUILLON_LAYOUT ("de", "de(nodeadkeys)"; null for none), the file; else "us". A variant belongs
/// to the layout beside it; one alone on the command line, to whichever layout counts. Throws
/// std::runtime_error for an unknown system.
LayoutChoice layoutOf(const Preferences &commandLine, const char *environment,
                      const Preferences &file);

}  // namespace quillon
