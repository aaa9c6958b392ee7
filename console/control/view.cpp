#include "console/control/view.h"

#include <curses.h>

#include <algorithm>
#include <cmath>

#include "terminal/printable.h"

namespace quillon {
namespace {

constexpr int kGreen = 1, kRed = 2, kYellow = 3;  // pairs of the Terminal
constexpr int kStatusLines = 4;

// One line, cut at the width of the screen. All that is shown, also what others wrote, passes here
// or through its like below.
void line(int row, const std::string &text, attr_t attributes = A_NORMAL, int pair = 0) {
    attr_set(attributes, static_cast<short>(pair), nullptr);
    mvaddnstr(row, 0, printable(text).c_str(), COLS);
    attr_set(A_NORMAL, 0, nullptr);
}

void bar(int row, const std::string &text, int pair) {
    std::string filled = text;
    filled.resize(static_cast<std::size_t>(std::max(COLS, 0)), ' ');
    line(row, filled, A_REVERSE, pair);
}

void centered(const PictureArea &area, int row, const std::string &text, attr_t attributes) {
    if (row < area.row || row >= area.row + area.rows) return;
    const std::string cut = text.substr(0, static_cast<std::size_t>(std::max(area.columns, 0)));
    attr_set(attributes, 0, nullptr);
    mvaddstr(row, area.column + (area.columns - static_cast<int>(cut.size())) / 2,
             printable(cut).c_str());
    attr_set(A_NORMAL, 0, nullptr);
}

void frame(const PictureArea &area) {
    const int top = area.row - 1, left = area.column - 1;
    const int bottom = area.row + area.rows, right = area.column + area.columns;
    mvhline(top, left, 0, right - left);
    mvhline(bottom, left, 0, right - left);
    mvvline(top, left, 0, bottom - top);
    mvvline(top, right, 0, bottom - top);
    mvaddch(top, left, ACS_ULCORNER);
    mvaddch(top, right, ACS_URCORNER);
    mvaddch(bottom, left, ACS_LLCORNER);
    mvaddch(bottom, right, ACS_LRCORNER);
}

void drawPicture(const ControlView &view) {
    const PictureArea area = pictureArea();
    if (area.rows <= 0 || area.columns <= 0) return;
    frame(area);
    centered(area, area.row + area.rows / 2, view.inThePicture, A_DIM);
    if (view.lost)
        centered(area, area.row + area.rows / 2 - 1, " THE ENDPOINT IS LOST ", A_REVERSE);
    if (!view.pointerX || !view.pointerY) return;
    const auto cell = [](double part, int cells) {
        return std::clamp(static_cast<int>(std::lround(part * cells - 0.5)), 0, cells - 1);
    };
    mvaddch(area.row + cell(*view.pointerY, area.rows),
            area.column + cell(*view.pointerX, area.columns), '+' | A_BOLD);
}

void drawMenu(const std::vector<std::string> &lines) {
    std::size_t width = 0;
    for (const std::string &text : lines) width = std::max(width, text.size());
    const int left = std::max(0, (COLS - static_cast<int>(width) - 2) / 2);
    int row = 1;
    for (const std::string &text : lines) {
        if (row >= LINES - 1) return;
        std::string padded = " " + text;
        padded.resize(width + 2, ' ');
        attr_set(A_REVERSE, 0, nullptr);
        mvaddnstr(row++, left, printable(padded).c_str(), COLS - left);
        attr_set(A_NORMAL, 0, nullptr);
    }
}

}  // namespace

PictureArea pictureArea() {
    return {2, 1, LINES - kStatusLines - 3, COLS - 2};
}

void draw(const ControlView &view) {
    erase();
    drawPicture(view);
    bar(0, view.title, view.lost ? kRed : 0);
    const int status = LINES - kStatusLines;
    const int pair = view.standing == ControlView::kMine      ? kGreen
                     : view.standing == ControlView::kForeign ? kYellow
                                                              : 0;
    line(status, view.who, A_BOLD, pair);
    line(status + 1, view.devices);
    line(status + 2, view.news);
    line(status + 3, view.refused, A_NORMAL, kRed);
    if (!view.menu.empty()) drawMenu(view.menu);
    curs_set(view.prompt.empty() ? 0 : 1);
    if (!view.prompt.empty()) {
        bar(LINES - 1, "", 0);
        const std::size_t room =
            static_cast<std::size_t>(std::max(0, COLS - 2 - static_cast<int>(view.prompt.size())));
        const std::string shown =
            view.input.size() <= room ? view.input : view.input.substr(view.input.size() - room);
        line(LINES - 1, view.prompt + " " + shown, A_REVERSE);
    }
    refresh();
}

void ring() {
    beep();
}

}  // namespace quillon
