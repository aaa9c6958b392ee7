// The CH9350's bytes: the chip takes console records as they are, except for scaled positions, and
// answers a request with a status frame. Its frames have neither length nor checksum.
#pragma once

/// Asks for a status frame.
constexpr char kStatusRequest[] = {0x57, '\xAB', '\x80', 0x40};

/// A status frame: 57 AB, 12, and eight bytes, of which the fifth holds the lock LEDs.
constexpr int kStatusHead = 2 + 1, kStatusSize = kStatusHead + 8, kStatusLedsAt = kStatusHead + 4;
constexpr unsigned char kStatusNum = 0x01, kStatusCaps = 0x02;

/// Switches the chip to relative mouse mode.
constexpr char kRelativeMode[] = {0x57, '\xAB', 0x40, 0x02};

/// Scales the pixel position in an absolute mouse record to 0..1023, in place. Pixels are signed,
/// and the low 16 bits of the unsigned quotient are kept. Deliberate: a position left of or above
/// the picture becomes an arbitrary position on it.
void scaleForCh9350(char *record);
