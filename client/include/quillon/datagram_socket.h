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
    /// kAlone: the port must be free. kShared: it may also be one that another socket of this
    /// machine shares. Either way no later socket gets it, but for the port of a multicast group.
    enum Sharing { kShared, kAlone };

    /// Binds to address (IPv4 in dotted form; empty: every address; a multicast group is joined)
    /// and port (0: the system chooses). Groups are joined and sent to on the interface with the
    /// address from; when that is empty, the system chooses. Throws std::runtime_error for a text
    /// that is no address, and its descendant std::system_error when the system refuses, with
    /// EADDRINUSE when another socket has the port.
    DatagramSocket(const std::string &address, std::uint16_t port, const std::string &from,
                   Sharing sharing = kShared);
    ~DatagramSocket();
    DatagramSocket(const DatagramSocket &) = delete;
    DatagramSocket &operator=(const DatagramSocket &) = delete;

    /// Sends one datagram. Throws std::system_error when it cannot leave, std::runtime_error for a
    /// text that is no address.
    void send(const std::string &address, std::uint16_t port, const std::string &text);

    struct Received {
        std::string text;    ///< foreign text: any bytes, 2048 at most
        std::string sender;  ///< IPv4 address, dotted
        std::uint16_t senderPort;
    };
    /// Waits for one datagram, as long as timeout; 0 does not wait. None after that, after a
    /// signal, and when the system refuses. A longer datagram is cut.
    std::optional<Received> receive(std::chrono::milliseconds timeout);

    /// The socket, to poll for input before receive(); it stays the object's.
    int fd() const { return fd_; }

  private:
    int fd_ = -1;
};

}  // namespace quillon
