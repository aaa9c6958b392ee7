#include "main/heartbeat.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "common/common.h"
#include "main/link_table.h"
#include "ports.h"
#include "state.h"
#include "udpsocket/udpsocket.h"

namespace {

constexpr char kPing[] = "heart", kAnswer[] = "ackheart";

bool isOutput(const char *address) {
    return strlen(address) > 6 && strcmp(address, "0.0.0.0") != 0;
}

// The sender of an answer is not checked.
bool answered(UDPSocket &socket) {
    char answer[32 + 1] = {};
    socket.RecvFrom(answer, sizeof answer - 1);
    return strcmp(answer, kAnswer) == 0;
}

bool ping(UDPSocket &socket, const char *address) {
    socket.SendTo(address, kOutputPort, kPing, sizeof kPing - 1);
    logAt("checkConnect", kNoLine, "send to output:%s heartbeat", address);
    return answered(socket);
}

}  // namespace

void heartbeatPass(UDPSocket &socket) {
    if (sharedLoad(curLink_num) == 0) return;
    for (unsigned slot = 0; slot < kMaxOutputs; ++slot) {
        // Read again for each slot, because the one before may have taken 6 s.
        const LinkedSlots slots = linkedSlots();
        const char *address = slots.address[slot];
        if (!slots.linked[slot] || !isOutput(address)) continue;
        if (ping(socket, address)) {
            logAt("checkConnect", kNoLine, "heartBeat rcv %s", kAnswer);
            if (sharedLoad(curtInfo.curOutPre) == 0)
                sharedStore(curtInfo.curOutPre, sharedLoad(curtInfo.heartPre));
        } else if (!timeOutCheck(slot)) {
            printf("not get out %s heartbeat\n", address);
        }
    }
}

bool timeOutCheck(unsigned slot) {
    const LinkedSlots slots = linkedSlots();
    UDPSocket *socket = __atomic_load_n(&htBeatSocket, __ATOMIC_RELAXED);
    if (socket == nullptr) return false;  // the process is ending
    socket->SendTo(slots.address[slot], kOutputPort, kPing, sizeof kPing - 1);
    if (answered(*socket)) return true;
    if (const int level = sharedLoad(curtInfo.curOutPre); level != 0) {
        sharedStore(curtInfo.heartPre, level);
        sharedStore(curtInfo.curOutPre, 0);
    }
    return false;
}

void *checkConnect(void *) {
    UDPSocket *socket = new UDPSocket;
    __atomic_store_n(&htBeatSocket, socket, __ATOMIC_RELAXED);
    socket->CreateUDPServer(kHeartbeatPort, 3, true, true);
    sharedStore(enHtBeatSocket, true);
    for (;;) {
        heartbeatPass(*socket);
        sleep(30);
    }
}
