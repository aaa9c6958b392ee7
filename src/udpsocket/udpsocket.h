// UDP over IPv4, and what the network interfaces of this machine are called and addressed.
#pragma once

#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/time.h>

class NetworkInfo {
  public:
    /// What to tell of an interface; the values are the Linux interface requests.
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

/// One datagram socket with a fixed destination and the sender of the last datagram. One thread
/// at a time may receive on it, and answers are that thread's too. Errors are printed with perror
/// and come back as -1 or false; nothing is retried, and a descriptor stays open when a later step
/// of its creation failed.
class UDPSocket : public NetworkInfo {
  public:
    UDPSocket();
    ~UDPSocket();
    UDPSocket(const UDPSocket &) = delete;
    UDPSocket &operator=(const UDPSocket &) = delete;

    /// Binds to port (host order, like every port here) on all addresses. With useTimeout every
    /// receive is bounded by timeout seconds. The descriptor, or -1.
    int CreateUDPServer(unsigned port, int timeout, bool useTimeout, bool reuseAddr);
    /// Fixes the destination of SendTo(buf, len); a null ip leaves its address as it is.
    int CreateUDPClient(const char *ip, unsigned port, bool nonBlocking, bool connectPeer);
    void CloseUDPSocket();

    /// Bytes received, 0 when the time-out ran out, -1 on error. The text has no terminator.
    int RecvFrom(char *buf, long len);
    /// To the fixed destination. Bytes sent, or -1.
    int SendTo(const char *buf, long len);
    int SendTo(const char *ip, unsigned port, const char *buf, long len);
    /// To the sender of the last datagram; -1 before there was one.
    int EchoTo(const char *buf, long len);

    /// Sends to the interface's broadcast address from now on, to 255.255.255.255 without ifname.
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

    /// Throws away what is queued, for at most 100 ms; false on a socket without time-out or
    /// without descriptor.
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
    bool noblock;             ///< despite its name: receives are bounded by select
    fd_set rdFd;
    int maxFd;
    timeval timeout;  ///< select leaves the time that was left here
    int t_out_s;
};
