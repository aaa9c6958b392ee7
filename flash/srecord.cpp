#include "srecord.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace flash {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kAddressEnd = 4;  // of an S2 record: its count and three bytes of address

void require(bool ok, const std::string &reason) {
    if (!ok) throw std::runtime_error(reason);
}

Bytes bytesOf(const std::string &digits) {
    require(
        std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return isxdigit(c) != 0; }),
        "something else than hexadecimal digits");
    require(digits.size() % 2 == 0, "half a byte at the end");
    Bytes bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

// Count, address, data and sum of one line.
Bytes checkRecord(const std::string &line) {
    require(line.size() >= 2 && line[0] == 'S' && isdigit(static_cast<unsigned char>(line[1])) != 0,
            "no S-record");
    require(line[1] != '1' && line[1] != '3' && line[1] != '4',
            "an S" + line.substr(1, 1) + " record, which is never sent; only S2 records are");
    const Bytes bytes = bytesOf(line.substr(2));
    require(!bytes.empty() && bytes.size() == bytes[0] + std::size_t{1},
            "its byte count does not fit its length");
    require((std::accumulate(bytes.begin(), bytes.end(), 0U) & 0xFF) == 0xFF, "its sum is wrong");
    require(line[1] != '2' || bytes.size() > kAddressEnd + 1, "an S2 record without data");
    return bytes;
}

void add(Image &image, const Bytes &record) {
    const auto address = static_cast<std::uint32_t>(record[1]) << 16 |
                         static_cast<std::uint32_t>(record[2]) << 8 | record[3];
    const auto count = static_cast<std::uint32_t>(record.size() - kAddressEnd - 1);
    image.first = image.records == 0 ? address : std::min(image.first, address);
    image.last = std::max(image.last, address + count - 1);
    image.bytes += count;
    ++image.records;
}

}  // namespace

Image readImage(const std::string &text) {
    constexpr char kKinds[] = "IOL24";
    Image image;
    std::size_t number = 0, lastNumber = 0;
    std::uint8_t kind = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty()) continue;
        try {
            const Bytes record = checkRecord(line);
            if (line[1] != '2') continue;
            add(image, record);
            kind = record[record.size() - 2];
            lastNumber = number;
        } catch (const std::runtime_error &error) {
            throw std::runtime_error("line " + std::to_string(number) + ": " + error.what());
        }
    }
    require(image.records != 0, "no S2 record in it");
    require(kind < sizeof kKinds - 1,
            "line " + std::to_string(lastNumber) + ": its last byte names no kind of board");
    image.kind = kKinds[kind];
    return image;
}

}  // namespace flash
