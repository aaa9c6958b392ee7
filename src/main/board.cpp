#include "main/board.h"

#include <cstdio>
#include <cstring>

#include "common/common.h"
#include "myserial.h"
#include "software_config.h"

namespace {

// The chip on a board. It has no default, so that a table row without a chip does not compile.
class Chip {
  public:
    enum Kind { kNone, kCh9329, kCh9350 };
    constexpr Chip(Kind kind) : kind_(kind) {}
    constexpr bool is(Kind kind) const { return kind_ == kind; }

  private:
    Kind kind_;
};

constexpr Chip::Kind kNoChip = Chip::kNone, kCh9329 = Chip::kCh9329, kCh9350 = Chip::kCh9350;

// One access to a pin register.
struct PinStep {
    unsigned address;  ///< 0: no step
    unsigned value;
    bool setsBits;  ///< true: sets the bits of value and keeps the others; false: writes value
};

constexpr PinStep write(unsigned address, unsigned value) {
    return {address, value, false};
}

constexpr PinStep setBits(unsigned address, unsigned bits) {
    return {address, bits, true};
}

struct Pins {
    PinStep steps[5];  ///< in the order of their execution
};

constexpr Pins kNoPins{};
constexpr Pins kPins3000{{write(0x120F0100, 1), write(0x120F0104, 1)}};
constexpr Pins kPins3100{{write(0x120F006C, 0), setBits(0x12180400, 0x80),
                          setBits(0x12180200, 0x80), write(0x120F0100, 1), write(0x120F0104, 1)}};
constexpr Pins kPins100{{write(0x120F00F8, 1), write(0x120F00FC, 1), setBits(0x121D0400, 0x20),
                         setBits(0x121D0080, 0x20)}};
constexpr Pins kPins500{
    {write(0x120F0100, 1), write(0x120F0104, 1), write(0x120F00F8, 1), write(0x120F00FC, 1)}};

struct BoardRow {
    const char *identifier;  ///< matches every board identifier that begins with it
    Chip chip;               ///< none: there is nothing for the daemon to do
    const char *port;        ///< forced serial port of a CH9329, null: as configured
    HDINFO family;           ///< how its USB power is switched
    bool usbPowerOff;        ///< USB power is switched off at start
    bool video;              ///< its video input can be watched
    Pins pins;
};

// The first row whose identifier matches describes the board.
// clang-format off
constexpr BoardRow kRows[] = {
    {"QBRD10401m2_3000_R1", kCh9329, "COM2",  QBX_3000,    true,  true,  kPins3000},
    {"QBRE10401m2_3000_R1", kCh9329, "COM2",  QBX_3000,    true,  true,  kPins3000},
    {"QBRD10401m2_3010_R1", kCh9329, "COM2",  QBX_3000,    true,  true,  kPins3000},
    {"QBRD10402m_3100_R1",  kCh9329, "COM2",  QBX_3000,    true,  true,  kPins3100},
    {"QBRE10402n_100_R1",   kCh9329, "COM1",  QBX_3000,    false, false, kPins100},
    {"QBRD10402m_500_R1",   kCh9329, "COM1",  QBX_3000,    false, true,  kPins500},
    {"QBRD10403n_5000_R1",  kCh9329, "COM1",  QBX_31DV200, false, true,  kNoPins},
    {"QBRF1040pm_300_R1",   kCh9329, nullptr, QBX_300,     true,  true,  kNoPins},
    {"QBRF1040pm_310_R1",   kCh9329, nullptr, QBX_300,     true,  true,  kNoPins},
    {"QBRF1040pm_300_R2",   kCh9329, nullptr, QBX_300,     true,  true,  kNoPins},
    {"QBRF1040pn_100_R1",   kCh9329, nullptr, QBX_300,     true,  true,  kNoPins},
    {"QBRF104050_100_R1",   kCh9329, nullptr, QBX_300,     true,  true,  kNoPins},
    {"QBRD1040pm_100_R4",   kCh9329, nullptr, QBX_300,     true,  true,  kNoPins},
    {"QBRD1040pn_100_R1",   kCh9329, nullptr, QBX_300,     true,  true,  kNoPins},
    {"QBRD10401m2_3020_R1", kNoChip, nullptr, QBX_300,     true,  true,  kNoPins},
    {"",                    kCh9350, nullptr, QBX_300,     true,  true,  kNoPins},  // all others
};
// clang-format on

const BoardRow &rowOf(const char *board) {
    const BoardRow *row = kRows;
    // The last row matches every board, also an empty identifier.
    while (strncmp(board, row->identifier, strlen(row->identifier)) != 0) ++row;
    return *row;
}

void setRegister(unsigned address, unsigned value) {
    if (SAMPLE_SYS_SetReg(address, value) != 0) printf("write register 0x%x failed\n", address);
}

// A register that could not be read is not written.
void changeRegister(unsigned address, unsigned clear, unsigned set) {
    unsigned value = 0;
    if (SAMPLE_SYS_GetReg(address, &value) != 0) {
        printf("read register 0x%x failed\n", address);
        return;
    }
    setRegister(address, (value & ~clear) | set);
}

struct UsbPower {
    unsigned pin;        ///< register of the pin: 1 powered, 0 general-purpose pin
    unsigned direction;  ///< direction register of the pin's port
    unsigned level;      ///< level register of that port; its address masks the bit
    unsigned bit;        ///< the pin's bit in the last two
};

constexpr UsbPower kUsbPower[] = {
    {0x120F0170, 0x12220400, 0x12220020, 0x08},  // QBX_3000
    {0x120F02D8, 0x12230400, 0x12230008, 0x02},  // QBX_300
};

}  // namespace

