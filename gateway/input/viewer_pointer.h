// The pointer and the buttons of a viewer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "protocol/answers.h"
#include <quillon/healed_input.h>

namespace gateway {

/// Of several buttons the newest is the one that the computer has, because an endpoint passes one.
/// Functions that press return why the computer cannot have it, for a person; empty when it can.
class ViewerPointer {
  public:
    using Position = std::pair<unsigned, unsigned>;

    /// input must outlive this.
    explicit ViewerPointer(quillon::HealedInput &input) : input_(input) {}

    /// A position on a picture of this size, with the buttons as RFB has them. link: what the
    /// endpoint said; nothing is sent for a picture without a size.
    std::string place(std::uint8_t buttons, const Position &at, const Position &size,
                      const quillon::Link &link);
    /// A movement, in the chip's units.
    std::string moveBy(std::uint8_t buttons, int dx, int dy);
    /// Only the buttons, for a viewer that cannot say movements.
    std::string press(std::uint8_t buttons);

    /// Lets go what is not down any more.
    void release(std::uint8_t buttons) { press(static_cast<std::uint8_t>(buttons & before_)); }

    /// Where the pointer was sent, pixels of the picture; none where that is not known.
    const std::optional<Position> &position() const { return position_; }

    bool holding() const { return newest_ != 0; }
    /// What is down counts again only after its release.
    void letGo() { newest_ = 0; }
    /// Takes note of the buttons without sending them.
    void ignore(std::uint8_t buttons) { before_ = buttons; }

  private:
    quillon::HealedInput &input_;
    std::optional<Position> position_;
    std::uint8_t before_ = 0;  ///< the buttons that were down
    std::uint8_t newest_ = 0;  ///< the bit of the button that the computer has
};

}  // namespace gateway
