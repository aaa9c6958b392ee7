// Finding words of the gateway in what a viewer shows.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <string>

#include "gateway/picture/status_picture.h"

namespace test {

/// Whether an image has these words in it, pixel for pixel as the gateway draws a line.
inline bool showsLine(const gateway::Image &image, const std::string &line) {
    const gateway::Image words = gateway::drawnLine(line);
    // The pixel that is least likely to be found where the words are not.
    const auto brightest = static_cast<std::size_t>(
        std::max_element(words.pixels.begin(), words.pixels.end()) - words.pixels.begin());
    const auto ax = static_cast<unsigned>(brightest % words.width);
    const auto ay = static_cast<unsigned>(brightest / words.width);
    const auto at = [&](unsigned x, unsigned y) {
        return image.pixels.data() + std::size_t{y} * image.width + x;
    };
    const auto same = [&](unsigned x, unsigned y) {
        for (unsigned row = 0; row < words.height; ++row)
            if (!std::equal(words.all().row(row), words.all().row(row) + words.width,
                            at(x, y + row)))
                return false;
        return true;
    };
    for (unsigned y = 0; y + words.height <= image.height; ++y)
        for (unsigned x = 0; x + words.width <= image.width; ++x)
            if (*at(x + ax, y + ay) == words.pixels[brightest] && same(x, y)) return true;
    return false;
}

/// Whether an image has this picture somewhere in it. Of its pixels one in 200 may be another one
/// (a cursor that blinks), and each colour as far off as a JPEG makes it.
inline bool showsPicture(const gateway::Image &image, const gateway::Image &picture,
                         int tolerance = 24) {
    if (picture.width == 0 || picture.width > image.width || picture.height > image.height)
        return false;
    const auto alike = [&](gateway::Pixel a, gateway::Pixel b) {
        for (const unsigned shift : {0U, 8U, 16U})
            if (std::abs(static_cast<int>(a >> shift & 0xFFU) -
                         static_cast<int>(b >> shift & 0xFFU)) > tolerance)
                return false;
        return true;
    };
    const std::size_t most = picture.pixels.size() / 200;
    const auto same = [&](unsigned left, unsigned top) {
        std::size_t others = 0;
        for (unsigned y = 0; y < picture.height; ++y)
            for (unsigned x = 0; x < picture.width; ++x) {
                const gateway::Pixel pixel = image.all().row(top + y)[left + x];
                if (!alike(pixel, picture.all().row(y)[x]) && ++others > most) return false;
            }
        return true;
    };
    for (unsigned y = 0; y + picture.height <= image.height; ++y)
        for (unsigned x = 0; x + picture.width <= image.width; ++x)
            if (same(x, y)) return true;
    return false;
}

}  // namespace test
