#include "main/chip_setup.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "cmd_ch9329.h"
#include "cmd_ch9350.h"
#include "common/common.h"
#include "main/forwarding.h"
#include "myserial.h"
#include "software_config.h"

namespace {

using Config = SoftwareConfig;

constexpr int kBlockRoom = 64;
constexpr int kCodeAt = 3;                // the command
constexpr int kSpeedAt = kFrameHead + 3;  // the line speed
constexpr char kWriteParameters = 0x09;
// High byte first, unlike the chip's other numbers.
constexpr char k115200[] = {0x00, 0x01, '\xC2', 0x00};

struct ConfiguredPort {
    const char *name;
    MySerial::ComPort port;
    const char *opened;  ///< printed once it is open, null for nothing
};

constexpr ConfiguredPort kConfiguredPorts[] = {
    {"COM0", MySerial::kUART0, nullptr},
    {"COM1", MySerial::kUART1, nullptr},
    {"COM2", MySerial::kUART2, "uart2 open"},
    {"COM3", MySerial::KUART3, "uart3 open"},
};

// Closes the line and opens it again at another speed.
void reopenAt(const char *speed) {
    Singleton<Config>::getInstance()->SetConfig(Config::kBaudRate, speed);
    MySerial::close_port();
    openPort();
}

enum class Next { kReadAgain, kStop };

Next afterSilence(bool &fast) {
    puts(fast ? "---115200 ch9329 not echo---" : "---9600 ch9329 not echo---");
    fast = !fast;
    reopenAt(fast ? "115200" : "9600");
    sleep(1);
    return Next::kReadAgain;
}

Next afterReply(char *block, bool &fast) {
    switch (getRate(block, kParameterFrame)) {
        case 9600:
            puts("---9600 ch9329 echo 9600 baudrate---");
            setBaudRate(block, kParameterFrame);
            reopenAt("115200");
            fast = true;
            return Next::kReadAgain;
        case 115200:
            if (fast) {
                puts("---ch9329 ini ok---");
                return Next::kStop;
            }
            // The chip uses the new speed only after a restart; its power must be cut for that.
            puts("---9600 ch9329 echo 115200 baudrate---");
            Singleton<Config>::getInstance()->SetConfig(Config::kBaudRate, "115200");
            MySerial::close_port();
            puts("reboot");
            return Next::kStop;
        default:
            puts("error data");
            return Next::kReadAgain;
    }
}

}  // namespace

bool openPort() {
    const auto config = Singleton<Config>::getInstance();
    const std::string name = config->GetConfig(Config::kComPort);
    for (const ConfiguredPort &configured : kConfiguredPorts) {
        if (name != configured.name) continue;
        MySerial::open_port(configured.port);
        if (configured.opened != nullptr) puts(configured.opened);
    }
    applySerialSettings();
    logAt("openPort", kNoLine, "serial buad rate using %s",
          config->GetConfig(Config::kBaudRate).c_str());
    return true;
}

int setCh9329() {
    const int speed = atoi(Singleton<Config>::getInstance()->GetConfig(Config::kBaudRate).c_str());
    if (!openPort()) {
        puts("open no nblock port error");
        return 0;
    }
    puts("open no block port success");
    bool fast = speed == 115200;
    char block[kBlockRoom];
    Next next = Next::kReadAgain;
    while (next == Next::kReadAgain)
        next = ch9329Rata(block) == 1 ? afterReply(block, fast) : afterSilence(fast);
    return 1;
}

int ch9329Rata(char *destination) {
    constexpr char kReadParameters[] = {0x57, '\xAB', 0x00, 0x08, 0x00, 0x0A};
    constexpr int kTries = 10;
    char reply[kReplyRoom];
    int count = 0;
    printf("read empty len:%d\n", cntRead(reply, &count, 128, 0) ? 1 : 0);
    MySerial::nwrite(kReadParameters, sizeof kReadParameters);
    sleep(1);

    memset(destination, 0, kBlockRoom);
    int total = 0;
    for (int i = 0; i < kTries; ++i) {
        if (!cntRead(reply, &count, 64, 0)) continue;
        // The count includes bytes that do not fit: a block of another length is not valid.
        const int at = std::min(total, kBlockRoom);
        memcpy(destination + at, reply, static_cast<std::size_t>(std::min(count, kBlockRoom - at)));
        total += count;
        printf("com read data-->%d\n", count);
        debugPrint(reply, count);
        if (total == kParameterFrame) return 1;
    }
    return 0;
}

int getRate(char *frame, int) {
    unsigned speed = 0;
    for (int i = kSpeedAt; i < kSpeedAt + 4; ++i)
        speed = speed << 8 | static_cast<unsigned char>(frame[i]);
    const int rate = static_cast<int>(speed);
    printf("get CH9329 BaudRate= %ld\n", static_cast<long>(rate));
    return rate;
}

int setBaudRate(char *frame, int length) {
    frame[kCodeAt] = kWriteParameters;
    memcpy(frame + kSpeedAt, k115200, sizeof k115200);
    frame[length - 1] = static_cast<char>(frameSum(frame, length - 1));
    MySerial::nwrite(frame, length);
    return 1;
}

int resetCH9329() {
    constexpr char kReset[] = {0x57, '\xAB', 0x00, 0x0F, 0x00, 0x11};
    MySerial::nwrite(kReset, sizeof kReset);
    sleep(2);
    char reply[kReplyRoom];
    int count = 0;
    if (cntRead(reply, &count, 64, 0)) {
        char text[kReplyRoom * kHexWidth + 1];
        *appendHex(text, reply, count) = '\0';
        printf("com read data-->%d\n%s\n", count, text);
    }
    return 1;
}

int setCH9350Rel() {
    char command[sizeof kRelativeMode];
    memcpy(command, kRelativeMode, sizeof kRelativeMode);
    serialcontrol(command, sizeof command, 0);
    return 1;
}

void ch9329Ini(char *frame) {
    constexpr char kHead[] = {0x57, '\xAB', 0x00, '\x88', 0x32, '\x80', '\x80', 0x00,   0x00,
                              0x01, '\xC2', 0x00, 0x08,   0x00, 0x00,   0x03,   '\x86', 0x1A,
                              0x29, '\xE1', 0x00, 0x00,   0x00, 0x01,   0x00,   0x0D};
    memset(frame, 0, kParameterFrame);
    memcpy(frame, kHead, sizeof kHead);
    frame[kParameterFrame - 1] = static_cast<char>(frameSum(frame, kParameterFrame - 1));
}
