#include "main/arbitration.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "common/common.h"
#include "main/link_table.h"
#include "ports.h"
#include "software_config.h"
#include "state.h"
#include "udpsocket/udpsocket.h"

namespace {

constexpr char kReply[] = "reply";

// A message to consoles or to a user; the bytes after the text are zero.
struct Message {
    char text[64] = {};
    long length() const { return static_cast<long>(strlen(text)); }
};

Message connected(const char *name, int level) {
    Message message;
    snprintf(message.text, sizeof message.text, "connect|%s|1|%s|%d", curLocalIp, name, level);
    return message;
}

Message holderDropped() {
    Message message;
    snprintf(message.text, sizeof message.text, "disconnect|%s|0|%s|%d", curLocalIp,
             curtInfo.curName, sharedLoad(curtInfo.curOutPre));
    return message;
}

void tellAll(const Message &message) {
    multiSocket->SendTo(kConsoleGroup, kConsolePort, message.text, message.length());
}

void tellUser(const char *name, const Message &message, long size) {
    const char *end = strchr(name, '-');
    if (end == nullptr || end - name >= static_cast<long>(kAddressSize)) return;
    char address[kAddressSize] = {};
    memcpy(address, name, static_cast<std::size_t>(end - name));
    multiSocket->SendTo(address, kConsolePort, message.text, size);
    printf("--->send %s data %s\n", address, message.text);
}

// Links an output in the next free slot, which is returned.
unsigned linkOutput(const char *ip) {
    const unsigned slot = curLink_num;
    TableChange change;
    change.setOutput(slot, ip);
    change.setCount(slot + 1);
    return slot;
}

// False, with a log line, when the next output would be the ninth.
bool hasRoom() {
    return curLink_num < kMaxOutputs || saveLinkInfo(curLink_num, false);
}

void logSuccess(int line, unsigned slot) {
    const char *output = slot < kMaxOutputs ? curtInfo.curOutIp[slot] : "";
    logAt("main", line, "connect name:%s,ip:%s,pre:%d  success", curtInfo.curName, output,
          sharedLoad(curtInfo.curOutPre));
}

struct Request {
    std::string name, ip;
    int level = 0;
};

Request readRequest(char *command, bool withAddress) {
    changeChar(command);
    Request request;
    std::istringstream words(command);
    std::string word;
    words >> word >> request.name;
    if (withAddress) words >> request.ip;
    words >> request.level;
    return request;
}

bool isHolder(const std::string &name) {
    return name == curtInfo.curName;
}

// False, with a log line, for a field that is too long or would be read back from the settings as
// something else. The holder's name is not checked, because it is stored already.
bool mayStore(const Request &request) {
    const auto fits = [](const std::string &text, std::size_t size) {
        return text.size() < size && isStorable(text);
    };
    if (fits(request.ip, kAddressSize) &&
        (isHolder(request.name) || fits(request.name, sizeof curtInfo.curName)))
        return true;
    puts("value refused");
    return false;
}

void addOutput(const std::string &ip) {
    const auto same = [&](const char *output) { return ip == output; };
    if (std::any_of(std::begin(curtInfo.curOutIp), std::end(curtInfo.curOutIp), same)) {
        logAt("main", 2094, "check same output ip in linkmap");
        return;
    }
    if (!hasRoom()) return;
    const unsigned slot = linkOutput(ip.c_str());
    logSuccess(2101, slot);
    saveLinkInfo(slot, false);
}

// An answer is "reply", an address, a name and a code. Deliberate, as the protocol has it: only the
// code 0 refuses; any other code, or none, grants.
bool refuses(char *answer) {
    changeChar(answer);
    std::istringstream fields(answer + strlen(kReply));
    std::string address, name, code;
    fields >> address >> name >> code;
    char *end = nullptr;
    return strtol(code.c_str(), &end, 10) == 0 && end != code.c_str();
}

void reply(UDPSocket &operators, const std::string &ip, int code) {
    Message message;
    snprintf(message.text, sizeof message.text, "reply|%s|%d", curLocalIp, code);
    operators.SendTo(ip.c_str(), kConsolePort, message.text, message.length());
}

}  // namespace

bool connectNew(const char *name, const char *ip, int level) {
    const Message message = connected(name, level);
    unsigned slot = 0;
    if (curLink_num != 0) {
        tellUser(curtInfo.curName, message, message.length());
        // Deliberate: the slots before this one keep their outputs, which then serve the new user.
        slot = curLink_num - 1;
    }
    {
        TableChange change;
        change.setHolder(name, level);
        change.setOutput(slot, ip);
        change.setCount(slot + 1);
    }
    tellUser(curtInfo.curName, message, message.length());
    saveLinkInfo(slot, true);
    return true;
}

