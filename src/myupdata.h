// The transfer of a Motorola S-record file to a board's microcontroller, over the serial line.
// Only upload.h uses it, for quillon-flash; the daemon does not.
#pragma once

#include <string>
#include <vector>

/// Kinds of boards by the last byte of data in a file, 0 to 4.
constexpr char kBoardKinds[] = "IOL24";

/// One file, for any number of boards. Commands are texts in parentheses; "(OK)" is the one good
/// answer.
class MyUpdata {
  public:
    /// Keeps the pointer. A name with ".rar" in it, and none of ".mot", ".Mot" and ".bin", restarts
    /// the device when it is checked.
    explicit MyUpdata(const char *filename) : filename_(filename) {}

    /// Reads the file and finds its kind: "I", "O", "L", "2" or "4", which the last data byte of
    /// its last S2 record tells. False, with a line on standard output, for a name without ".mot"
    /// or ".Mot" and for an unreadable or empty file; false for one without a kind.
    bool FileCheckOut();

    /// Throws away what the line still holds, erases board index and sends it every S2 record.
    /// False when the microcontroller did not answer one with "(OK)": an erasure within 60 ms, a
    /// record within 10 s.
    bool UploadMotFile(unsigned int index);

    char type_ = 0;
    const char *filename_;
    std::vector<std::string> vlines_;  ///< all lines, without their ends

  private:
    bool readLines();
    bool findKind();
    std::string eraseCommand(unsigned index) const;
    std::string recordCommand(unsigned index, const std::string &record) const;
};
