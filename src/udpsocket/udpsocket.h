// UDP over IPv4, and the addresses of this machine's network interfaces.
#pragma once

#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/time.h>

class NetworkInfo {
  public:
    /// A property of an interface; the values, except kALL, are the Linux interface requests.
    enum IF_CONFIG {
        kHWADDR = SIOCGIFHWADDR,    ///< MAC address, "%02x:..."
        kADDR = SIOCGIFADDR,        ///< IPv4 address
        kBRDADDR = SIOCGIFBRDADDR,  ///< broadcast address
        kNETMASK = SIOCGIFNETMASK,  ///< netmask
        kALL = 35100                ///< "mac:%s@ip:%s@mask:%s@braod:%s"
    };

    /// Writes one text of the interface to out: at most 32 bytes with the terminator, 160 for
    /// kALL. Empty texts and true for an interface that this machine lacks or that has no
    /// address; false for an unknown selector or a failing request.
    static bool GetNetworkInfo(const char *ifname, IF_CONFIG which, char *out);
};

/// One datagram socket with a fixed destination and the sender of the last datagram. Only one
/// thread at a time may receive on it and answer that sender. Errors come back as -1 or false, and
/// functions that set the socket up also print most of them; nothing is retried, and a descriptor
/// stays open when a later step of its creation failed.
class UDPSocket : public NetworkInfo {
  public:
    UDPSocket();
    ~UDPSocket();
    UDPSocket(const UDPSocket &) = delete;
    UDPSocket &operator=(const UDPSocket &) = delete;

    /// Binds to port (host order, like every port here) on all addresses. With useTimeout every
    /// receive is bounded by timeout seconds. The descriptor, or -1.
    int CreateUDPServer(unsigned port, int timeout, bool useTimeout, bool reuseAddr);
    /// Sets the destination of SendTo(buf, len); a null ip leaves its address as it is.
    int CreateUDPClient(const char *ip, unsigned port, bool nonBlocking, bool connectPeer);
    void CloseUDPSocket();

    /// Bytes received (0 also for an empty datagram), 0 when the time-out ran out, -1 on error.
    /// Waits without limit on a socket without time-out. The text has no terminator.
    int RecvFrom(char *buf, long len);
    /// To the fixed destination. Bytes sent, or -1.
    int SendTo(const char *buf, long len);
    int SendTo(const char *ip, unsigned port, const char *buf, long len);
    /// To the sender of the last datagram; -1 before there was one.
    int EchoTo(const char *buf, long len);

    /// From now on SendTo(buf, len) sends to the interface's broadcast address, or to
    /// 255.255.255.255 without ifname.
    bool AddBroadCast(const char *ifname);
    bool AddMemberShip(const char *group, const char *ifname, bool reuseAddr);
    bool DropMemberShip();
    /// Binds to the interface's address; port 0 lets the system choose.
    bool BindLocalAddr(const char *ifname, unsigned port, bool reuseAddr);

    int GetRevBuf();
    int GetSndBuf();
    bool SetRevBuf(int size);
    bool SetSndBuf(int size);
    sockaddr_in GetClientSockaddr();
    bool setnonblocking();

    /// Takes 100 ms: discards what is queued and what arrives in that time. False on a socket
    /// without time-out or without descriptor.
    bool delRcvBuff();

  private:
    bool setOption(int level, int option, const void *value, socklen_t size, const char *error);
    bool reuseAddress();
    int receive(char *buf, long len);
    bool arm();
    void disarm();

    int socket_;
    bool bconnect_;
    socklen_t socklen_;
    ip_mreq multicastreq_;
    sockaddr_in serveraddr_;  ///< bound address of a server, fixed destination of a client
    sockaddr_in clientaddr_;  ///< sender of the last datagram
    bool noblock;             ///< despite its name: a receive waits in select, with the time-out
    fd_set rdFd;
    int maxFd;
    timeval timeout;  ///< select writes the remaining time here
    int t_out_s;
};
