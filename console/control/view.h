// What a person in control sees.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quillon {

/// Where the picture is drawn, inside its frame; cells.
struct PictureArea {
    int row = 0, column = 0, rows = 0, columns = 0;
    bool holds(int atRow, int atColumn) const {
        return atRow >= row && atRow < row + rows && atColumn >= column &&
               atColumn < column + columns;
    }
};

struct ControlView {
    std::string title;         ///< the endpoint and the escape key
    bool lost = false;         ///< nothing comes from the endpoint
    std::string inThePicture;  ///< what the area is for
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

/// The area of the picture on a screen of that size.
PictureArea pictureArea();

/// Needs a Terminal.
void draw(const ControlView &view);
/// Calls the person.
void ring();

}  // namespace quillon
