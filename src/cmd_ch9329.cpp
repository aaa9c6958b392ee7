#include "cmd_ch9329.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "common/common.h"
#include "myserial.h"
#include "records.h"
#include "software_config.h"
#include "state.h"

char echo[64], cmd[64];

namespace {

constexpr char kInfoRequest[] = {0x57, '\xAB', 0x00, 0x01, 0x00, 0x03};
constexpr int kInfoReplySize = kFrameHead + 8 + kFrameSum;
constexpr unsigned char kInfoReplyCode = 0x81;
// Offsets in an information reply: the command, and the lock LEDs (third byte of its data).
constexpr int kCodeAt = 3, kLedsAt = kFrameHead + 2;

constexpr int kAckSize = kFrameHead + 1 + kFrameSum;  // one status byte
constexpr int kFrameRoom = 32;
constexpr int kKeyboardFrame = kFrameHead + kKeyboardReport + kFrameSum;
constexpr int kAbsMouseFrame =
    kFrameHead + 1 + 1 + 2 + 2 + 1 + kFrameSum;  // 02, button, x, y, wheel
constexpr int kRelMouseFrame =
    kFrameHead + 1 + 1 + 1 + 1 + 1 + kFrameSum;  // 01, button, dx, dy, wheel
// Deliberate: two zero bytes are written after the frame.
constexpr int kRelMouseWritten = kRelMouseFrame + 2;

// Keeps the button when it is left, right or middle alone; anything else counts as no button.
char singleButton(char buttons) {
    return buttons == 1 || buttons == 2 || buttons == 4 ? buttons : '\0';
}

void closeFrame(char *frame, int size) {
    frame[size - 1] = static_cast<char>(frameSum(frame, size - 1));
}

void buildKeyboardFrame(const char *record, char *frame) {
    constexpr char kHead[] = {0x57, '\xAB', 0x00, 0x02, 0x08};
    memcpy(frame, kHead, sizeof kHead);
    // Only the modifiers and the first key are sent.
    frame[kFrameHead] = record[kRecordHead];
    frame[kFrameHead + 2] = record[kRecordHead + 2];
    closeFrame(frame, kKeyboardFrame);
}

void buildAbsMouseFrame(char *record, char *frame) {
    constexpr char kHead[] = {0x57, '\xAB', 0x00, 0x04, 0x07, 0x02};
    memcpy(frame, kHead, sizeof kHead);
    frame[6] = singleButton(record[4]);
    getNewLocation(record, frame);
    frame[11] = record[9];
    closeFrame(frame, kAbsMouseFrame);
}

void buildRelMouseFrame(const char *record, char *frame) {
    constexpr char kHead[] = {0x57, '\xAB', 0x00, 0x05, 0x05, 0x01};
    memcpy(frame, kHead, sizeof kHead);
    frame[6] = singleButton(record[3]);
    frame[7] = record[4];
    frame[8] = record[5];
    frame[9] = record[6];
    closeFrame(frame, kRelMouseFrame);
}

// Writes a frame and reads the acknowledgement, which is not checked.
int sendFrame(const char *frame, int size) {
    const auto serial = Singleton<MySerial>::getInstance();
    serial->nwrite(frame, size);
    char reply[64] = {};
    serial->nread(reply, kAckSize, 0);
    return 1;
}

int wrongLength() {
    puts("error data");
    return 0;
}

unsigned scale(const char *lowByte, unsigned range) {
    constexpr unsigned kSteps = 4096;  // the chip's absolute positions
    const unsigned pixel =
        static_cast<unsigned char>(lowByte[0]) + 256U * static_cast<unsigned char>(lowByte[1]);
    return range == 0 ? 0 : std::min(pixel * kSteps / range, kSteps - 1);
}

// Names of the LED states 0 to 7; bit 0 is Num, bit 1 Caps, bit 2 Scroll.
constexpr const char *kLedTexts[] = {
    "NUM CAPS SCROLL DOWN",
    "NUM LOCK UP,CAPS SCROLL LOCK DOWN",
    "CAPS LOCK UP,NUM SCROLL LOCK DOWN",
    "NUM CAPS LOCK UP,SCROLL LOCK DOWN",
    "SCROLL LOCK UP,NUM CAPS LOCK DOWN",
    "NUM SCROLL LOCK UP,CAPS LOCK DOWN",
    "CAPS SCROLL UP,NUM LOCK DOWN",
    "NUM CAPS SCROLL UP",
};

// Reads until the chip is silent; bounded, because a chip may never fall silent.
void drainLine() {
    constexpr int kMaxDrains = 16;
    char reply[kReplyRoom];
    int count = 0;
    for (int i = 0; i < kMaxDrains; ++i)
        if (!cntRead(reply, &count, kAckSize, 0)) break;
}

void printBytes(const char *label, const char *bytes, int count) {
    char text[16 + kReplyRoom * kHexWidth + 1];
    char *end = text + snprintf(text, 16, "%s", label);
    *appendHex(end, bytes, std::min(count, kReplyRoom)) = '\0';
    puts(text);
}

}  // namespace

