#include "main/forwarding.h"

#include <unistd.h>

#include <cstring>

#include "cmd_ch9329.h"
#include "cmd_ch9350.h"
#include "myserial.h"
#include "records.h"
#include "software_config.h"
#include "state.h"

namespace {

void strokeNumLockFramed() {
    for (const char *frame : {kNumPress, kKeyRelease}) {
        char record[kKeyboardRecord];
        memcpy(record, frame, sizeof record);
        SendData(record, kKeyboardRecord);
        usleep(kFramePause);
    }
}

void strokeNumLockRaw() {
    for (const char *frame : {kNumPress, kKeyRelease}) {
        MySerial::nwrite(frame, kKeyboardRecord);
        usleep(kFramePause);
    }
}

// The LED byte of the first answer in a few reads, 0 without an answer.
char ledsOfStatus() {
    constexpr int kTries = 4;
    char reply[16] = {};
    for (int i = 0; i < kTries; ++i)
        if (MySerial::nread(reply, sizeof reply, 0) > 0) break;
    return reply[kStatusLedsAt];
}

bool ch9329Linked() {
    // The same flags for both queries: an invalid LED byte leaves them and so counts as no change.
    bool caps = false, num = false, scroll = false;
    queryKeyLock(&caps, &num, &scroll);
    const bool before = num;
    strokeNumLockFramed();
    queryKeyLock(&caps, &num, &scroll);
    if (num == before) return false;
    strokeNumLockFramed();  // restores Num Lock
    return true;
}

bool ch9350Linked() {
    const char before = ledsOfStatus();
    strokeNumLockRaw();
    MySerial::nwrite(kStatusRequest, sizeof kStatusRequest);
    if (ledsOfStatus() == before) return false;
    strokeNumLockRaw();
    return true;
}

}  // namespace

bool query_usb_link() {
    const auto serial = Singleton<MySerial>::getInstance();
    serial->nwrite(kStatusRequest, sizeof kStatusRequest);
    const bool linked = usesCh9329() ? ch9329Linked() : ch9350Linked();
    sharedStore(query_link, false);
    return linked;
}

void serialcontrol(char *frame, int length, int) {
    if (length == kAbsMouseRecord) scaleForCh9350(frame);
    MySerial::nwrite(frame, length);
}

void serialRead(char *buffer) {
    MySerial::nread(buffer, kStatusSize, 0);
}

int mergeSerialMessage(char *destination, char *piece, const char *head, const char *tail) {
    const std::size_t length = strlen(piece);
    if (length > 0 && piece[0] == head[0] && piece[length - 1] == tail[0]) {
        strcat(destination, piece);
        return 2;
    }
    const char *start = strstr(piece, head);
    const char *end = strstr(start != nullptr ? start + strlen(head) : piece, tail);
    if (end == nullptr) {
        if (start == nullptr && destination[0] == '\0') return 3;
        strcat(destination, piece);
        return 1;
    }
    strncat(destination, piece, length - strlen(end) + strlen(tail));
    return 2;
}
