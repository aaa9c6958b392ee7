// Finding words of the gateway in what a viewer shows.
#pragma once

#include <algorithm>
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

}  // namespace test
