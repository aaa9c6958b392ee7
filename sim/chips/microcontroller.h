// The microcontroller of a board rack: it programs the flash memory of 10 or 20 boards, over the
// serial line, by a text protocol in parentheses.
#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "sim/chips/serial_device.h"

namespace sim {

/// Safe to use from any thread.
class Microcontroller : public SerialDevice {
  public:
    /// Bytes of a board's flash by address; an address that is missing is erased.
    using Memory = std::map<std::uint32_t, std::uint8_t>;

    Microcontroller(unsigned boards, int baud) : boards_(boards), baud_(baud) {}

    /// How it answers from the next command on; with after, from the after-th record on.
    enum Mood {
        kWell,
        kRefuses,  ///< "(ERR)"
        kSilent,   ///< nothing
        kBabbles,  ///< 5001 bytes of text without ")"
    };
    void setMood(Mood mood, unsigned after = 0);
    /// Cuts answers to records into pieces of size bytes, with pause between them.
    void splitAnswers(std::size_t size, Clock::duration pause);
    void setAbsent(const std::set<unsigned> &boards);

    Memory memory(unsigned board) const;
    bool erased(unsigned board) const;
    /// A line for every board that was erased: what it holds now.
    std::vector<std::string> describe() const;
    /// Every command that it received, "(...)" or "[...]", in order.
    std::vector<std::string> commands() const;

    int baud() override { return baud_; }
    void receive(SerialLine &line, const std::uint8_t *bytes, std::size_t count,
                 Clock::time_point at) override;

  private:
    void carryOut(SerialLine &line);
    std::string answerTo(const std::string &command);
    std::string boardList() const;
    std::string erase(const std::string &target);
    std::string programRecord(const std::string &target, const std::string &record);
    std::string program(unsigned board, const std::vector<std::uint8_t> &record);
    bool reaches(const std::string &target) const;
    bool present(unsigned board) const { return board < boards_ && absent_.count(board) == 0; }
    void send(SerialLine &line, const std::string &text, std::size_t pieceSize) const;

    const unsigned boards_;
    const int baud_;
    mutable std::mutex mutex_;
    std::string command_;
    std::vector<std::string> commands_;
    std::set<unsigned> absent_, erased_;
    std::map<unsigned, Memory> memories_;
    Mood mood_ = kWell;
    unsigned moodAfter_ = 0;
    std::size_t pieceSize_ = 1 << 16;
    Clock::duration piecePause_{};
};

}  // namespace sim
