#include "console/control/view.h"

#include <curses.h>

#include <algorithm>
#include <cmath>

#include "terminal/screen.h"

namespace quillon {
namespace {

constexpr int kStatusLines = 4;

void centered(const PictureArea &area, int row, const std::string &text, attr_t attributes) {
    if (row < area.row || row >= area.row + area.rows) return;
    const std::string cut = text.substr(0, static_cast<std::size_t>(std::max(area.columns, 0)));
    put(row, area.column + (area.columns - static_cast<int>(cut.size())) / 2, cut, attributes);
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
        put(row++, left, padded, A_REVERSE);
    }
}

}  // namespace

PictureArea pictureArea() {
    return {2, 1, LINES - kStatusLines - 3, COLS - 2};
}

void draw(const ControlView &view) {
    erase();
    drawPicture(view);
    bar(0, view.title, view.lost ? kRed : kNoColour);
    const int status = LINES - kStatusLines;
    const Colour colour = view.standing == ControlView::kMine      ? kGreen
                          : view.standing == ControlView::kForeign ? kYellow
                                                                   : kNoColour;
    put(status, 0, view.who, A_BOLD, colour);
    put(status + 1, 0, view.devices);
    put(status + 2, 0, view.news);
    put(status + 3, 0, view.refused, A_NORMAL, kRed);
    if (!view.menu.empty()) drawMenu(view.menu);
    curs_set(view.prompt.empty() ? 0 : 1);
    if (!view.prompt.empty()) {
        bar(LINES - 1, "");
        const std::size_t room =
            static_cast<std::size_t>(std::max(0, COLS - 2 - static_cast<int>(view.prompt.size())));
        const std::string shown =
            view.input.size() <= room ? view.input : view.input.substr(view.input.size() - room);
        put(LINES - 1, 0, view.prompt + " " + shown, A_REVERSE);
    }
    refresh();
}

void ring() {
    beep();
}

}  // namespace quillon
