// The progress of an upload, board by board, as its own log tells it.
#pragma once

#include <boost/timer/progress_display.hpp>
#include <memory>
#include <string>
#include <vector>

namespace flash {

class Progress {
  public:
    /// records is the number of S2 records of the image. With bar each board has a progress bar,
    /// otherwise a line of text when it ends.
    Progress(unsigned records, bool bar) : records_(records), bar_(bar) {}

    /// Takes one line of the log.
    void take(const std::string &line);

    /// One line for each board that was started but not completed, with the state it is left in.
    std::vector<std::string> unfinished() const;
    /// Numbers of the boards that took every record, or "none".
    std::string done() const;
    /// The last line of the log that is not about progress.
    std::string lastWords() const { return lastWords_; }

  private:
    enum State { kErasing, kProgramming, kFailed, kDone };
    struct Board {
        unsigned number;
        State state;
        unsigned sent;  ///< records; the last one may be unanswered
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
