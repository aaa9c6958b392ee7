#include "service/udp_ports.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <stdexcept>

namespace service {

std::vector<UdpSocket> udpSockets() {
    constexpr char kTable[] = "/proc/self/net/udp";
    FILE *table = fopen(kTable, "re");
    if (table == nullptr) throw std::runtime_error(std::string("cannot read ") + kTable);
    std::vector<UdpSocket> sockets;
    char line[512];
    while (fgets(line, sizeof line, table) != nullptr) {
        UdpSocket socket{};
        unsigned port = 0;
        // slot: address:port peer:port state send:receive timer:when retransmit user timeout inode
        constexpr char kFormat[] = "%*d: %*8x:%4x %*8x:%*4x %*2x %*8x:%8lx %*x:%*x %*x %u %*d %lu";
        if (sscanf(line, kFormat, &port, &socket.waiting, &socket.user, &socket.inode) != 4)
            continue;
        socket.port = static_cast<std::uint16_t>(port);
        sockets.push_back(socket);
    }
    fclose(table);
    return sockets;
}

std::vector<UdpSocket> udpSocketsAt(std::uint16_t port) {
    std::vector<UdpSocket> found;
    for (const UdpSocket &socket : udpSockets())
        if (socket.port == port) found.push_back(socket);
    return found;
}

}  // namespace service
