#include "udpsocket/udpsocket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::size_t kTextSize = 32;
constexpr std::size_t kAllTextSize = 160;

struct InterfaceTexts {
    char mac[kTextSize];
    char address[kTextSize];
    char broadcast[kTextSize];
    char netmask[kTextSize];
};

void dotted(const sockaddr &address, char *out) {
    // Copied, because the generic address that holds the IPv4 one has a smaller alignment.
    sockaddr_in in;
    memcpy(&in, &address, sizeof in);
    inet_ntop(AF_INET, &in.sin_addr, out, kTextSize);
}

bool ask(int fd, unsigned long request, ifreq &record, const char *error) {
    if (ioctl(fd, request, &record) >= 0) return true;
    perror(error);
    return false;
}

// Each request overwrites the answer in record and keeps the interface name.
bool readInterface(int fd, ifreq record, InterfaceTexts &texts) {
    if (!ask(fd, SIOCGIFHWADDR, record, "ioctl error: SIOCGIFHWADDR")) return false;
    unsigned char mac[6];
    memcpy(mac, record.ifr_hwaddr.sa_data, sizeof mac);
    snprintf(texts.mac, sizeof texts.mac, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
             mac[3], mac[4], mac[5]);
    if (!ask(fd, SIOCGIFADDR, record, "ioctl error: SIOCGIFADDR")) return false;
    dotted(record.ifr_addr, texts.address);
    if (!ask(fd, SIOCGIFBRDADDR, record, "ioctl error: SIOCGIFBRDADDR")) return false;
    dotted(record.ifr_broadaddr, texts.broadcast);
    if (!ask(fd, SIOCGIFNETMASK, record, "ioctl error: SIOCGIFNETMASK")) return false;
    dotted(record.ifr_netmask, texts.netmask);
    return true;
}

bool findInterface(int fd, const char *ifname, InterfaceTexts &texts) {
    // 512 bytes of records. A record has 32 bytes on the board and 40 on a 64-bit machine.
    ifreq records[512 / sizeof(ifreq)];
    ifconf list{};
    list.ifc_len = sizeof records;
    list.ifc_req = records;
    if (ioctl(fd, SIOCGIFCONF, &list) < 0) {
        perror("ioctl error: SIOCGIFCONF");
        return false;
    }
    for (std::size_t i = static_cast<std::size_t>(list.ifc_len) / sizeof(ifreq); i-- > 0;) {
        if (strncmp(records[i].ifr_name, ifname, IFNAMSIZ) != 0) continue;
        ifreq flags = records[i];
        if (!ask(fd, SIOCGIFFLAGS, flags, "ioctl warning: SIOCGIFFLAGS")) continue;
        if (!readInterface(fd, records[i], texts)) return false;
    }
    return true;
}

bool selectText(const InterfaceTexts &texts, NetworkInfo::IF_CONFIG which, char *out) {
    switch (which) {
        case NetworkInfo::kHWADDR:
            snprintf(out, kTextSize, "%s", texts.mac);
            return true;
        case NetworkInfo::kADDR:
            snprintf(out, kTextSize, "%s", texts.address);
            return true;
        case NetworkInfo::kBRDADDR:
            snprintf(out, kTextSize, "%s", texts.broadcast);
            return true;
        case NetworkInfo::kNETMASK:
            snprintf(out, kTextSize, "%s", texts.netmask);
            return true;
        case NetworkInfo::kALL:
            // Deliberate: programs that read this text know the key as "braod".
            snprintf(out, kAllTextSize, "mac:%s@ip:%s@mask:%s@braod:%s", texts.mac, texts.address,
                     texts.netmask, texts.broadcast);
            return true;
        default:
            return false;
    }
}

sockaddr_in ipv4(in_addr_t address, unsigned port) {
    sockaddr_in in{};
    in.sin_family = AF_INET;
    in.sin_port = htons(static_cast<in_port_t>(port));
    in.sin_addr.s_addr = address;
    return in;
}

const sockaddr *generic(const sockaddr_in &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

}  // namespace

bool NetworkInfo::GetNetworkInfo(const char *ifname, IF_CONFIG which, char *out) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) {
        perror("socket create error");
        return false;
    }
    InterfaceTexts texts{};
    const bool ok = findInterface(fd, ifname, texts) && selectText(texts, which, out);
    close(fd);
    return ok;
}

UDPSocket::UDPSocket()
    : socket_(-1),
      bconnect_(false),
      socklen_(sizeof(sockaddr_in)),
      multicastreq_{},
      serveraddr_{},
      clientaddr_{},
      noblock(false),
      maxFd(0),
      timeout{},
      t_out_s(0) {
    FD_ZERO(&rdFd);
}

