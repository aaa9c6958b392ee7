// A board live on a terminal: its computer, who holds control, its serial line, its daemon's log.
#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "sim/board.h"
#include "sim/chips/frames.h"
#include "sim/view/guest_view.h"
#include "sim/view/holder_question.h"

namespace sim {

/// Needs a Terminal. take() and takeLog() may be called from any thread, the rest from one.
class BoardScreen {
  public:
    explicit BoardScreen(Board &board);

    void take(const Traffic &traffic);
    void takeLog(const std::string &line);

    /// Keys that a person pressed; false when one of them ends the board.
    bool typed(const std::string &bytes);
    /// Draws the board, and asks who holds control when that may have changed. Waits for nothing.
    void show();

  private:
    struct Passed {
        std::string time;
        bool toDevice;
        Bytes bytes;
    };

    void askWhoControls();
    bool press(char key);
    void typeRequest(char key);
    void request(const std::string &text);
    void drawTitle() const;
    void drawPicture(const Computer::State &state) const;
    void drawComputer(const Computer::State &state) const;
    int drawMachine(const Computer::State &state) const;
    void drawControl(int row);
    void drawFrames(int row, int rows);
    void drawLog(int row, int rows);
    void drawFoot() const;
    std::string rates();

    Board &board_;
    std::unique_ptr<GuestView> guest_;  ///< of a virtual PC
    std::unique_ptr<HolderQuestion> asking_;
    std::optional<quillon::Holder> holder_;
    std::optional<quillon::Settings> settings_;
    Clock::time_point asked_{};
    bool silent_ = false, signal_ = true;
    std::optional<std::string> request_;  ///< the request that is being typed
    std::string said_;                    ///< the answer to the last request

    std::mutex mutex_;  ///< for what follows
    FrameSplitter splitters_[2];
    std::deque<Passed> passed_;
    std::deque<Clock::time_point> lately_[2];  ///< frames of the last second, by direction
    std::deque<std::string> log_;
    bool holderChanged_ = true;
};

}  // namespace sim
