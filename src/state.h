// The variables that the daemon's threads share. None is locked: flags and counters are read and
// written whole, and every reader tolerates a value that changes between two of its reads.
#pragma once

#include <string>

class UDPSocket;

/// Hardware families; they differ in how the USB power line is switched.
typedef enum hd_info_ { QBX_3000 = 0, QBX_300 = 1, QBX_31DV200 = 2 } HDINFO;

/// Output consoles that one user can hold at a time.
constexpr unsigned kMaxOutputs = 8;
/// Room for a dotted IPv4 address and its terminator.
constexpr unsigned kAddressSize = 16;

/// Who controls this endpoint, and on which outputs.
typedef struct currentInfo_ {
    char curName[32];  ///< by convention begins with the console's address and "-"; empty: nobody
    int curOutPre;     ///< level, larger is stronger; 0 after an output missed two heartbeats
    int heartPre;      ///< the level to restore when a lost output answers again; not persisted
    char curOutIp[kMaxOutputs][kAddressSize];  ///< output addresses, packed from slot 0
    int link[kMaxOutputs];                     ///< 1 where the slot is in use
} CURRENTINFO;

// Set once at start-up by the main thread.
extern std::string localip;            ///< own address as read from the network settings
extern char curLocalIp[kAddressSize];  ///< the same, as messages carry it
extern HDINFO hd_info;
extern bool version;  ///< true for a CH9329, see usesCh9329()

// Modes: the main thread writes, the data server reads.
extern bool per;         ///< permissions on: only linked consoles may send
extern bool rel_enable;  ///< relative mouse mode
extern bool query_link;  ///< a USB-link test runs: no console frames on the serial line
extern bool usb_to_pc;   ///< reserved; nobody reads or writes it

// Lock-key states that consoles asked for; only the data server uses them.
extern bool outCapsLock, outNumLock;

// Requests to stop a thread.
extern bool is_finish;       ///< data server; never set by the daemon itself
extern bool pthread_vi_get;  ///< video watch keeps running while true

// Size of the picture; the video watch writes, the data server reads.
extern unsigned vi_w, vi_h;

// The link table. The main thread writes it; the heartbeat thread writes only its levels. Other
// threads read the outputs through linkedSlots() of main/link_table.h.
extern CURRENTINFO curtInfo;
extern unsigned curLink_num;       ///< slots of curtInfo in use
extern unsigned linkTableChanges;  ///< goes up by two with each change, and is odd during one

// Scratch list of console addresses; cleared when the data server starts.
extern char tmpOutIp[128][128];
extern int tmpLinkNum;

// Sockets, each with a flag that it was created. osdSocket stays null: main() owns the operator
// socket, which the signal handler leaves open.
extern UDPSocket *multiSocket, *applySocket, *htBeatSocket, *udpsocket, *osdSocket;
extern bool enMultiSocket, enApplySocket, enHtBeatSocket, enUdpSocket, enOsdSocket;

// Message queues of the upload service.
extern int c_netmsgid, c_osdmsgid;
extern int c_netmsgtype, c_osdmsgtype;
extern const char *c_netmsgpath, *c_osdmsgpath;

/// True for a CH9329, which takes frames; false for a CH9350, which takes records as they are.
inline bool usesCh9329() {
    return version;
}

/// Reads a variable that another thread may write; atomic, without ordering.
template <class T>
T sharedLoad(const T &word) {
    return __atomic_load_n(&word, __ATOMIC_RELAXED);
}

/// Writes a variable that another thread may read; atomic, without ordering.
template <class T>
void sharedStore(T &word, T value) {
    __atomic_store_n(&word, value, __ATOMIC_RELAXED);
}
