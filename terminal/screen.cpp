#include "terminal/screen.h"

#include <wchar.h>

#include <algorithm>
#include <cstdlib>

#include "terminal/printable.h"

namespace quillon {

void startColours() {
    if (!has_colors()) return;
    start_color();
    use_default_colors();
    init_pair(kGreen, COLOR_GREEN, -1);
    init_pair(kRed, COLOR_RED, -1);
    init_pair(kYellow, COLOR_YELLOW, -1);
}

void put(int row, int column, const std::string &text, attr_t attributes, Colour colour) {
    if (row < 0 || row >= LINES || column < 0 || column >= COLS) return;
    attr_set(attributes, colour, nullptr);
    mvaddnstr(row, column, printable(text).c_str(), COLS - column);
    attr_set(A_NORMAL, kNoColour, nullptr);
}

void putText(int row, int column, const std::string &utf8) {
    if (row < 0 || row >= LINES || column < 0 || column >= COLS) return;
    const std::string text = printableText(utf8);
    std::wstring wide(text.size(), L'\0');
    const std::size_t count = mbstowcs(wide.data(), text.c_str(), wide.size());
    if (count > wide.size()) return;
    // A character may take two cells.
    int shown = 0;
    for (int cells = 0; shown < static_cast<int>(count); ++shown) {
        cells += std::max(0, wcwidth(wide[static_cast<std::size_t>(shown)]));
        if (column + cells > COLS) break;
    }
    mvaddnwstr(row, column, wide.c_str(), shown);
}

void bar(int row, std::string text, Colour colour) {
    text.resize(static_cast<std::size_t>(std::max(COLS, 0)), ' ');
    put(row, 0, text, A_REVERSE, colour);
}

}  // namespace quillon
