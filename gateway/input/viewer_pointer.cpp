#include "gateway/input/viewer_pointer.h"

#include <algorithm>

namespace gateway {
namespace {

// Bits of RFB's mask. The chip has one wheel, which the buttons 6 and 7 (to the left and to the
// right) turn too.
constexpr struct {
    std::uint8_t bit;
    quillon::Button button;
} kButtons[] = {{0x01, quillon::kLeft}, {0x02, quillon::kMiddle}, {0x04, quillon::kRight}};
constexpr std::uint8_t kWheelAway = 0x08 | 0x20, kWheelTowards = 0x10 | 0x40;
constexpr std::size_t kMostWaiting = 200;  // records; 1.6 s, at one in 8 ms

std::uint16_t scaled(unsigned at, unsigned size, int target) {
    constexpr std::uint64_t kMost = 0xFFFF;
    const auto pixels = static_cast<std::uint64_t>(std::max(target, 1));
    const std::uint64_t pixel = at * pixels / std::max(size, 1U);
    return static_cast<std::uint16_t>(std::min({pixel, pixels - 1, kMost}));
}

}  // namespace

std::string ViewerPointer::place(std::uint8_t buttons, const Position &at, const Position &size,
                                 const quillon::Link &link) {
    if (link.width <= 0 || link.height <= 0) {
        release(buttons);
        return "";
    }
    const Position inside{std::min(at.first, size.first - 1), std::min(at.second, size.second - 1)};
    if (position_ != inside) {
        position_ = inside;
        input_.moveTo(scaled(inside.first, size.first, link.width),
                      scaled(inside.second, size.second, link.height));
    }
    return press(buttons);
}

std::string ViewerPointer::moveBy(std::uint8_t buttons, int dx, int dy) {
    position_.reset();
    if (dx != 0 || dy != 0) input_.moveByDistance(dx, dy);
    return press(buttons);
}

std::string ViewerPointer::press(std::uint8_t buttons) {
    const auto pressed = static_cast<std::uint8_t>(buttons & ~before_);
    before_ = buttons;
    if (newest_ != 0 && (buttons & newest_) == 0) {
        newest_ = 0;
        input_.setButton(quillon::kNoButton);
    }
    if (pressed == 0) return "";
    if (input_.waiting() > kMostWaiting) return "buttons come faster than the endpoint takes them";
    for (const auto &row : kButtons)
        if ((pressed & row.bit) != 0) {
            newest_ = row.bit;
            input_.setButton(row.button);
        }
    if ((pressed & kWheelAway) != 0) input_.turnWheel(1);
    if ((pressed & kWheelTowards) != 0) input_.turnWheel(-1);
    return "";
}

}  // namespace gateway
