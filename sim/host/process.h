// Child processes.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace sim {

struct Launch {
    std::vector<std::string> arguments;       ///< the program first, looked up in PATH
    std::vector<std::string> environment;     ///< NAME=VALUE, plus the inherited ones
    std::string directory;                    ///< empty: inherited
    int input = -1, output = -1, error = -1;  ///< -1: inherited
    bool ownSession = false;                  ///< out of reach of the terminal and its Ctrl-C
    std::vector<int> descriptors{};           ///< that it inherits, with their numbers
    /// As a user that nobody else is, where this process may do that, and else as the same one;
    /// without capabilities and without a way to new ones; of the environment only PATH; with the
    /// PC's files to read only, but for the folders of users, which are empty, and for a /tmp and a
    /// /var/tmp of its own.
    bool withoutRights = false;
};

/// Starts a program with every signal unblocked and at its default.
/// Throws std::runtime_error when it cannot be started.
pid_t launch(const Launch &what);

/// Waits for a child; its exit status, or 128 plus the signal that ended it.
int awaitExit(pid_t pid);

/// Runs a tool to its end with input on its standard input. Throws std::runtime_error, with its
/// output, when it fails.
void runTool(const std::vector<std::string> &arguments, const std::string &input);

}  // namespace sim
