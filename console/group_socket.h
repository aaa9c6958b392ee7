// A socket that sends to and hears a multicast group.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace console {

class GroupSocket {
  public:
    /// Joins group on the interface with the address from (the system's choice without it), bound
    /// to port (0: any). Throws std::runtime_error when the system refuses.
    GroupSocket(const std::string &group, std::uint16_t port, const std::string &from);
    ~GroupSocket();
    GroupSocket(const GroupSocket &) = delete;
    GroupSocket &operator=(const GroupSocket &) = delete;

    void send(const std::string &address, std::uint16_t port, const std::string &text);

    struct Received {
        std::string text, sender;
    };
    /// One datagram; none when the time-out ran out.
    std::optional<Received> receive(std::chrono::milliseconds timeout);

  private:
    int fd_ = -1;
};

}  // namespace console
