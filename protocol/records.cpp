#include "protocol/records.h"

namespace quillon {

KeyboardRecord keyboardRecord(const Stroke &down) {
    return {0x57, 0xAB, 0x01, down.modifiers, 0, down.usage};
}

AbsoluteRecord absoluteRecord(std::uint16_t x, std::uint16_t y, Button button, std::int8_t wheel) {
    return {0x57,
            0xAB,
            0x04,
            0x01,
            button,
            static_cast<std::uint8_t>(x & 0xFF),
            static_cast<std::uint8_t>(x >> 8),
            static_cast<std::uint8_t>(y & 0xFF),
            static_cast<std::uint8_t>(y >> 8),
            static_cast<std::uint8_t>(wheel)};
}

RelativeRecord relativeRecord(std::int8_t dx, std::int8_t dy, Button button, std::int8_t wheel) {
    return {0x57,
            0xAB,
            0x02,
            button,
            static_cast<std::uint8_t>(dx),
            static_cast<std::uint8_t>(dy),
            static_cast<std::uint8_t>(wheel)};
}

}  // namespace quillon
