// Places: for the sockets of one user, and of what is installed with a program.
#pragma once

#include <string>

namespace quillon {

/// The path of a folder that nobody but this user can enter, made when it is missing: below
/// $XDG_RUNTIME_DIR, or else below /tmp with the user's number in its name. Throws
/// std::runtime_error when the system refuses, and when somebody else has made it.
std::string ownFolder(const std::string &name);

/// The path of a file or folder by its name from this program's folder on.
std::string besideThisProgram(const std::string &name);

/// Like ownFolder() for a folder with a path of its own.
void makeOwnFolder(const std::string &path);

}  // namespace quillon
