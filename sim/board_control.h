// Requests in words to a running board.
#pragma once

#include <string>

namespace sim {

class Board;

/// Begins the answer to a request that is refused.
constexpr char kRefused[] = "error: ";

/// The request whose answer is a PNG file; the others' are for a person.
constexpr char kScreenshot[] = "screenshot";

/// Carries out a request and returns the answer.
std::string controlBoard(Board &board, const std::string &request);

/// All requests, for --help.
std::string controlHelp();

}  // namespace sim
