#include "main/board.h"

#include <cstdio>
#include <cstring>

#include "common/common.h"
#include "myserial.h"
#include "software_config.h"

namespace {

// Identifiers are matched as prefixes: a board with more behind its name is the same board.
bool isBoard(const char *board, const char *identifier) {
    return strncmp(board, identifier, strlen(identifier)) == 0;
}

constexpr const char *kIdleBoard = "QBRD10401m2_3020_R1";

// Where the board has an early pin set of its own, before its row below.
constexpr const char *kBoard3100 = "QBRD10402m_3100_R1";

constexpr const char *kBoardWithoutVideo = "QBRE10402n_100_R1";

struct BoardRow {
    const char *identifier;
    unsigned ones[4];    ///< registers that get the value 1, in order, 0 for none
    unsigned bit20s[2];  ///< registers that get bit 0x20 set, in order, 0 for none
    const char *port;    ///< forced serial port, null: as configured
    HDINFO family;
    bool usbPowerOff;
};

// clang-format off
constexpr BoardRow kRows[] = {
    {"QBRD10401m2_3000_R1", {0x120F0100, 0x120F0104}, {}, "COM2", QBX_3000, true},
    {"QBRE10401m2_3000_R1", {0x120F0100, 0x120F0104}, {}, "COM2", QBX_3000, true},
    {"QBRD10401m2_3010_R1", {0x120F0100, 0x120F0104}, {}, "COM2", QBX_3000, true},
    {kBoard3100,            {0x120F0100, 0x120F0104}, {}, "COM2", QBX_3000, true},
    {kBoardWithoutVideo, {0x120F00F8, 0x120F00FC}, {0x121D0400, 0x121D0080}, "COM1", QBX_3000, false},
    {"QBRD10402m_500_R1", {0x120F0100, 0x120F0104, 0x120F00F8, 0x120F00FC}, {}, "COM1", QBX_3000, false},
    {"QBRD10403n_5000_R1", {}, {}, "COM1", QBX_31DV200, false},
    {"", {}, {}, nullptr, QBX_300, true},  // any other, and no identifier at all
};

constexpr const char *kCh9329Boards[] = {
    "QBRF1040pm_300_R1", "QBRD10401m2_3000_R1", "QBRF1040pm_310_R1",  "QBRE10401m2_3000_R1",
    "QBRF1040pm_300_R2", "QBRF1040pn_100_R1",   "QBRF104050_100_R1",  "QBRD10401m2_3010_R1",
    "QBRE10402n_100_R1", "QBRD10402m_500_R1",   "QBRD10403n_5000_R1", "QBRD1040pm_100_R4",
    "QBRD10402m_3100_R1", "QBRD1040pn_100_R1",
};
// clang-format on

void setRegister(unsigned address, unsigned value) {
    if (SAMPLE_SYS_SetReg(address, value) != 0) printf("write register 0x%x failed\n", address);
}

// Nothing is written back over a register that could not be read.
void changeRegister(unsigned address, unsigned clear, unsigned set) {
    unsigned value = 0;
    if (SAMPLE_SYS_GetReg(address, &value) != 0) {
        printf("read register 0x%x failed\n", address);
        return;
    }
    setRegister(address, (value & ~clear) | set);
}

const BoardRow &rowOf(const char *board) {
    const BoardRow *row = kRows;
    while (!isBoard(board, row->identifier)) ++row;  // the last row matches every board
    return *row;
}

struct UsbPower {
    unsigned pin;        ///< 1: powered, 0: the pin is a general-purpose one
    unsigned direction;  ///< of that port
    unsigned level;      ///< of that port, through its address mask
    unsigned bit;        ///< the line's bit in both
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
    return isBoard(board, kIdleBoard);
}

bool hasCh9329(const char *board) {
    for (const char *identifier : kCh9329Boards)
        if (isBoard(board, identifier)) return true;
    return false;
}

bool hasVideoWatch(const char *board) {
    return !isBoard(board, kBoardWithoutVideo);
}

void setUpBoard(const char *board) {
    if (isBoard(board, kBoard3100)) {
        setRegister(0x120F006C, 0);
        changeRegister(0x12180400, 0, 0x80);
        changeRegister(0x12180200, 0, 0x80);
    }
    const BoardRow &row = rowOf(board);
    for (const unsigned address : row.ones)
        if (address != 0) setRegister(address, 1);
    for (const unsigned address : row.bit20s)
        if (address != 0) changeRegister(address, 0, 0x20);
    if (row.port != nullptr) {
        const auto config = Singleton<SoftwareConfig>::getInstance();
        config->SetConfig(SoftwareConfig::kComPort, row.port);
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
