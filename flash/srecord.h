// Motorola S-record files, checked line by line before anything of one is sent.
#pragma once

#include <cstdint>
#include <string>

namespace flash {

/// What an S-record file programs.
struct Image {
    char kind = 0;  ///< of its boards: I, O, L, 2 or 4, told by the last byte of the last S2 record
    unsigned records = 0;  ///< S2 records, which are what is sent
    unsigned bytes = 0;
    std::uint32_t first = 0, last = 0;  ///< lowest and highest address
};

/// Reads a whole file's text. Throws std::runtime_error, with the line's number and the reason,
/// for one that is damaged (digits, byte counts, sums, addresses, a wrong number of records, no
/// termination at its end), has data records of another kind than S2 or none, or is for no known
/// kind of board. Blank lines are passed over.
Image readImage(const std::string &text);

}  // namespace flash
