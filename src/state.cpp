#include "state.h"

std::string localip;
char curLocalIp[kAddressSize];
HDINFO hd_info = QBX_3000;
bool version = false;

bool per = false;
bool rel_enable = false;
bool query_link = false;
bool usb_to_pc = false;

bool outCapsLock = false, outNumLock = false;

bool is_finish = false;
bool pthread_vi_get = true;

unsigned vi_w = 1920, vi_h = 1080;

CURRENTINFO curtInfo;
unsigned curLink_num = 0;
unsigned linkTableChanges = 0;

char tmpOutIp[128][128];
int tmpLinkNum = 0;

UDPSocket *multiSocket, *applySocket, *htBeatSocket, *udpsocket, *osdSocket;
bool enMultiSocket, enApplySocket, enHtBeatSocket, enUdpSocket, enOsdSocket;

int c_netmsgid = -1, c_osdmsgid = -1;
int c_netmsgtype = 1, c_osdmsgtype = 2;
const char *c_netmsgpath = ".", *c_osdmsgpath = "..";