UDPSocket::~UDPSocket() {
    if (socket_ != -1) close(socket_);
}

bool UDPSocket::setOption(int level, int option, const void *value, socklen_t size,
                          const char *error) {
    if (setsockopt(socket_, level, option, value, size) == 0) return true;
    perror(error);
    return false;
}

bool UDPSocket::reuseAddress() {
    const int on = 1;
    return setOption(SOL_SOCKET, SO_REUSEADDR, &on, sizeof on, "setsockopt():SO_REUSEADDR");
}

int UDPSocket::CreateUDPServer(unsigned port, int seconds, bool useTimeout, bool reuseAddr) {
    serveraddr_ = ipv4(INADDR_ANY, port);
    socket_ = socket(AF_INET, SOCK_DGRAM, 0);
    if (socket_ < 0) {
        perror("can't create socket file");
        return -1;
    }
    if (reuseAddr && !reuseAddress()) return -1;
    noblock = useTimeout;
    if (useTimeout) {
        timeout = {seconds, 0};
        t_out_s = seconds;
        printf("set timeout -->%lds,%ldus\n", static_cast<long>(seconds), 0L);
    }
    if (bind(socket_, generic(serveraddr_), sizeof serveraddr_) < 0) {
        perror("bind error");
        return -1;
    }
    return socket_;
}

int UDPSocket::CreateUDPClient(const char *ip, unsigned port, bool nonBlocking, bool connectPeer) {
    serveraddr_ = ipv4(ip != nullptr ? inet_addr(ip) : serveraddr_.sin_addr.s_addr, port);
    socket_ = socket(AF_INET, SOCK_DGRAM, 0);
    if (socket_ < 0) {
        perror("can't create socket file");
        return -1;
    }
    if (connectPeer) {
        if (connect(socket_, generic(serveraddr_), sizeof serveraddr_) < 0) {
            perror("connect error");
            return -1;
        }
        bconnect_ = true;
    }
    if (nonBlocking) setnonblocking();
    return socket_;
}

void UDPSocket::CloseUDPSocket() {
    if (socket_ == -1) return;
    close(socket_);
    socket_ = -1;
}

int UDPSocket::receive(char *buf, long len) {
    return static_cast<int>(recvfrom(socket_, buf, static_cast<std::size_t>(len), 0,
                                     reinterpret_cast<sockaddr *>(&clientaddr_), &socklen_));
}

// False when the descriptor does not fit into an fd_set.
bool UDPSocket::arm() {
    FD_ZERO(&rdFd);
    if (socket_ < 0 || socket_ >= FD_SETSIZE) return false;
    FD_SET(socket_, &rdFd);
    maxFd = (socket_ > maxFd ? socket_ : maxFd) + 1;
    return true;
}

void UDPSocket::disarm() {
    FD_ZERO(&rdFd);
    maxFd = 0;
}

int UDPSocket::RecvFrom(char *buf, long len) {
    if (!noblock) return receive(buf, len);

    // Deliberate: the microseconds stay as the last select left them.
    timeout.tv_sec = t_out_s;
    const int ready = arm() ? select(maxFd, &rdFd, nullptr, nullptr, &timeout) : -1;
    int result = -1;
    if (ready == 0) {
        printf("rcv timeout-->%lds:%ldus\n", static_cast<long>(timeout.tv_sec),
               static_cast<long>(timeout.tv_usec));
        result = 0;
    } else if (ready < 0) {
        puts("select rcvfrom timeout");
    } else if (FD_ISSET(socket_, &rdFd)) {
        result = receive(buf, len);
    }
    disarm();
    return result;
}

int UDPSocket::SendTo(const char *buf, long len) {
    if (serveraddr_.sin_addr.s_addr == 0) {
        puts("please intput client_ip and client_port");
        return -1;
    }
    const auto size = static_cast<std::size_t>(len);
    if (bconnect_) return static_cast<int>(write(socket_, buf, size));
    return static_cast<int>(
        sendto(socket_, buf, size, 0, generic(serveraddr_), sizeof serveraddr_));
}

int UDPSocket::SendTo(const char *ip, unsigned port, const char *buf, long len) {
    if (ip == nullptr || buf == nullptr) return -1;
    const sockaddr_in to = ipv4(inet_addr(ip), port);
    return static_cast<int>(
        sendto(socket_, buf, static_cast<std::size_t>(len), 0, generic(to), sizeof to));
}

int UDPSocket::EchoTo(const char *buf, long len) {
    if (clientaddr_.sin_addr.s_addr == 0) return -1;
    return static_cast<int>(
        sendto(socket_, buf, static_cast<std::size_t>(len), 0, generic(clientaddr_), socklen_));
}

