#include "main/operator_loop.h"

#include <cstdio>
#include <cstring>

#include "state.h"
#include "udpsocket/udpsocket.h"

namespace {

constexpr std::size_t kReplySize = 64;

void answerQuery(UDPSocket &socket, char *) {
    char reply[kReplySize] = {};
    snprintf(reply, sizeof reply, "query|%s|%d|%s|%d", curLocalIp, curLink_num > 0 ? 1 : 0,
             curtInfo.curName, curtInfo.curOutPre);
    socket.EchoTo(reply, static_cast<long>(strlen(reply)));
}

struct Command {
    const char *prefix;
    void (*carryOut)(UDPSocket &, char *);
};

// The first prefix that matches decides.
constexpr Command kCommands[] = {
    {"query", answerQuery},
};

}  // namespace

void handleOperatorCommand(UDPSocket &socket, char *command) {
    printf("osd rcv command-->%s\n", command);
    for (const Command &known : kCommands) {
        if (strncmp(command, known.prefix, strlen(known.prefix)) != 0) continue;
        known.carryOut(socket, command);
        return;
    }
}

void runOperatorLoop(UDPSocket &socket) {
    char command[kOperatorDatagram + 1];
    for (;;) {
        const int length = socket.RecvFrom(command, kOperatorDatagram);
        if (length < 0) {
            puts("net error");
            continue;
        }
        command[length] = '\0';
        handleOperatorCommand(socket, command);
    }
}
