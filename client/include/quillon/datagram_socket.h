// A UDP socket at an address of this machine, or in a multicast group. An object is for one thread
// at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace quillon {

class DatagramSocket {
  public:
    /// Whether other sockets of this machine may have the same address and port. A datagram to a
    /// shared one reaches only one of them, unless it is a group's.
    enum Sharing { kShared, kAlone };

    /// Binds to address (IPv4 in dotted form; empty: every address; a multicast group is joined)
    /// and port (0: the system chooses). Groups are joined and sent to on the interface with the
    /// address from; when that is empty, the system chooses. Throws std::system_error when the
    /// system refuses, with EADDRINUSE when another socket has the port alone.
    DatagramSocket(const std::string &address, std::uint16_t port, const std::string &from,
                   Sharing sharing = kShared);
    ~DatagramSocket();
    DatagramSocket(const DatagramSocket &) = delete;
    DatagramSocket &operator=(const DatagramSocket &) = delete;

    /// Sends one datagram. Throws std::system_error when it cannot leave.
    void send(const std::string &address, std::uint16_t port, const std::string &text);

    struct Received {
        std::string text;    ///< foreign text: any bytes, 2048 at most
        std::string sender;  ///< IPv4 address, dotted
        std::uint16_t senderPort;
    };
    /// Waits for one datagram, as long as timeout; none after that. 0 does not wait.
    std::optional<Received> receive(std::chrono::milliseconds timeout);

    /// The socket, to poll for input before receive(); it stays the object's.
    int fd() const { return fd_; }

  private:
    int fd_ = -1;
};

}  // namespace quillon
