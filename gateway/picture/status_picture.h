// The picture of an endpoint without a source of pictures: what is known of it, in words.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "gateway/picture/image.h"
#include "gateway/picture/surface.h"

namespace gateway {

struct StatusLines {
    std::string title;               ///< the endpoint's name
    std::vector<std::string> lines;  ///< what is known, one subject each; eight at most
    std::string trouble;             ///< what a person has to know first; empty for nothing
};

/// One line of the picture, as wide as its words; texts may be foreign, and come as they are.
Image drawnLine(const std::string &line);
/// A box with lines in it, to lie over a picture; empty without lines. Texts may be foreign.
Image drawnBox(const std::vector<std::string> &lines, unsigned width);

class StatusPicture {
  public:
    /// Draws on a surface what has changed since the last time. Texts may be foreign.
    void draw(Surface &surface, const StatusLines &status);
    /// Draws the place that the pointer was sent to, pixels of the surface; none: takes it away.
    void point(Surface &surface, const std::optional<std::pair<unsigned, unsigned>> &at);
    /// There is another surface: everything is to be drawn again.
    void forget();

  private:
    void put(Surface &surface, unsigned y, const Image &line);
    void patch(Surface &surface, const std::pair<unsigned, unsigned> &at, bool pointer) const;

    StatusLines shown_;
    Image panel_;
    std::optional<std::pair<unsigned, unsigned>> pointer_;
};

}  // namespace gateway
