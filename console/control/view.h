// The screen of "quillon-console control".
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quillon {

/// The cells inside the frame for the picture.
struct PictureArea {
    int row = 0, column = 0, rows = 0, columns = 0;
    bool holds(int atRow, int atColumn) const {
        return atRow >= row && atRow < row + rows && atColumn >= column &&
               atColumn < column + columns;
    }
};

struct ControlView {
    std::string title;         ///< the endpoint and the escape key
    bool lost = false;         ///< the endpoint does not answer
    std::string inThePicture;  ///< what the mouse does there
    /// Where the pointer was sent, as parts of the picture from 0 to 1; none in relative mode.
    std::optional<double> pointerX, pointerY;
    enum Standing { kPlain, kMine, kForeign } standing = kPlain;
    std::string who;                ///< endpoint, holder, level, outputs, round-trip time
    std::string devices;            ///< mouse mode, lock keys, keys that are down
    std::string news;               ///< what happened last
    std::string refused;            ///< what was refused last
    std::vector<std::string> menu;  ///< its lines, empty when it is closed
    std::string prompt, input;      ///< a question for a line of text; empty for none
};

/// The area of the picture on the present screen.
PictureArea pictureArea();

/// Needs a Terminal.
void draw(const ControlView &view);
/// Rings the bell of the terminal.
void ring();

}  // namespace quillon
