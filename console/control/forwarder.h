// Keys, mouse and pasted text of a terminal, on their way to an endpoint.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <utility>

#include "console/control/view.h"
#include "layouts/typing.h"
#include "terminal/terminal_input.h"
#include <quillon/controlled_endpoint.h>

namespace quillon {

/// Every function that takes input returns why the endpoint cannot have it, for a person; empty
/// when it can.
class Forwarder {
  public:
    /// asSoftware: records are wrapped, which movements cannot be. typist: the computer's layout;
    /// both must outlive this.
    Forwarder(ControlledEndpoint &endpoint, const Typist &typist, bool asSoftware)
        : endpoint_(endpoint), typist_(typist), asSoftware_(asSoftware) {}

    /// A key event.
    std::string key(const TerminalEvent &event);
    /// Down and up again.
    std::string tap(const Stroke &stroke);
    /// area: where on the terminal the picture is.
    std::string mouse(const TerminalEvent &event, const PictureArea &area);
    /// Begins to type a text.
    std::string paste(const std::string &text);

    /// Types the next stroke when nothing else waits; false when there was nothing to do.
    bool feedPaste();
    bool pasting() const { return !paste_.empty(); }
    std::size_t pastedPercent() const;
    void stopPaste() { paste_.clear(); }

    /// Everything up.
    void letGo();
    /// The mouse mode of the endpoint changes, so that the pointer's place is not known any more.
    void forgetPointer();
    /// Where the pointer was sent, pixels of the picture; none where that is not known.
    const std::optional<std::pair<int, int>> &pointer() const { return pointer_; }

  private:
    void press(const Stroke &stroke);
    std::string command(const TerminalEvent &event, const Stroke &stroke);
    std::string character(const TerminalEvent &event, const std::vector<Stroke> &strokes);
    std::string setButton(int button);
    void moveTo(const TerminalEvent &event, const PictureArea &area, const Link &link);
    void moveBy(const TerminalEvent &event, const PictureArea &area, const Link &link);
    HealedInput &input() { return endpoint_.input(); }

    ControlledEndpoint &endpoint_;
    const Typist &typist_;
    const bool asSoftware_;
    std::uint8_t held_ = 0;     ///< modifier keys that the person holds
    int characterKey_ = 0;      ///< the terminal's key that types a character and is down
    std::deque<Stroke> paste_;  ///< states that are still to come
    std::size_t pasteTotal_ = 0;
    int mouseDown_ = 0;  ///< the button, as the terminal counts
    std::optional<std::pair<int, int>> pointer_, lastCell_;
};

}  // namespace quillon