bool disconnectUserConnectNew(const char *name, const char *ip, int level, bool dropCurrent) {
    if (!dropCurrent && !hasRoom()) return true;
    const Message dropped = holderDropped();
    const unsigned slot = dropCurrent ? 0 : curLink_num;
    {
        // One change from the old outputs to the new one: a moment without a linked output would
        // leave the data server's decision about the last sender in force.
        TableChange change;
        if (dropCurrent) change.clear();
        change.setHolder(name, level);
        change.setOutput(slot, ip);
        change.setCount(slot + 1);
    }
    if (dropCurrent) tellAll(dropped);
    const Message message = connected(curtInfo.curName, level);
    tellAll(message);
    printf("send ---->%s\n", message.text);
    saveLinkInfo(slot, true);
    return true;
}

int applyUser(const char *name) {
    UDPSocket *socket = __atomic_load_n(&applySocket, __ATOMIC_RELAXED);
    if (socket == nullptr) return kApplyBadAnswer;  // the process is ending
    Message question;
    char answer[sizeof question.text + 1] = {};
    snprintf(question.text, sizeof question.text, "apply|%s|%s", curLocalIp, name);
    socket->delRcvBuff();  // late answers to an earlier question
    for (unsigned slot = 0; slot < curLink_num; ++slot)
        socket->SendTo(curtInfo.curOutIp[slot], kConsolePort, question.text, question.length());

    const int received = socket->RecvFrom(answer, sizeof answer - 1);
    if (received == 0) {
        logAt("applyUser", kNoLine, "apply timeout");
        return kApplyNoAnswer;
    }
    logAt("applyUser", kNoLine, "apply rcv:data-->%s  end", answer);
    if (strncmp(answer, kReply, strlen(kReply)) != 0) {
        logAt("applyUser", kNoLine, "echo error data-->%s", answer);
        return kApplyBadAnswer;
    }
    if (!refuses(answer)) return kApplyGranted;
    logAt("applyUser", kNoLine, "apply echo refused");
    return kApplyRefused;
}

bool perLowerCurnt(const char *name) {
    const Message message = connected(curtInfo.curName, sharedLoad(curtInfo.curOutPre));
    // Deliberate: the zeroes after the text are sent too.
    tellUser(name, message, sizeof message.text);
    return true;
}

bool changeChar(char *str) {
    std::replace(str, str + strlen(str), '|', ' ');
    return true;
}

void judgeNewUser(UDPSocket *sock, int *level) {
    constexpr const char *kWords[] = {"root", "admn", "user"};
    char text[256 + 1] = {};
    for (;;) {
        const int length = sock->RecvFrom(text, sizeof text - 1);
        if (length < 1) continue;
        text[length] = '\0';
        for (int i = 0; i < 3; ++i) {
            if (strncmp(text, kWords[i], 4) != 0) continue;
            *level = i;
            return;
        }
    }
}

void handleConnect(UDPSocket &, char *command) {
    const Request wanted = readRequest(command, true);
    if (!mayStore(wanted)) return;
    if (curLink_num == 0) {
        connectNew(wanted.name.c_str(), wanted.ip.c_str(), wanted.level);
    } else if (isHolder(wanted.name)) {
        addOutput(wanted.ip);
    } else if (sharedLoad(curtInfo.curOutPre) > wanted.level) {
        perLowerCurnt(wanted.name.c_str());
    } else {  // an equal level takes over; only "apply" asks the holder for consent
        connectNew(wanted.name.c_str(), wanted.ip.c_str(), wanted.level);
        logSuccess(2113, curLink_num);  // Deliberate: the slot after the last one
    }
}

void handleApply(UDPSocket &operators, char *command) {
    const Request wanted = readRequest(command, true);
    printf("get name:%s ip:%s per:%d\n", wanted.name.c_str(), wanted.ip.c_str(), wanted.level);
    if (!mayStore(wanted)) return;
    const char *name = wanted.name.c_str(), *ip = wanted.ip.c_str();
    if (curLink_num == 0) {
        disconnectUserConnectNew(name, ip, wanted.level, false);
    } else if (isHolder(wanted.name)) {
        // Deliberate: unlike "connect", this links an output twice.
        if (hasRoom()) saveLinkInfo(linkOutput(ip), false);
    } else if (sharedLoad(curtInfo.curOutPre) < wanted.level) {
        disconnectUserConnectNew(name, ip, wanted.level, true);
    } else if (const int code = applyUser(name); code != kApplyBadAnswer) {
        reply(operators, wanted.ip, code);
        if (code == kApplyGranted) disconnectUserConnectNew(name, ip, wanted.level, true);
    }
}

void handleDisconnect(UDPSocket &, char *command) {
    const Request wanted = readRequest(command, false);
    // Deliberate: any beginning of the holder's name matches, an empty one too.
    if (strncmp(wanted.name.c_str(), curtInfo.curName, wanted.name.size()) != 0) return;
    const Message message = holderDropped();
    printf("disconnect name:%s\n ", curtInfo.curName);
    tellAll(message);
    TableChange().clear();
    disconnectSaveInfo();
}