bool readHdVersion(char *dst) {
    constexpr char kKey[] = "\"board\": \"";
    constexpr std::size_t kClearedSize = 32;

    char text[256 + 1] = {};
    FILE *file = fopen("/version/hardware_info", "r");
    if (file == nullptr) {
        puts("open hardware_info error");
        return false;
    }
    memset(dst, 0, kClearedSize);
    const std::size_t size = fread(text, 1, sizeof text - 1, file);
    fclose(file);
    if (size == 0) return false;
    printf("read hardware_info:%s\n", text);

    char *value = strstr(text, kKey);
    if (value == nullptr) return false;
    value += strlen(kKey);
    char *end = strchr(value, '"');
    if (end == nullptr) return false;
    *end = '\0';
    copyText(dst, kBoardSize, value);
    printf("get hdVersion:%s\n", dst);
    return true;
}

bool isIdleBoard(const char *board) {
    return rowOf(board).chip.is(kNoChip);
}

bool hasCh9329(const char *board) {
    return rowOf(board).chip.is(kCh9329);
}

bool hasVideoWatch(const char *board) {
    return rowOf(board).video;
}

const char *forcedPort(const char *board) {
    return rowOf(board).port;
}

void setUpBoard(const char *board) {
    const BoardRow &row = rowOf(board);
    for (const PinStep &step : row.pins.steps) {
        if (step.address == 0) break;
        if (step.setsBits)
            changeRegister(step.address, 0, step.value);
        else
            setRegister(step.address, step.value);
    }
    if (const char *port = forcedPort(board); port != nullptr) {
        const auto config = Singleton<SoftwareConfig>::getInstance();
        config->SetConfig(SoftwareConfig::kComPort, port);
        config->SaveConfig();
    }
    hd_info = row.family;
    if (row.usbPowerOff) set_usb_power(false, row.family);
}

bool set_usb_power(bool on, hd_info_ board) {
    const auto index = static_cast<std::size_t>(board);
    if (index >= sizeof kUsbPower / sizeof kUsbPower[0]) return true;
    const UsbPower &power = kUsbPower[index];
    setRegister(power.pin, on ? 1 : 0);
    if (!on) {
        changeRegister(power.direction, 0, power.bit);
        changeRegister(power.level, power.bit, 0);
    }
    return true;
}
