// How far an upload is, board by board, read off the upload's own log.
#pragma once

#include <boost/timer/progress_display.hpp>
#include <memory>
#include <string>
#include <vector>

namespace flash {

class Progress {
  public:
    /// For an image of so many records. With bar a progress bar is drawn for each board,
    /// otherwise each is a line when it ends.
    Progress(unsigned records, bool bar) : records_(records), bar_(bar) {}

    /// Takes one line of the log.
    void take(const std::string &line);

    /// A line for each board that was begun and is not done: what it is left like.
    std::vector<std::string> unfinished() const;
    /// Boards that took every record.
    std::string done() const;
    /// The last line of the log that told nothing of progress.
    std::string lastWords() const { return lastWords_; }

  private:
    enum State { kErasing, kProgramming, kFailed, kDone };
    struct Board {
        unsigned number;
        State state;
        unsigned sent;  ///< records; the last one may not have been answered
    };

    void begin(unsigned board);
    void countRecord();
    void end(State state);

    const unsigned records_;
    const bool bar_;
    std::vector<Board> boards_;  ///< in the order in which they were begun
    std::string lastWords_;
    std::unique_ptr<boost::timer::progress_display> display_;
};

}  // namespace flash
