#include "service/udp_ports.h"

#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace service {
namespace {

void readTable(const char *path, std::vector<UdpSocket> &sockets) {
    FILE *table = fopen(path, "re");
    if (table == nullptr) throw std::runtime_error(std::string("cannot read ") + path);
    char line[512];
    while (fgets(line, sizeof line, table) != nullptr) {
        UdpSocket socket{};
        unsigned port = 0;
        // slot: address:port peer:port state send:receive timer:when retransmit user timeout inode
        constexpr char kFormat[] =
            "%*d: %*[0-9A-F]:%4x %*[0-9A-F]:%*4x %*2x %*8x:%8lx %*x:%*x %*x %u %*d %lu";
        if (sscanf(line, kFormat, &port, &socket.waiting, &socket.user, &socket.inode) != 4)
            continue;
        socket.port = static_cast<std::uint16_t>(port);
        sockets.push_back(socket);
    }
    fclose(table);
}

}  // namespace

std::vector<UdpSocket> udpSocketsAt(std::uint16_t port) {
    std::vector<UdpSocket> all, found;
    readTable("/proc/self/net/udp", all);
    // A socket of IPv6 can have an IPv4 address, too. A kernel without IPv6 has no such table.
    if (access("/proc/self/net/udp6", F_OK) == 0) readTable("/proc/self/net/udp6", all);
    for (const UdpSocket &socket : all)
        if (socket.port == port) found.push_back(socket);
    return found;
}

}  // namespace service
