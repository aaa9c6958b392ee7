#include "sim/chips/frames.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "protocol/keys.h"
#include "sim/computer/computer.h"

namespace sim {
namespace {

constexpr std::size_t kHeadSize = 5, kLargestData = 64;  // of a CH9329 frame
constexpr std::uint8_t kGoodAnswer = 0x80, kBadAnswer = 0xC0;

struct Raw {
    std::uint8_t code;
    std::size_t size;
};
constexpr Raw kRawFrames[] = {{0x01, 11}, {0x02, 7}, {0x04, 10}, {0x12, 11}, {0x40, 4}, {0x80, 4}};

struct Named {
    std::uint8_t code;
    const char *name;
};
constexpr Named kCommands[] = {
    {0x01, "information"},      {0x02, "keyboard"},         {0x03, "media keys"},
    {0x04, "position"},         {0x05, "movement"},         {0x06, "custom HID data"},
    {0x08, "parameters"},       {0x09, "write parameters"}, {0x0A, "USB string"},
    {0x0B, "write USB string"}, {0x0C, "factory settings"}, {0x0F, "reset"}};
constexpr Named kStatuses[] = {{0xE1, "a byte came late"}, {0xE2, "bad head"},
                               {0xE3, "unknown command"},  {0xE4, "wrong sum"},
                               {0xE5, "bad parameter"},    {0xE6, "failed"}};

template <std::size_t N>
std::string nameIn(const Named (&table)[N], std::uint8_t code) {
    for (const Named &named : table)
        if (named.code == code) return named.name;
    char text[16];
    snprintf(text, sizeof text, "0x%02x", code);
    return text;
}

std::string keys(const std::uint8_t *report) {
    std::string words = quillon::modifierNames(report[0]);
    for (int i = 2; i < 8; ++i)
        if (report[i] != 0) words += (words.empty() ? "" : "+") + quillon::keyName(report[i]);
    return words.empty() ? "all keys up" : words;
}

std::string mouse(std::uint8_t buttons, std::uint8_t wheel, const std::string &where) {
    std::string words = where;
    const std::string down = std::string((buttons & 1) != 0 ? " left" : "") +
                             ((buttons & 2) != 0 ? " right" : "") +
                             ((buttons & 4) != 0 ? " middle" : "");
    if (!down.empty()) words += "," + down + " down";
    if (wheel != 0) words += ", wheel " + std::to_string(static_cast<std::int8_t>(wheel));
    return words;
}

std::string position(const std::uint8_t *data) {
    return mouse(data[0], data[5],
                 "pointer at " + std::to_string(data[1] | data[2] << 8) + "," +
                     std::to_string(data[3] | data[4] << 8));
}

std::string movement(const std::uint8_t *data) {
    return mouse(data[0], data[3],
                 "pointer by " + std::to_string(static_cast<std::int8_t>(data[1])) + "," +
                     std::to_string(static_cast<std::int8_t>(data[2])));
}

std::string leds(std::uint8_t bits) {
    return std::string("num ") + ((bits & kNumLed) != 0 ? "on" : "off") + ", caps " +
           ((bits & kCapsLed) != 0 ? "on" : "off") + ", scroll " +
           ((bits & kScrollLed) != 0 ? "on" : "off");
}

std::string answer(std::uint8_t command, const std::uint8_t *data, std::size_t size) {
    if (command == 0x01 && size >= 3)
        return std::string(data[1] != 0 ? "computer attached, " : "no computer, ") + leds(data[2]);
    const std::string name = nameIn(kCommands, command);
    if (command == 0x08 && size >= 7)
        return name + ": " +
               std::to_string(static_cast<unsigned>(data[3]) << 24 | data[4] << 16 | data[5] << 8 |
                              data[6]) +
               " baud";
    if (size != 1) return name + " answered";
    return data[0] == 0 ? name + " done" : name + ": " + nameIn(kStatuses, data[0]);
}

std::string ch9329Words(const Bytes &frame) {
    const std::uint8_t code = frame[3];
    const std::uint8_t *data = frame.data() + kHeadSize;
    const std::size_t size = frame[4];
    if (code >= kBadAnswer)
        return "refused: " + answer(static_cast<std::uint8_t>(code - kBadAnswer), data, size);
    if (code >= kGoodAnswer)
        return answer(static_cast<std::uint8_t>(code - kGoodAnswer), data, size);
    if (code == 0x02 && size == 8) return "keyboard: " + keys(data);
    if (code == 0x04 && size == 7) return position(data + 1);
    if (code == 0x05 && size == 5) return movement(data + 1);
    return nameIn(kCommands, code) + "?";
}

std::string ch9350Words(const Bytes &frame) {
    const std::uint8_t *data = frame.data() + 3;
    switch (frame[2]) {
        case 0x01:
            return "keyboard: " + keys(data);
        case 0x02:
            return movement(data);
        case 0x04:
            return position(data + 1);
        case 0x12:
            return (frame[8] == 0x07 ? "computer attached, " : "no computer, ") + leds(data[4]);
        case 0x40:
            return data[0] == 2 ? "relative mouse" : "absolute mouse";
        default:
            return "lock LEDs?";
    }
}

}  // namespace

std::size_t ch9350FrameSize(std::uint8_t code) {
    for (const Raw &raw : kRawFrames)
        if (raw.code == code) return raw.size;
    return 0;
}

// Size of the frame, or of the other bytes, that pending_ begins with; 0 while bytes are missing.
std::size_t FrameSplitter::completeSize() const {
    const auto begins = [&](std::size_t at) {
        return pending_[at] == 0x57 && (at + 1 == pending_.size() || pending_[at + 1] == 0xAB);
    };
    std::size_t size = 1;
    if (begins(0)) {
        if (pending_.size() < 3) return 0;
        size = ch9350FrameSize(pending_[2]);
        if (pending_[2] == 0) {
            if (pending_.size() < kHeadSize) return 0;
            size = pending_[4] <= kLargestData ? kHeadSize + pending_[4] + 1 : 0;
        }
        if (size != 0) return pending_.size() < size ? 0 : size;
        size = 2;
    }
    while (size < pending_.size() && !begins(size)) ++size;
    return size;
}

std::vector<Bytes> FrameSplitter::take(const Bytes &bytes) {
    std::vector<Bytes> frames;
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
    for (std::size_t size; !pending_.empty() && (size = completeSize()) != 0;) {
        const auto end = pending_.begin() + static_cast<long>(size);
        frames.emplace_back(pending_.begin(), end);
        pending_.erase(pending_.begin(), end);
    }
    return frames;
}

std::string inWords(const Bytes &frame) {
    if (frame.size() > kHeadSize && frame[0] == 0x57 && frame[1] == 0xAB && frame[2] == 0 &&
        frame.size() == kHeadSize + frame[4] + 1U)
        return ch9329Words(frame);
    if (frame.size() > 3 && frame[0] == 0x57 && frame[1] == 0xAB &&
        frame.size() == ch9350FrameSize(frame[2]))
        return ch9350Words(frame);
    if (std::all_of(frame.begin(), frame.end(), [](std::uint8_t byte) { return byte == 0; }))
        return "filler";  // the daemon sends two zeroes after a movement
    const bool text = std::all_of(frame.begin(), frame.end(),
                                  [](std::uint8_t c) { return isprint(c) || isspace(c); });
    if (!text) return "bytes outside of frames";
    std::string words(frame.begin(), frame.end());
    std::replace_if(
        words.begin(), words.end(), [](unsigned char c) { return isspace(c) != 0; }, ' ');
    return "text: " + words;
}

std::string inHex(const Bytes &bytes, std::size_t most) {
    std::string text;
    for (std::size_t i = 0; i < std::min(bytes.size(), most); ++i) {
        char byte[8];
        snprintf(byte, sizeof byte, i == 0 ? "%02x" : " %02x", bytes[i]);
        text += byte;
    }
    return text + (bytes.size() > most ? " .." : "");
}

}  // namespace sim
