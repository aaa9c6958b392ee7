// What a person can do to a running board, by word.
#pragma once

#include <string>

namespace sim {

class Board;

/// How an answer begins when the request was refused.
constexpr char kRefused[] = "error: ";

/// Carries out a request; what to tell the person.
std::string controlBoard(Board &board, const std::string &request);

/// All requests, for --help.
std::string controlHelp();

}  // namespace sim
