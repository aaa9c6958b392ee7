#include "sim/pc/text_screen.h"

#include <iconv.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace sim {
namespace {

constexpr int kColumns = 80, kRows = 25;
// The VGA's index ports; the data port is the next one.
constexpr unsigned kCrtController = 0x3D4, kGraphicsController = 0x3CE;

// A stopped computer cannot write to an index port between our two accesses. Goes on at the end,
// also when something was thrown.
class Stopped {
  public:
    explicit Stopped(Qmp &qmp) : qmp_(qmp) {
        if (!qmp_.execute("query-status").value("running", false)) return;
        running_ = true;
        try {
            qmp_.execute("stop");
        } catch (...) {
            qmp_.post("cont");  // the other may still be carried out
            throw;
        }
    }
    ~Stopped() {
        if (running_) qmp_.post("cont");
    }
    Stopped(const Stopped &) = delete;
    Stopped &operator=(const Stopped &) = delete;

  private:
    Qmp &qmp_;
    bool running_ = false;
};

unsigned readPort(Qmp &qmp, unsigned port) {
    char command[32];
    snprintf(command, sizeof command, "i /b 0x%x", port);
    const std::string said = qmp.monitor(command);  // "portb[0x03d4] = 0x0e"
    const std::size_t at = said.find("= ");
    return at == std::string::npos
               ? 0
               : static_cast<unsigned>(strtoul(said.c_str() + at + 2, nullptr, 0)) & 0xFF;
}

void writePort(Qmp &qmp, unsigned port, unsigned value) {
    char command[32];
    snprintf(command, sizeof command, "o /b 0x%x 0x%x", port, value);
    qmp.monitor(command);
}

unsigned readRegister(Qmp &qmp, unsigned port, unsigned index) {
    writePort(qmp, port, index);
    return readPort(qmp, port + 1);
}

// Characters of code page 437, whose first 32 have pictures, too, which are left out.
std::string toUtf8(std::string text) {
    for (char &c : text)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    const iconv_t converter = iconv_open("UTF-8", "CP437");
    if (converter == reinterpret_cast<iconv_t>(-1)) return text;
    std::string result(4 * text.size(), '\0');
    char *from = text.data(), *to = result.data();
    std::size_t left = text.size(), room = result.size();
    iconv(converter, &from, &left, &to, &room);
    iconv_close(converter);
    result.resize(result.size() - room);
    return result;
}

std::string withoutBlanksAtTheEnd(std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

}  // namespace

Machine::Screen readTextScreen(Qmp &qmp) {
    constexpr unsigned kStart = 12, kCursor = 14, kCursorShape = 10, kMiscellaneous = 6;
    Machine::Screen screen;
    const Stopped stopped(qmp);
    const unsigned graphicsIndex = readPort(qmp, kGraphicsController);
    const bool graphics = (readRegister(qmp, kGraphicsController, kMiscellaneous) & 1) != 0;
    writePort(qmp, kGraphicsController, graphicsIndex);
    if (graphics) return screen;

    const unsigned crtIndex = readPort(qmp, kCrtController);
    const auto pair = [&](unsigned index) {
        const unsigned high = readRegister(qmp, kCrtController, index);
        return static_cast<int>(high << 8 | readRegister(qmp, kCrtController, index + 1));
    };
    const int start = pair(kStart), cursor = pair(kCursor) - start;
    const bool hidden = (readRegister(qmp, kCrtController, kCursorShape) & 0x20) != 0;
    writePort(qmp, kCrtController, crtIndex);
    if (!hidden && cursor >= 0 && cursor < kRows * kColumns) {
        screen.cursorRow = cursor / kColumns;
        screen.cursorColumn = cursor % kColumns;
    }

    // Two bytes for a character: its code and its colours.
    char command[48];
    snprintf(command, sizeof command, "xp /%dhx 0x%x", kRows * kColumns, 0xB8000 + 2 * start);
    std::istringstream words(qmp.monitor(command));
    std::string codes, word;
    while (words >> word)
        if (word.back() != ':')
            codes += static_cast<char>(strtoul(word.c_str(), nullptr, 16) & 0xFF);
    codes.resize(kRows * kColumns, ' ');
    for (std::size_t row = 0; row < kRows; ++row)
        screen.lines.push_back(
            withoutBlanksAtTheEnd(toUtf8(codes.substr(row * kColumns, kColumns))));
    return screen;
}

}  // namespace sim
