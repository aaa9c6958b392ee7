#include "console/control/forwarder.h"

#include <algorithm>

#include "console/control/keys.h"
#include "layouts/unicode.h"

namespace quillon {
namespace {

// The modifiers that are down. The terminal reports which kinds are, but not which side.
std::uint8_t reconciled(std::uint8_t down, std::uint8_t reported) {
    constexpr unsigned kRightSide = 4;  // bits from a left one to its right one
    unsigned result = 0;
    for (unsigned bit = 1; bit <= kLeftGui; bit <<= 1) {
        const unsigned both = bit | bit << kRightSide;
        if ((reported & bit) != 0) result |= (down & both) != 0 ? down & both : bit;
    }
    return static_cast<std::uint8_t>(result);
}

}  // namespace

std::string Forwarder::key(const TerminalEvent &event) {
    // The release of a key does not say what it typed.
    if (event.kind == TerminalEvent::kRelease && event.key == characterKey_) {
        characterKey_ = 0;
        input().setKeyboard({held_, 0});
        return "";
    }
    const std::vector<Stroke> strokes = strokesOf(event, typist_);
    if (!strokes.empty())
        return typesCharacter(event) ? character(event, strokes) : command(event, strokes.front());
    if (event.character == 0) return "";
    return "cannot type " + codePointName(event.character) + ": " +
           typist_.reasonFor(event.character);
}

// Typed as the computer's layout has it, whatever modifiers the person's needs for it.
std::string Forwarder::character(const TerminalEvent &event, const std::vector<Stroke> &strokes) {
    if (event.kind == TerminalEvent::kRepeat) return "";  // the computer repeats a key that is down
    const auto &locks = endpoint_.status().locks;
    if (typist_.needsNumLock(event.character) && locks && !locks->num)
        return "this character needs Num Lock, which is off";
    if (event.kind == TerminalEvent::kPress && strokes.size() == 1) {
        characterKey_ = event.key;
        press(strokes.front());
        return "";
    }
    for (const Stroke &stroke : strokes)
        if (std::string why = tap(stroke); !why.empty()) return why;
    return "";
}

std::string Forwarder::command(const TerminalEvent &event, const Stroke &stroke) {
    if (event.kind == TerminalEvent::kTap) return tap(stroke);
    Stroke state = input().keyboard();
    if (stroke.usage >= kUsageLeftCtrl) {
        const auto bit = static_cast<std::uint8_t>(1 << (stroke.usage - kUsageLeftCtrl));
        const bool up = event.kind == TerminalEvent::kRelease;
        held_ = static_cast<std::uint8_t>(up ? held_ & ~bit : held_ | bit);
        state.modifiers =
            static_cast<std::uint8_t>(up ? state.modifiers & ~bit : state.modifiers | bit);
        input().setKeyboard(state);
        return "";
    }
    constexpr unsigned kRightKeys = 0xF0;  // such as AltGr, which the computer's layout asks for
    state.modifiers = static_cast<std::uint8_t>(reconciled(state.modifiers, stroke.modifiers) |
                                                (stroke.modifiers & kRightKeys));
    if (event.kind == TerminalEvent::kPress) {
        press({state.modifiers, stroke.usage});
        return "";
    }
    // A repeat is not sent: the computer repeats a key that is down.
    if (event.kind == TerminalEvent::kRelease && state.usage == stroke.usage) state.usage = 0;
    input().setKeyboard(state);
    return "";
}

void Forwarder::press(const Stroke &stroke) {
    input().press(stroke);
    for (const std::uint8_t usage : {kUsageCapsLock, kUsageNumLock, kUsageScrollLock})
        if (stroke.usage == usage) endpoint_.askLockKeys();
}

std::string Forwarder::tap(const Stroke &stroke) {
    constexpr std::size_t kMostWaiting = 2000;  // records
    if (input().waiting() > kMostWaiting) return "keys come faster than the endpoint takes them";
    press(stroke);
    input().setKeyboard({});
    return "";
}

void Forwarder::letGo() {
    input().releaseAll();
    mouseDown_ = 0;
    held_ = 0;
    characterKey_ = 0;
}

std::string Forwarder::mouse(const TerminalEvent &event, const PictureArea &area) {
    if (event.action == TerminalEvent::kUp) return event.button == mouseDown_ ? setButton(0) : "";
    const auto &link = endpoint_.status().link;
    if (!link || !area.holds(event.row, event.column)) return "";
    if (link->relative && asSoftware_) return "movements cannot be wrapped as software's";
    if (link->relative)
        moveBy(event, area, *link);
    else
        moveTo(event, area, *link);
    if (event.action == TerminalEvent::kWheel && event.button != 0)
        input().turnWheel(static_cast<std::int8_t>(event.button));
    return event.action == TerminalEvent::kDown ? setButton(event.button) : "";
}

// As the terminal counts: 1 left, 2 middle, 3 right. Others do not reach the computer.
std::string Forwarder::setButton(int button) {
    constexpr Button kButtons[] = {kNoButton, kLeft, kMiddle, kRight};
    if (button > 3) return "an endpoint knows three buttons";
    mouseDown_ = button;
    input().setButton(kButtons[button]);
    return "";
}

void Forwarder::moveTo(const TerminalEvent &event, const PictureArea &area, const Link &link) {
    const auto pixel = [](int cell, int cells, int pixels) {
        const double part = (cell + 0.5) / cells;
        return std::clamp(static_cast<int>(part * pixels), 0, std::max(0, pixels - 1));
    };
    const std::pair<int, int> to{pixel(event.column - area.column, area.columns, link.width),
                                 pixel(event.row - area.row, area.rows, link.height)};
    if (pointer_ == to) return;
    pointer_ = to;
    input().moveTo(static_cast<std::uint16_t>(to.first), static_cast<std::uint16_t>(to.second));
}

// A cell is as far as it would be on the picture.
void Forwarder::moveBy(const TerminalEvent &event, const PictureArea &area, const Link &link) {
    const auto cell = std::make_pair(event.column, event.row);
    const auto last = lastCell_.value_or(cell);
    lastCell_ = cell;
    pointer_.reset();
    const int dx = (cell.first - last.first) * std::max(1, link.width / area.columns);
    const int dy = (cell.second - last.second) * std::max(1, link.height / area.rows);
    if (dx != 0 || dy != 0) input().moveByDistance(dx, dy);
}

void Forwarder::forgetPointer() {
    pointer_.reset();
    lastCell_.reset();
}

std::string Forwarder::paste(const std::string &text) {
    std::string error;
    if (pasting()) return "a paste is still being typed";
    const auto typed = typist_.type(text, UnicodeInput::kRefuse, error);
    if (!typed) return error;
    const auto &locks = endpoint_.status().locks;
    if (typed->needsNumLock && locks && !locks->num)
        return "this text needs Num Lock, which is off";
    if (locks && locks->caps) return "Caps Lock is on, and would invert the letters of a text";
    paste_.assign(typed->states.begin(), typed->states.end());
    pasteTotal_ = paste_.size();
    return "";
}

bool Forwarder::feedPaste() {
    if (!pasting() || !input().idle()) return false;
    if (!endpoint_.status().reachable || endpoint_.testsUsb()) return false;  // the paste waits
    constexpr int kTimesBefore = 2;  // more would make a long text crawl
    input().setKeyboard(paste_.front(), kTimesBefore);
    paste_.pop_front();
    return true;
}

std::size_t Forwarder::pastedPercent() const {
    return pasteTotal_ == 0 ? 100 : 100 - 100 * paste_.size() / pasteTotal_;
}

}  // namespace quillon