bool UDPSocket::AddBroadCast(const char *ifname) {
    const int on = 1;
    if (!setOption(SOL_SOCKET, SO_BROADCAST, &on, sizeof on, "setsockopt():SO_BROADCAST"))
        return false;
    if (ifname == nullptr) {
        serveraddr_.sin_addr.s_addr = INADDR_BROADCAST;
        return true;
    }
    char address[kTextSize] = "";
    if (!GetNetworkInfo(ifname, kBRDADDR, address)) return false;
    serveraddr_.sin_addr.s_addr = inet_addr(address);
    return true;
}

bool UDPSocket::AddMemberShip(const char *group, const char *ifname, bool reuseAddr) {
    const int on = 1;
    if (!setOption(IPPROTO_IP, IP_MULTICAST_LOOP, &on, sizeof on, "setsockopt():IP_MULTICAST_LOOP"))
        return false;
    if (reuseAddr && !reuseAddress()) return false;
    multicastreq_ = {};
    multicastreq_.imr_multiaddr.s_addr = inet_addr(group);
    if (ifname != nullptr) {
        char address[kTextSize] = "";
        if (!GetNetworkInfo(ifname, kADDR, address)) return false;
        multicastreq_.imr_interface.s_addr = inet_addr(address);
    }
    return setOption(IPPROTO_IP, IP_ADD_MEMBERSHIP, &multicastreq_, sizeof multicastreq_,
                     "setsockopt():IP_ADD_MEMBERSHIP");
}

bool UDPSocket::DropMemberShip() {
    return setOption(IPPROTO_IP, IP_DROP_MEMBERSHIP, &multicastreq_, sizeof multicastreq_,
                     "setsockopt():IP_DROP_MEMBERSHIP");
}

bool UDPSocket::BindLocalAddr(const char *ifname, unsigned port, bool reuseAddr) {
    if (reuseAddr && !reuseAddress()) return false;
    char address[kTextSize] = "";
    if (!GetNetworkInfo(ifname, kADDR, address)) return false;
    const sockaddr_in local = ipv4(inet_addr(address), port);
    if (bind(socket_, generic(local), sizeof local) < 0) {
        perror("bind error");
        return false;
    }
    return true;
}

namespace {

int bufferSize(int fd, int option, const char *error) {
    int size = 0;
    socklen_t length = sizeof size;
    if (getsockopt(fd, SOL_SOCKET, option, &size, &length) == 0) return size;
    perror(error);
    return -1;
}

}  // namespace

int UDPSocket::GetRevBuf() {
    return bufferSize(socket_, SO_RCVBUF, "getsockopt():SO_RCVBUF");
}

int UDPSocket::GetSndBuf() {
    return bufferSize(socket_, SO_SNDBUF, "getsockopt():SO_SNDBUF");
}

bool UDPSocket::SetRevBuf(int size) {
    return setOption(SOL_SOCKET, SO_RCVBUF, &size, sizeof size, "setsockopt():SO_RCVBUF");
}

bool UDPSocket::SetSndBuf(int size) {
    return setOption(SOL_SOCKET, SO_SNDBUF, &size, sizeof size, "setsockopt():SO_SNDBUF");
}

sockaddr_in UDPSocket::GetClientSockaddr() {
    return clientaddr_;
}

bool UDPSocket::setnonblocking() {
    // Deliberate: reads the descriptor flags (F_GETFD) but writes the status flags (F_SETFL).
    const int flags = fcntl(socket_, F_GETFD, 0);
    return fcntl(socket_, F_SETFL, flags | O_NONBLOCK) != -1;
}

bool UDPSocket::delRcvBuff() {
    if (!noblock || !arm()) return false;
    using Clock = std::chrono::steady_clock;
    using std::chrono::microseconds;
    constexpr microseconds kWholeDrain(100000);
    char buffer[129];
    // The limit is for the whole drain: a flood and a slow log take time too.
    const auto end = Clock::now() + kWholeDrain;
    for (;;) {
        const auto left = std::chrono::duration_cast<microseconds>(end - Clock::now());
        if (left <= microseconds::zero()) break;
        timeval wait{0, static_cast<suseconds_t>(left.count())};
        const int ready = select(maxFd, &rdFd, nullptr, nullptr, &wait);
        if (ready == 0 || (ready < 0 && errno != EINTR)) break;
        if (ready < 0 || !FD_ISSET(socket_, &rdFd)) continue;
        const int n = receive(buffer, sizeof buffer - 1);
        buffer[n > 0 ? n : 0] = '\0';
        printf("del buff-->%s\n", buffer);
    }
    disarm();
    timeout = {10, 0};
    puts("timeout rcvbuff del ok");
    return true;
}
