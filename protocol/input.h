// Actions with keyboard and mouse, as datagrams.
#pragma once

#include <cstdint>
#include <vector>

#include "protocol/records.h"

namespace quillon {

using Datagram = std::vector<std::uint8_t>;

/// Appends the states that press and release a key, from the modifiers that are held; these become
/// the stroke's.
void appendStroke(std::vector<Stroke> &states, std::uint8_t &held, const Stroke &stroke);

/// Keyboard states, one after the other.
std::vector<Datagram> recordsOf(const std::vector<Stroke> &states);

/// The records that press a key with its modifiers, and let everything go.
std::vector<Datagram> strokeKey(const Stroke &stroke);

/// Moves by any distance, in steps that a record can hold, with a button down or none.
std::vector<Datagram> moveBy(int dx, int dy, Button button = kNoButton);

/// Moves there, presses the button and lets it go.
std::vector<Datagram> clickAt(std::uint16_t x, std::uint16_t y, Button button);

/// Turns the wheel by any number of notches, in steps that a record can hold.
std::vector<Datagram> wheelAt(std::uint16_t x, std::uint16_t y, int notches);

/// The record after which nothing of what this one pressed is down: all keys up, or the same
/// position, or no movement, without a button. The record has to be one of the three kinds.
Datagram released(const Datagram &record);

template <class Record>
Datagram datagram(const Record &record) {
    return Datagram(record.begin(), record.end());
}

}  // namespace quillon
