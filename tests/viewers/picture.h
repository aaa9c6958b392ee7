// Finding words of the gateway, and pictures, in what a viewer shows.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <string>

#include "gateway/picture/status_picture.h"

namespace test {

/// How far a picture may be from what is wanted: colours from each other, and other pixels.
struct Tolerance {
    int colour;
    std::size_t pixels;
};
/// A cursor that blinks.
constexpr Tolerance kText{0, 150};

/// Whether an image has this picture at a place.
inline bool hasPicture(const gateway::Image &image, const gateway::Image &picture, unsigned left,
                       unsigned top, Tolerance tolerance) {
    if (left + picture.width > image.width || top + picture.height > image.height) return false;
    const auto alike = [&](gateway::Pixel a, gateway::Pixel b) {
        for (const unsigned shift : {0U, 8U, 16U})
            if (std::abs(static_cast<int>(a >> shift & 0xFFU) -
                         static_cast<int>(b >> shift & 0xFFU)) > tolerance.colour)
                return false;
        return true;
    };
    std::size_t others = 0;
    // First in great steps, which finds most of what is another picture soon.
    for (const unsigned step : {17U, 1U})
        for (unsigned y = 0; y < picture.height; y += step)
            for (unsigned x = 0; x < picture.width; x += step)
                if (!alike(image.all().row(top + y)[left + x], picture.all().row(y)[x]) &&
                    ++others > tolerance.pixels * 2)
                    return false;
    return others <= tolerance.pixels;
}

/// Whether it has it anywhere, beginning with the brightest pixel.
inline bool showsPicture(const gateway::Image &image, const gateway::Image &picture,
                         Tolerance tolerance = kText) {
    if (picture.width == 0 || picture.width > image.width || picture.height > image.height)
        return false;
    const auto brightest = static_cast<std::size_t>(
        std::max_element(picture.pixels.begin(), picture.pixels.end()) - picture.pixels.begin());
    const auto ax = static_cast<unsigned>(brightest % picture.width);
    const auto ay = static_cast<unsigned>(brightest / picture.width);
    const auto near = [&](gateway::Pixel pixel) {
        return std::abs(static_cast<int>(pixel >> 16U) -
                        static_cast<int>(picture.pixels[brightest] >> 16U)) <= tolerance.colour;
    };
    for (unsigned y = 0; y + picture.height <= image.height; ++y)
        for (unsigned x = 0; x + picture.width <= image.width; ++x)
            if (near(image.all().row(y + ay)[x + ax]) &&
                hasPicture(image, picture, x, y, tolerance))
                return true;
    return false;
}

/// Whether an image has these words in it, pixel for pixel as the gateway draws a line.
inline bool showsLine(const gateway::Image &image, const std::string &line) {
    return showsPicture(image, gateway::drawnLine(line), {0, 0});
}

}  // namespace test
