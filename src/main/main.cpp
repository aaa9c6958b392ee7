// The daemon's process: signals, start-up in order, then the operator loop for ever.

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/common.h"
#include "kvm_comm.h"
#include "main/board.h"
#include "main/chip_setup.h"
#include "main/data_server.h"
#include "main/heartbeat.h"
#include "main/link_table.h"
#include "main/operator_loop.h"
#include "main/video_watch.h"
#include "myserial.h"
#include "ports.h"
#include "software_config.h"
#include "state.h"
#include "udpsocket/udpsocket.h"

namespace {

using Config = SoftwareConfig;

// Handlers can run on two threads at once; the exchange gives the socket to one of them.
void release(bool &created, UDPSocket *&socket) {
    if (sharedLoad(created)) delete __atomic_exchange_n(&socket, nullptr, __ATOMIC_RELAXED);
}

void loadSettings() {
    const auto config = Singleton<Config>::getInstance();
    Singleton<MySerial>::getInstance();  // made here, so that no signal handler has to make it
    config->ReadConfig();
    config->PrintConfig();
    config->SaveConfig();
    curtInfo.link[0] = curtInfo.link[1] = 0;
    localip = GetLocalIp();
    iniCurrentInfo();
    copyText(curLocalIp, sizeof curLocalIp, localip.c_str());
}

void idleForEver() {
    for (;;) sleep(10000);
}

void saveChip(const char *chip) {
    const auto config = Singleton<Config>::getInstance();
    config->SetConfig(Config::kChipVersion, chip);
    config->SaveConfig();
}

void startCh9350() {
    puts("this is ch9350 chip");
    const auto config = Singleton<Config>::getInstance();
    config->SetConfig(Config::kBaudRate, "115200");
    config->SetConfig(Config::kComPort, "COM3");
    saveChip("CH9350");
    openPort();
    if (rel_enable) setCH9350Rel();
}

void startChip(const char *board) {
    version = hasCh9329(board);
    if (usesCh9329()) {
        Singleton<Config>::getInstance()->SetConfig(Config::kChipVersion, "CH9329");
        setCh9329();
    }
    if (!usesCh9329()) {
        startCh9350();
        return;
    }
    puts("thi is  ch9329 chip");
    saveChip("CH9329");
}

void startThread(void *(*run)(void *), void *arg, int line, const char *error) {
    constexpr int kFifo = 1;
    if (CreateThread(run, 0, kFifo, true, arg) == 0) logAt("main", line, "%s", error);
}

UDPSocket *openSocket(unsigned port, int timeout, bool useTimeout) {
    UDPSocket *socket = new UDPSocket;
    socket->CreateUDPServer(port, timeout, useTimeout, true);
    return socket;
}

void joinOperators(UDPSocket &socket) {
    constexpr int kTries = 10;
    for (int i = 0; i < kTries; ++i) {
        if (!socket.AddMemberShip(kEndpointGroup, "eth0", true)) continue;
        puts("add mut:224.168.1.1");
        return;
    }
}

}  // namespace

// Deliberate: printf, delete and exit are not safe in a signal handler, but the process ends here.
void HandleSig(int sig) {
    printf("program exit--->0x%x\n", static_cast<unsigned>(sig));
    sharedStore(pthread_vi_get, false);
    sleep(2);  // lets the video watch stop
    Singleton<MySerial>::getInstance()->close_port();
    release(enApplySocket, applySocket);
    release(enHtBeatSocket, htBeatSocket);
    release(enUdpSocket, udpsocket);
    release(enOsdSocket, osdSocket);
    exit(-1);
}

int main() {
    holdStandardDescriptors();
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // each log line is written at once, to a file too
    for (const int sig : {SIGHUP, SIGINT, SIGTERM, SIGSEGV}) signal(sig, HandleSig);
    // The daemon goes on when the reader of its log ends. Caught and not ignored, because the shell
    // commands would inherit an ignored signal.
    signal(SIGPIPE, [](int) {});
    char board[kBoardSize] = {};

    loadSettings();
    readHdVersion(board);
    if (isIdleBoard(board)) idleForEver();
    const auto config = Singleton<Config>::getInstance();
    per = str2int(config->GetConfig(Config::kPerEnable)) != 0;
    setUpBoard(board);
    startChip(board);

    unsigned port = static_cast<unsigned>(atoi(config->GetConfig(Config::kUdpServerPort).c_str()));
    startThread(udpServerProc, &port, 2009, "pthread_create() failed: net udpServerProc");
    if (hasVideoWatch(board))
        startThread(timeCheckVi, nullptr, 2016, "pthread_create() failed: timeCheckVi");

    multiSocket = openSocket(kAnnouncePort, 0, false);
    enMultiSocket = true;
    applySocket = openSocket(kConsentPort, 10, true);
    enApplySocket = true;
    UDPSocket *operatorSocket = openSocket(kOperatorPort, 10, false);
    enOsdSocket = true;
    joinOperators(*operatorSocket);

    if (per) startThread(checkConnect, nullptr, 2057, "pthread create failed: checkconnect");
    runOperatorLoop(*operatorSocket);
}
