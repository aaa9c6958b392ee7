#include "cmd_ch9350.h"

#include <cstdint>

#include "records.h"
#include "state.h"

namespace {

void scaleInPlace(char *lowByte, unsigned range) {
    constexpr int kLargest = 1023;
    const auto pixel = static_cast<std::int16_t>(static_cast<unsigned char>(lowByte[0]) |
                                                 static_cast<unsigned char>(lowByte[1]) << 8);
    const auto product = static_cast<unsigned>(pixel * kLargest);
    const auto scaled = static_cast<std::uint16_t>(range == 0 ? 0 : product / range);
    const unsigned position = scaled > kLargest - 1 ? kLargest : scaled;
    lowByte[0] = static_cast<char>(position & 0xFF);
    lowByte[1] = static_cast<char>(position >> 8);
}

}  // namespace

void scaleForCh9350(char *record) {
    scaleInPlace(record + kAbsMouseX, sharedLoad(vi_w));
    scaleInPlace(record + kAbsMouseY, sharedLoad(vi_h));
}
