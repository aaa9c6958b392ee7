#include "main/data_server.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cmd_ch9329.h"
#include "cmd_ch9350.h"
#include "common/common.h"
#include "main/forwarding.h"
#include "main/link_table.h"
#include "myserial.h"
#include "records.h"
#include "software_config.h"
#include "state.h"
#include "udpsocket/udpsocket.h"

namespace {

// One received datagram.
struct Datagram {
    const char *sender;
    char *bytes;  ///< also a terminated text
    int length;
    bool isSoftware;
};

bool unwrapSoftware(char *buf, int &length) {
    if (strstr(buf, "software=") == nullptr) return false;
    // Deliberate: only a wrapped absolute mouse or keyboard record is shortened, no other length.
    if (length == kSoftwareTag + kAbsMouseRecord) length = kAbsMouseRecord;
    if (length == kSoftwareTag + kKeyboardRecord) length = kKeyboardRecord;
    memmove(buf, buf + kSoftwareTag, static_cast<std::size_t>(length));
    buf[length] = '\0';  // the rest of the longer datagram is not part of the text
    return true;
}

void authorize(ConsoleServer &server, const char *sender) {
    if (!sharedLoad(per)) {
        server.authorized = true;
        return;
    }
    const LinkedSlots slots = linkedSlots();
    if (slots.count == 0) return;
    server.authorized = false;
    for (unsigned slot = 0; slot < slots.count; ++slot) {
        const char *output = slots.address[slot];
        if (strncmp(sender, output, strlen(output)) == 0) server.authorized = true;
    }
}

void logRecord(const Datagram &record) {
    // Both lines in one write, because each write delays the record on its way to the serial line.
    char text[kConsoleDatagram * kHexWidth + 64];
    char *end = appendHex(text, record.bytes, record.length);
    end += snprintf(end, 64, "\nversion %d, rel_enable %d\n", version, sharedLoad(rel_enable));
    fwrite(text, 1, static_cast<std::size_t>(end - text), stdout);
}

void forwardRecord(const ConsoleServer &server, const Datagram &record) {
    logRecord(record);
    if (!usesCh9329()) {
        // Absolute positions are not sent to a CH9350 in relative mode.
        if (!sharedLoad(rel_enable) || record.length != kAbsMouseRecord)
            serialcontrol(record.bytes, record.length, server.delay);
        return;
    }
    if (sharedLoad(rel_enable) && record.length != kAbsMouseRecord)
        sendRelData(record.bytes, record.length);
    else
        SendData(record.bytes, record.length);
}

struct LockKeys {
    bool caps = false, num = false, scroll = false;
};

LockKeys keysOfStatus(const char *reply) {
    const auto leds = static_cast<unsigned char>(reply[kStatusLedsAt]);
    return {(leds & kStatusCaps) != 0, (leds & kStatusNum) != 0, false};
}

LockKeys readLockKeys() {
    LockKeys keys;
    if (usesCh9329()) {
        queryKeyLock(&keys.caps, &keys.num, &keys.scroll);
        return keys;
    }
    MySerial::nwrite(kStatusRequest, sizeof kStatusRequest);
    char reply[kReplyRoom] = {};
    int count = 0;
    cntRead(reply, &count, 64, 0);
    return keysOfStatus(reply);
}

// For "out": with a CH9350 it takes a single read for the whole status and prints more.
LockKeys readLockKeysOnce() {
    if (usesCh9329()) return readLockKeys();
    MySerial::nwrite(kStatusRequest, sizeof kStatusRequest);
    printf("serial write %x %x %x %x\n", kFrameHead1, kFrameHead2, 0x80, 0x40);
    char reply[kStatusSize] = {};
    MySerial::nread(reply, kStatusSize, 0);
    printf("0x%x\n", static_cast<unsigned char>(reply[kStatusLedsAt]));
    return keysOfStatus(reply);
}

void answer(UDPSocket &socket, const char *text) {
    socket.EchoTo(text, static_cast<long>(strlen(text)));
}

void answerLockKey(UDPSocket &socket, bool on, const char *name) {
    printf("%s %s\n", name, on ? "ON" : "OFF");
    answer(socket, on ? "on" : "off");
    if (!on && usesCh9329()) puts("send ok");
}

void answerCapsLock(const ConsoleServer &, UDPSocket &socket, const Datagram &) {
    answerLockKey(socket, readLockKeys().caps, "capslock");
}

void answerNumLock(const ConsoleServer &, UDPSocket &socket, const Datagram &) {
    answerLockKey(socket, readLockKeys().num, "numlock");
}

void answerSyncLed(const ConsoleServer &, UDPSocket &socket, const Datagram &) {
    const LockKeys keys = readLockKeys();
    char reply[32];
    snprintf(reply, sizeof reply, "capslock=%s&numlock=%s", keys.caps ? "on" : "off",
             keys.num ? "on" : "off");
    answer(socket, reply);
}

void answerLink(const ConsoleServer &, UDPSocket &socket, const Datagram &) {
    char reply[32];
    snprintf(reply, sizeof reply, "vi_w=%d&vi_h=%d&kvm=%s", static_cast<int>(sharedLoad(vi_w)),
             static_cast<int>(sharedLoad(vi_h)), sharedLoad(rel_enable) ? "rel" : "abs");
    answer(socket, reply);
}

// Sets wanted from "on" or "off" after the next '=' of text; any other value leaves it unchanged.
// Returns where to continue.
const char *takeWanted(const char *text, bool &wanted) {
    const char *equals = strchr(text, '=');
    if (equals == nullptr) return text + strlen(text);
    const char *value = equals + 1;
    if (strncmp(value, "on", 2) == 0) wanted = true;
    if (strncmp(value, "off", 3) == 0) wanted = false;
    return value;
}

void sendKeys(int delay, const char *first, const char *second) {
    for (const char *frame : {first, second}) {
        char record[kKeyboardRecord];
        memcpy(record, frame, sizeof record);
        if (usesCh9329())
            SendData(record, kKeyboardRecord);
        else
            serialcontrol(record, kKeyboardRecord, delay);
        usleep(kFramePause);
    }
}

void setLockKeys(const ConsoleServer &server, UDPSocket &, const Datagram &request) {
    const char *rest = takeWanted(request.bytes, outCapsLock);
    takeWanted(rest, outNumLock);
    const LockKeys keys = readLockKeysOnce();
    if (keys.caps != outCapsLock) sendKeys(server.delay, kCapsPress, kKeyRelease);
    // Deliberate: a CH9350 gets the press twice instead of a release.
    if (keys.num != outNumLock)
        sendKeys(server.delay, kNumPress, usesCh9329() ? kKeyRelease : kNumPress);
}

struct Request {
    const char *text;
    bool whole;       ///< must be the whole datagram, not only its beginning
    bool restricted;  ///< only for senders that may control, and for software
    void (*serve)(const ConsoleServer &, UDPSocket &, const Datagram &);
};

constexpr Request kRequests[] = {
    {"capslock", true, false, answerCapsLock}, {"numlock", true, false, answerNumLock},
    {"syncled", false, false, answerSyncLed},  {"link", false, false, answerLink},
    {"out", false, true, setLockKeys},
};

bool matches(const Request &request, const char *text) {
    if (request.whole) return strcmp(text, request.text) == 0;
    return strncmp(text, request.text, strlen(request.text)) == 0;
}

void logDataError(const Datagram &datagram) {
    char text[kConsoleDatagram * (kHexWidth + 1) + 64];
    char *end = text + snprintf(text, 48, "%s data error: ", datagram.sender);
    end += snprintf(end, kConsoleDatagram + 1, "%s", datagram.bytes);
    end = appendHex(end, datagram.bytes, datagram.length);
    snprintf(end, 16, "---0x%x 0x%x", kFrameHead1, kFrameHead2);
    puts(text);
}

void serveText(const ConsoleServer &server, UDPSocket &socket, const Datagram &datagram) {
    const bool allowed = datagram.isSoftware || !sharedLoad(per) || server.authorized;
    for (const Request &request : kRequests) {
        if (!matches(request, datagram.bytes) || (request.restricted && !allowed)) continue;
        request.serve(server, socket, datagram);
        return;
    }
    logDataError(datagram);
}

}  // namespace

