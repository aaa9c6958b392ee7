// Pixels of their own.
#pragma once

#include <vector>

#include "gateway/rfb/pixel_format.h"

namespace gateway {

using rfb::Pixel;
using rfb::Pixels;

struct Image {
    unsigned width = 0, height = 0;
    std::vector<Pixel> pixels;

    Pixels all() const { return {pixels.data(), width, width, height}; }
};

}  // namespace gateway
