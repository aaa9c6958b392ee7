// The transfer of a Motorola S-record file to a board's microcontroller, over the serial line.
// For upload.h and quillon-flash; the daemon does not use it.
#pragma once

#include <string>
#include <vector>

/// The kinds of boards; the last data byte of a file, 0 to 4, is the index.
constexpr char kBoardKinds[] = "IOL24";

/// One file, for any number of boards. Commands are texts in parentheses; only the answer "(OK)"
/// means success.
class MyUpdata {
  public:
    /// Keeps the pointer. FileCheckOut restarts the device for a name that has ".rar" in it and
    /// none of ".mot", ".Mot" and ".bin".
    explicit MyUpdata(const char *filename) : filename_(filename) {}

    /// Reads the file and finds its kind: "I", "O", "L", "2" or "4", from the last data byte of its
    /// last S2 record. False for a name without ".mot" or ".Mot" and for an unreadable or empty
    /// file, with a line on standard output unless the name has ".rar"; false for a file without a
    /// kind.
    bool FileCheckOut();

    /// Discards unread input, erases board index and sends it every S2 record. False when the
    /// answer was not "(OK)": to the erase command in one read within 60 ms, to a record before a
    /// silence of 10 s.
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
