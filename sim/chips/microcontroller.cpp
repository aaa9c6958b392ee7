#include "sim/chips/microcontroller.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <numeric>
#include <utility>

namespace sim {
namespace {

constexpr char kAccepted[] = "(OK)", kError[] = "(ERR)";
constexpr std::size_t kWhole = 1 << 16;  // piece size of an answer that is not cut

// The number in "O3", a kind and a number; 0 for a kind alone ("L"), 100 for anything else.
unsigned boardOf(const std::string &target) {
    unsigned board = 0;
    for (std::size_t i = 1; i < target.size(); ++i) {
        if (isdigit(static_cast<unsigned char>(target[i])) == 0 || board > 99) return 100;
        board = board * 10 + static_cast<unsigned>(target[i] - '0');
    }
    return board;
}

// Empty for a text that is not pairs of hexadecimal digits.
std::vector<std::uint8_t> bytesOf(const std::string &digits) {
    std::vector<std::uint8_t> bytes;
    if (digits.size() % 2 != 0) return bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const std::string pair = digits.substr(i, 2);
        if (!std::all_of(pair.begin(), pair.end(),
                         [](unsigned char c) { return isxdigit(c) != 0; }))
            return {};
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(pair, nullptr, 16)));
    }
    return bytes;
}

std::string hex(std::uint32_t number) {
    char text[16];
    snprintf(text, sizeof text, "0x%06x", number);
    return text;
}

}  // namespace

void Microcontroller::setMood(Mood mood, unsigned after) {
    const std::lock_guard<std::mutex> lock(mutex_);
    mood_ = mood;
    moodAfter_ = after;
}

void Microcontroller::splitAnswers(std::size_t size, Clock::duration pause) {
    const std::lock_guard<std::mutex> lock(mutex_);
    pieceSize_ = size;
    piecePause_ = pause;
}

void Microcontroller::setAbsent(const std::set<unsigned> &boards) {
    const std::lock_guard<std::mutex> lock(mutex_);
    absent_ = boards;
}

Microcontroller::Memory Microcontroller::memory(unsigned board) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = memories_.find(board);
    return found == memories_.end() ? Memory{} : found->second;
}

bool Microcontroller::erased(unsigned board) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return erased_.count(board) != 0;
}

std::vector<std::string> Microcontroller::commands() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return commands_;
}

std::vector<std::string> Microcontroller::describe() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> lines;
    for (const unsigned board : erased_) {
        const Memory &memory = memories_.at(board);
        std::string line =
            "board " + std::to_string(board) + " holds " + std::to_string(memory.size()) + " bytes";
        if (!memory.empty())
            line += ", " + hex(memory.begin()->first) + " to " + hex(memory.rbegin()->first);
        lines.push_back(line);
    }
    return lines;
}

void Microcontroller::receive(SerialLine &line, const std::uint8_t *bytes, std::size_t count,
                              Clock::time_point) {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (std::size_t i = 0; i < count; ++i) {
        const char c = static_cast<char>(bytes[i]);
        if (c == '(' || c == '[') command_.clear();
        command_ += c;
        if (c == ')' || c == ']') carryOut(line);
    }
}

void Microcontroller::carryOut(SerialLine &line) {
    const std::string command = std::exchange(command_, "");
    commands_.push_back(command);
    if (command == "[reset]") return;  // it has no answer
    const bool isRecord = command.rfind("(UD", 0) == 0;
    const bool inMood = mood_ != kWell && (moodAfter_ == 0 || (isRecord && --moodAfter_ == 0));
    if (!inMood) {
        send(line, answerTo(command), isRecord ? pieceSize_ : kWhole);
        return;
    }
    moodAfter_ = 0;
    if (mood_ == kRefuses) send(line, kError, kWhole);
    if (mood_ == kBabbles) send(line, "(" + std::string(5000, 'x'), kWhole);
}

std::string Microcontroller::answerTo(const std::string &command) {
    if (command == "(GETM)" || command == "(GETIA)" || command == "(GETOA)") return boardList();
    const std::string inside = command.substr(1, command.size() - 2);
    const std::size_t bar = inside.find('|');
    if (inside.rfind("ER", 0) == 0) return erase(inside.substr(2));
    if (inside.rfind("UD", 0) == 0 && bar != std::string::npos)
        return programRecord(inside.substr(2, bar - 2), inside.substr(bar + 1));
    return kError;
}

std::string Microcontroller::boardList() const {
    std::string list;
    for (unsigned board = 0; board < boards_; ++board)
        list += std::string(list.empty() ? "(" : ",") + (present(board) ? "OK" : "NA");
    return list + ")";
}

// A command to a single board (L or B) arrives, whatever the list of boards says.
bool Microcontroller::reaches(const std::string &target) const {
    if (target.empty()) return false;
    return target[0] == 'L' || target[0] == 'B' || present(boardOf(target));
}

std::string Microcontroller::erase(const std::string &target) {
    const unsigned board = boardOf(target);
    if (!reaches(target)) return kError;
    memories_[board].clear();
    erased_.insert(board);
    return kAccepted;
}

std::string Microcontroller::programRecord(const std::string &target, const std::string &record) {
    const unsigned board = boardOf(target);
    if (!reaches(target) || erased_.count(board) == 0) return kError;
    return program(board, bytesOf(record));
}

// record: byte count, three bytes of address, data, and a checksum that makes the sum 0xFF.
std::string Microcontroller::program(unsigned board, const std::vector<std::uint8_t> &record) {
    constexpr std::size_t kHead = 4;
    if (record.size() <= kHead || record.size() != record[0] + std::size_t{1}) return kError;
    if ((std::accumulate(record.begin(), record.end(), 0U) & 0xFF) != 0xFF) return kError;
    auto address = static_cast<std::uint32_t>(record[1] << 16 | record[2] << 8 | record[3]);
    Memory &memory = memories_[board];
    for (std::size_t i = kHead; i + 1 < record.size(); ++i) memory[address++] = record[i];
    return kAccepted;
}

void Microcontroller::send(SerialLine &line, const std::string &text, std::size_t pieceSize) const {
    for (std::size_t i = 0; i < text.size(); i += pieceSize) {
        const std::string piece = text.substr(i, pieceSize);
        line.send(Bytes(piece.begin(), piece.end()), baud_,
                  i == 0 ? Clock::duration::zero() : piecePause_);
    }
}

}  // namespace sim
