// Motorola S-record files. Every line is checked before anything of a file is sent.
#pragma once

#include <cstdint>
#include <string>

namespace flash {

/// What an S-record file programs.
struct Image {
    char kind = 0;         ///< I, O, L, 2 or 4, from the last data byte of the last S2 record
    unsigned records = 0;  ///< S2 records; only these are sent
    unsigned bytes = 0;
    std::uint32_t first = 0, last = 0;  ///< lowest and highest address
};

/// Reads the text of a whole file. Throws std::runtime_error with the reason, and the line number
/// if one line is wrong, for a damaged file (digits, byte counts, sums, addresses, a wrong number
/// of records, no termination at its end), for one with data records other than S2 or with none,
/// and for an unknown kind of board. Blank lines are ignored.
Image readImage(const std::string &text);

}  // namespace flash
