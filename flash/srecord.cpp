#include "flash/srecord.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "myupdata.h"

namespace flash {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kLastAddress = 0xFFFFFF;
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

// Checks one line; returns its count, address, data and checksum.
Bytes checkRecord(const std::string &line) {
    require(line.size() >= 2 && line[0] == 'S' && isdigit(static_cast<unsigned char>(line[1])) != 0,
            "no S-record");
    require(line[1] != '1' && line[1] != '3' && line[1] != '4',
            "an S" + line.substr(1, 1) + " record, which is never sent; only S2 records are");
    Bytes bytes = bytesOf(line.substr(2));
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
    require(address + count - 1 <= kLastAddress, "its data pass the last address");
    image.first = image.records == 0 ? address : std::min(image.first, address);
    image.last = std::max(image.last, address + count - 1);
    image.bytes += count;
    ++image.records;
}

// Builds an image, line by line.
class Reader {
  public:
    void take(const std::string &line) {
        require(!terminated_, "a record behind the termination");
        const Bytes record = checkRecord(line);
        if (line[1] == '2') {
            add(image_, record);
            kind_ = record[record.size() - 2];
        } else if (line[1] == '5' || line[1] == '6') {
            unsigned count = 0;
            for (std::size_t i = 1; i + 1 < record.size(); ++i) count = count << 8 | record[i];
            require(count == image_.records,
                    "it counts other than " + std::to_string(image_.records) + " records");
        } else if (line[1] != '0') {
            terminated_ = true;
        }
    }

    Image end() {
        require(image_.records != 0, "no S2 record in it");
        require(terminated_, "no termination record (S7, S8 or S9) at its end: it may be cut off");
        require(kind_ < sizeof kBoardKinds - 1, "its last byte of data names no kind of board");
        image_.kind = kBoardKinds[kind_];
        return image_;
    }

  private:
    Image image_;
    std::uint8_t kind_ = 0;
    bool terminated_ = false;
};

}  // namespace

Image readImage(const std::string &text) {
    Reader reader;
    std::size_t number = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty()) continue;
        try {
            reader.take(line);
        } catch (const std::runtime_error &error) {
            throw std::runtime_error("line " + std::to_string(number) + ": " + error.what());
        }
    }
    return reader.end();
}

}  // namespace flash
