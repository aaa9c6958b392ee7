#include "main/operator_loop.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kvm_comm.h"
#include "main/arbitration.h"
#include "main/board.h"
#include "main/chip_setup.h"
#include "main/forwarding.h"
#include "ports.h"
#include "software_config.h"
#include "state.h"
#include "udpsocket/udpsocket.h"

namespace {

using Config = SoftwareConfig;

constexpr std::size_t kReplySize = 64;

void answerQuery(UDPSocket &socket, char *) {
    char reply[kReplySize] = {};
    snprintf(reply, sizeof reply, "query|%s|%d|%s|%d", curLocalIp, curLink_num > 0 ? 1 : 0,
             curtInfo.curName, sharedLoad(curtInfo.curOutPre));
    socket.EchoTo(reply, static_cast<long>(strlen(reply)));
}

// A value in an operator command. As long as a datagram, so that a value that is too long is seen.
using Value = char[kOperatorDatagram + 1];

// False, with a log line, for a value that is too long or would be read back from the settings file
// as another setting.
bool mayKeep(const Value &value) {
    constexpr std::size_t kLongest = 7;
    if (strlen(value) <= kLongest && isStorable(value)) return true;
    puts("value refused");
    return false;
}

void keep(Config::SoftWareConfigID id, const char *value) {
    const auto config = Singleton<Config>::getInstance();
    config->SetConfig(id, value);
    config->SaveConfig();
}

void setMouseMode(UDPSocket &, char *command) {
    // No value is refused, because only "rel" or "abs" is ever stored.
    Value value = {};
    sscanf(command, "chip=%256s", value);
    printf("QMX set chip model:%s\n", value);
    const bool relative = strncmp(value, "rel", 3) == 0;
    if (!relative && strncmp(value, "abs", 3) != 0) {
        Singleton<Config>::getInstance()->SaveConfig();
        return;
    }
    sharedStore(rel_enable, relative);
    const auto config = Singleton<Config>::getInstance();
    config->SetConfig(Config::kChipModel, relative ? "rel" : "abs");
    if (relative && !usesCh9329()) setCH9350Rel();
    config->SaveConfig();
}

void setPermissions(UDPSocket &, char *command) {
    Value value = {};
    sscanf(command, "per_enable=%256s", value);
    printf("QMX set per:%s\n", value);
    if (!mayKeep(value)) return;
    sharedStore(per, atoi(value) != 0);
    keep(Config::kPerEnable, value);
}

void setUsbPower(UDPSocket &, char *command) {
    Value value = {};
    sscanf(command, "kUsbPower=%256s", value);
    if (!mayKeep(value)) return;
    set_usb_power(atoi(value) != 0, hd_info);
    keep(Config::kUsbPower, value);
}

void answerSettings(UDPSocket &socket, char *command) {
    constexpr std::size_t kPlainCommand = 10;  // "getKvmInfo"
    char text[512] = {};
    FILE *file = fopen("./quillon.ini", "r");
    if (file == nullptr) {
        puts("fopen ini file error");
        return;
    }
    const auto size = static_cast<long>(fread(text, 1, sizeof text, file));
    fclose(file);
    if (size == 0) return;
    if (strlen(command) <= kPlainCommand) {
        socket.EchoTo(text, size);
        return;
    }
    char ip[kAddressSize + 1] = {};  // one more, so that a longer text does not match once cut
    sscanf(command, "getKvmInfo:%16s", ip);
    printf("get cmd:%s, need ip:%s\n", command, ip);
    if (strcmp(ip, curLocalIp) != 0) return;
    socket.SendTo(kEndpointGroup, kSettingsPort, text, size);
    puts("send mult ip:224.168.1.1 port 4001");
}

void answerUsbLink(UDPSocket &socket, char *command) {
    constexpr useconds_t kSettle = 50000;  // for a record that is being sent
    if (strstr(command, "usb_is_link_pc") == nullptr) return;
    sharedStore(query_link, true);
    usleep(kSettle);
    const bool linked = query_usb_link();
    char reply[kReplySize] = {};
    snprintf(reply, sizeof reply, "[ack]\n[controlled]=%s\nusb_is_link_pc=%d", curLocalIp,
             linked ? 1 : 0);
    char target[kAddressSize] = {}, answerTo[kAddressSize] = {};
    int port = 0;
    if (!get_seq_ip(command, target, answerTo, &port) || strcmp(target, curLocalIp) != 0) return;
    // The zero bytes after the text are part of the answer.
    if (port == 0)
        socket.EchoTo(reply, sizeof reply);
    else
        socket.SendTo(answerTo, static_cast<unsigned>(port), reply, sizeof reply);
}

struct Command {
    const char *prefix;
    void (*carryOut)(UDPSocket &, char *);
    bool needsPermissions = false;  ///< ignored while permissions are off
};

// The first prefix that matches decides.
constexpr Command kCommands[] = {
    {"query", answerQuery},         {"connect", handleConnect, true},
    {"apply", handleApply, true},   {"disconnect", handleDisconnect, true},
    {"chip", setMouseMode},         {"per_enable", setPermissions},
    {"getKvmInfo", answerSettings}, {"[seq]", answerUsbLink},
    {"kUsbPower", setUsbPower},
};

}  // namespace

void handleOperatorCommand(UDPSocket &socket, char *command) {
    printf("osd rcv command-->%s\n", command);
    for (const Command &known : kCommands) {
        if (known.needsPermissions && !per) continue;
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
