#include "flash/progress.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace flash {
namespace {

bool holds(const std::string &line, const char *text) {
    return line.find(text) != std::string::npos;
}

}  // namespace

void Progress::take(const std::string &line) {
    constexpr char kErase[] = "[UploadMotFile]-84: earse: (ERx";
    if (line.rfind("[UploadMotFile]-84: ", 0) == 0) {
        end(kDone);
        // The board's number follows the kind; a single board has none.
        begin(static_cast<unsigned>(
            line.size() < sizeof kErase ? 0 : atoi(line.c_str() + sizeof kErase - 1)));
    } else if (line.rfind("[UploadMotFile]-107: ", 0) == 0) {
        countRecord();
    } else if (holds(line, "earse .mot of muc failed!") ||
               holds(line, "upload .mot file failed!")) {
        end(kFailed);
    } else if (line.rfind("[uploadFile]-322: ", 0) == 0) {
        end(kDone);
    } else if (line != "select time out") {
        lastWords_ = line;
    }
}

void Progress::begin(unsigned board) {
    boards_.push_back({board, kErasing, 0});
    if (!bar_) return;
    printf("board %u\n", board);
    fflush(stdout);
    display_ = std::make_unique<boost::timer::progress_display>(records_, std::cout, "");
}

void Progress::countRecord() {
    if (boards_.empty()) return;
    Board &board = boards_.back();
    board.state = kProgramming;
    ++board.sent;
    if (display_) ++*display_;
}

void Progress::end(State state) {
    if (boards_.empty() || boards_.back().state == kFailed || boards_.back().state == kDone) return;
    Board &board = boards_.back();
    board.state = state;
    if (display_ && board.sent < records_) std::cout << std::endl;
    display_.reset();
    if (bar_) return;
    printf("board %u: %u of %u records sent%s\n", board.number, board.sent, records_,
           state == kFailed ? ", failed" : "");
    fflush(stdout);
}

std::vector<std::string> Progress::unfinished() const {
    std::vector<std::string> lines;
    for (const Board &board : boards_) {
        if (board.state == kDone) continue;
        const std::string what = board.sent == 0
                                     ? "may be erased"
                                     : "erased, " + std::to_string(board.sent) + " of " +
                                           std::to_string(records_) + " records sent";
        lines.push_back("board " + std::to_string(board.number) + ": " + what +
                        "; program it again before it is used");
    }
    return lines;
}

std::string Progress::done() const {
    std::string numbers;
    for (const Board &board : boards_)
        if (board.state == kDone) numbers += " " + std::to_string(board.number);
    return numbers.empty() ? "none" : numbers.substr(1);
}

}  // namespace flash
