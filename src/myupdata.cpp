#include "myupdata.h"

#include <chrono>
#include <cstdlib>
#include <cstring>

#include "common/common.h"
#include "myserial.h"
#include "software_config.h"

namespace {

constexpr char kAccepted[] = "(OK)";
constexpr std::size_t kReadSize = 64;

void write(const std::string &command) {
    MySerial::nwrite(command.data(), static_cast<int>(command.size()));
}

bool isS2(const std::string &line) {
    return line.size() >= 2 && line[1] == '2';
}

// One read, which waits up to 60 ms; negative when it failed.
int readMore(std::string &answer) {
    char piece[kReadSize];
    const int count = MySerial::nread(piece, kReadSize, 0);
    if (count > 0) answer.append(piece, static_cast<std::size_t>(count));
    return count;
}

bool isWhole(const std::string &answer) {
    return !answer.empty() && answer.front() == '(' && answer.back() == ')';
}

// The answer to a record, which may come in pieces. Gives up after 10 s of silence or 1024 bytes,
// so that a faulty device cannot block the upload.
std::string readAnswer() {
    constexpr std::chrono::seconds kPatience(10);
    constexpr std::size_t kMostBytes = 1024;
    using Clock = std::chrono::steady_clock;
    std::string answer;
    auto heard = Clock::now();
    for (;;) {
        const int count = readMore(answer);
        if (count < 0 || isWhole(answer) || answer.size() >= kMostBytes) return answer;
        if (count > 0) heard = Clock::now();
        if (Clock::now() - heard >= kPatience) return answer;
    }
}

}  // namespace

bool MyUpdata::FileCheckOut() {
    const auto named = [&](const char *part) { return strstr(filename_, part) != nullptr; };
    if (named(".mot") || named(".Mot")) return readLines() && findKind();
    if (named(".bin")) {
        logAt("FileCheckOut", 56,
              "The .bin file is not supported for the time being. For this system, the .bin file "
              "is EDID file.");
    } else if (named(".rar")) {
        // Deliberate: uploading one is how the device is restarted.
        [[maybe_unused]] const int status = system("reboot");
    } else {
        logAt("FileCheckOut", 64, "The input file is not in the .mot or .bin or .rar format");
    }
    return false;
}

bool MyUpdata::readLines() {
    vlines_.clear();
    if (line_read(filename_).read_all(vlines_)) return true;
    logAt("FileCheckOut", 14, "The input file is empty or non-existent");
    return false;
}

bool MyUpdata::findKind() {
    constexpr std::size_t kKindAt = 4;  // from the end: two digits of the kind, two of the checksum
    for (auto line = vlines_.rbegin(); line != vlines_.rend(); ++line) {
        if (!isS2(*line)) continue;
        if (line->size() < kKindAt) return false;
        const char *kind = line->c_str() + line->size() - kKindAt;
        if (kind[0] != '0' || kind[1] < '0' || kind[1] > '4') return false;
        type_ = kBoardKinds[kind[1] - '0'];
        return true;
    }
    return false;
}

// Deliberate: the command that erases "B" names no board, as for "L", but those with records do.
std::string MyUpdata::eraseCommand(unsigned index) const {
    const std::string board = type_ == 'L' || type_ == 'B' ? "" : std::to_string(index);
    return std::string("(ER") + type_ + board + ")";
}

std::string MyUpdata::recordCommand(unsigned index, const std::string &record) const {
    const std::string board = type_ == 'L' ? "" : std::to_string(index);
    return std::string("(UD") + type_ + board + "|" + record + ")";
}

bool MyUpdata::UploadMotFile(unsigned int index) {
    const std::string erase = eraseCommand(index);
    logAt("UploadMotFile", 84, "earse: %s", erase.c_str());
    // A late answer for an earlier board must not count for this one.
    MySerial::discardInput();
    write(erase);
    std::string answer;
    readMore(answer);
    if (answer != kAccepted) {
        logAt("UploadMotFile", 129, "earse .mot of muc failed!");
        return false;
    }
    logAt("UploadMotFile", 93, "earse .mot of muc secceed!");

    for (std::size_t i = 0; i < vlines_.size(); ++i) {
        if (!isS2(vlines_[i])) continue;
        const std::string record = vlines_[i].substr(2);
        logAt("UploadMotFile", 107, "(%zu): %s", i, record.c_str());
        write(recordCommand(index, record));
        if (readAnswer() == kAccepted) continue;
        logAt("UploadMotFile", 122, "upload .mot file failed!");
        return false;
    }
    return true;
}
