// A UDP socket at an address of this machine, or in a multicast group.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace quillon {

class DatagramSocket {
  public:
    /// Whether other sockets of this machine may have the same address and port.
    enum Sharing { kShared, kAlone };

    /// Bound to address (empty: any; a multicast group is joined) and port (0: any). Groups are
    /// joined and sent to on the interface with the address from, the system's choice without it.
    /// Throws std::system_error when the system refuses.
    DatagramSocket(const std::string &address, std::uint16_t port, const std::string &from,
                   Sharing sharing = kShared);
    ~DatagramSocket();
    DatagramSocket(const DatagramSocket &) = delete;
    DatagramSocket &operator=(const DatagramSocket &) = delete;

    /// Throws std::system_error when it cannot leave.
    void send(const std::string &address, std::uint16_t port, const std::string &text);

    struct Received {
        std::string text, sender;
        std::uint16_t senderPort;
    };
    /// One datagram; none when the time-out ran out.
    std::optional<Received> receive(std::chrono::milliseconds timeout);

    /// To wait on.
    int fd() const { return fd_; }

  private:
    int fd_ = -1;
};

}  // namespace quillon