void handleConsoleDatagram(ConsoleServer &server, UDPSocket &socket, const char *sender, char *buf,
                           int length) {
    Datagram datagram{sender, buf, length, false};
    datagram.isSoftware = unwrapSoftware(buf, datagram.length);
    authorize(server, sender);
    if (static_cast<unsigned char>(buf[0]) == kFrameHead1 &&
        static_cast<unsigned char>(buf[1]) == kFrameHead2) {
        if (!server.authorized && !datagram.isSoftware) return;
        // During the USB-link test a record is not sent; serveText logs it as an error.
        if (!sharedLoad(query_link)) {
            forwardRecord(server, datagram);
            return;
        }
    }
    serveText(server, socket, datagram);
}

void *udpServerProc(void *arg) {
    const unsigned port = *static_cast<unsigned *>(arg);
    const auto config = Singleton<SoftwareConfig>::getInstance();
    const int delay = atoi(config->GetConfig(SoftwareConfig::kDelay).c_str());
    printf("uart delay time:%dms\n", delay);
    logAt("udpServerProc", 530, "starting udp server at port: %d", static_cast<int>(port));

    // The signal handler clears the global pointer; this thread goes on with its own copy.
    UDPSocket *socket = new UDPSocket;
    __atomic_store_n(&udpsocket, socket, __ATOMIC_RELAXED);
    socket->CreateUDPServer(port, 0, false, true);
    sharedStore(enUdpSocket, true);
    for (char(&row)[128] : tmpOutIp) memset(row, 0, kAddressSize);

    ConsoleServer server;
    server.delay = delay;
    char buf[kConsoleBuffer];
    while (!sharedLoad(is_finish)) {
        memset(buf, 0, sizeof buf);
        const int length = socket->RecvFrom(buf, kConsoleDatagram);
        if (length <= 0) {
            puts("no data from client");
            continue;
        }
        char sender[kAddressSize];
        const sockaddr_in from = socket->GetClientSockaddr();
        inet_ntop(AF_INET, &from.sin_addr, sender, sizeof sender);
        handleConsoleDatagram(server, *socket, sender, buf, length);
    }
    delete __atomic_exchange_n(&udpsocket, nullptr, __ATOMIC_RELAXED);
    return reinterpret_cast<void *>(1);
}