unsigned char frameSum(const char *bytes, int count) {
    unsigned sum = 0;
    for (int i = 0; i < count; ++i) sum += static_cast<unsigned char>(bytes[i]);
    return static_cast<unsigned char>(sum & 0xFF);
}

void applySerialSettings() {
    using Config = SoftwareConfig;
    const auto config = Singleton<Config>::getInstance();
    const auto number = [&](Config::SoftWareConfigID id) {
        return atoi(config->GetConfig(id).c_str());
    };
    MySerial::set_opt(number(Config::kBaudRate), number(Config::kDataBits),
                      number(Config::kStopBits), config->GetConfig(Config::kParity).c_str()[0],
                      number(Config::kVTime), number(Config::kVMin));
}

void getNewLocation(char *message, char *frame) {
    // Each is read once, because the video watch may change them meanwhile.
    const unsigned width = sharedLoad(vi_w), height = sharedLoad(vi_h);
    const unsigned x = scale(message + kAbsMouseX, width), y = scale(message + kAbsMouseY, height);
    frame[7] = static_cast<char>(x & 0xFF);
    frame[8] = static_cast<char>(x >> 8);
    frame[9] = static_cast<char>(y & 0xFF);
    frame[10] = static_cast<char>(y >> 8);
}

int SendData(char *message, int length) {
    char frame[kFrameRoom] = {};
    switch (length) {
        case kAbsMouseRecord:
            buildAbsMouseFrame(message, frame);
            return sendFrame(frame, kAbsMouseFrame);
        case kKeyboardRecord:
            buildKeyboardFrame(message, frame);
            return sendFrame(frame, kKeyboardFrame);
        default:
            return wrongLength();
    }
}

int sendRelData(char *message, int length) {
    char frame[kFrameRoom] = {};
    switch (length) {
        case kRelMouseRecord:
            buildRelMouseFrame(message, frame);
            return sendFrame(frame, kRelMouseWritten);
        case kKeyboardRecord:
            buildKeyboardFrame(message, frame);
            return sendFrame(frame, kKeyboardFrame);
        default:
            return wrongLength();
    }
}

bool cntRead(char *destination, int *count, int size, int timeout) {
    char scratch[kReplyRoom];
    const int perRead = std::clamp(size, 0, kReplyRoom);
    int reads = 0;
    *count = 0;
    while (reads < kMaxReads) {
        memset(scratch, 0, sizeof scratch);
        const int n = MySerial::nread(scratch, perRead, timeout);
        if (n == 0) break;
        if (n < 0) {
            // Deliberate: only silence ends the reading. The pause takes as long as the wait would,
            // because a read from a closed port fails at once.
            usleep(static_cast<useconds_t>(timeout == 0 ? MySerial::kDefaultWait : timeout));
            continue;
        }
        ++reads;
        const int kept = std::min(n, kReplyRoom - *count);
        memcpy(destination + *count, scratch, static_cast<std::size_t>(kept));
        *count += kept;
    }
    // Deliberate: printed after every reading, also when bytes arrived.
    puts("USB not link PC,timeout");
    return *count > 0;
}

bool queryKeyLock(bool *caps, bool *num, bool *scroll) {
    const auto serial = Singleton<MySerial>::getInstance();
    drainLine();
    serial->nwrite(kInfoRequest, sizeof kInfoRequest);
    char reply[kReplyRoom] = {};
    usleep(10000);
    int count = 0;
    cntRead(reply, &count, kInfoReplySize, 120000);

    const auto code = static_cast<unsigned char>(reply[kCodeAt]);
    printf("0x%x\n", code);
    if (code != kInfoReplyCode) {
        printBytes("", reply, count);
        char rest[kReplyRoom];
        if (code != 0) cntRead(rest, &count, kReplyRoom, 0);
        *caps = *num = *scroll = false;
        puts("read error");
        return false;
    }
    const auto leds = static_cast<unsigned char>(reply[kLedsAt]);
    if (leds > 7) {
        puts("error echo");
        return true;
    }
    *num = (leds & 1) != 0;
    *caps = (leds & 2) != 0;
    *scroll = (leds & 4) != 0;
    puts(kLedTexts[leds]);
    return true;
}

bool cmd_get_info() {
    constexpr int kTries = 11;
    memset(cmd, 0, sizeof cmd);
    memcpy(cmd, kInfoRequest, sizeof kInfoRequest);
    const auto serial = Singleton<MySerial>::getInstance();
    serial->nwrite(cmd, sizeof kInfoRequest);

    char reply[kReplyRoom];
    int count = 0;
    for (int i = 0; i < kTries; ++i)
        if (cntRead(reply, &count, 64, 0)) break;
    count = std::min(count, static_cast<int>(sizeof echo));
    memcpy(echo, reply, static_cast<std::size_t>(count));
    debugPrint(echo, count);
    applySerialSettings();
    return true;
}

void debugPrint(char *bytes, int count) {
    printBytes("chip echo: ", bytes, count);
}
