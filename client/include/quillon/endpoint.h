// One endpoint as a console sees it: a UDP port that takes records and answers short texts.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace quillon {

class Endpoint {
  public:
    /// Talks to address:port (IPv4, dotted), from the local address from unless that is empty.
    /// Throws std::runtime_error when the system refuses.
    Endpoint(const std::string &address, std::uint16_t port, const std::string &from);
    ~Endpoint();
    Endpoint(const Endpoint &) = delete;
    Endpoint &operator=(const Endpoint &) = delete;

    /// Sends one datagram. Throws std::runtime_error when it cannot leave, or when the endpoint's
    /// machine said that nobody listens.
    void send(const void *bytes, std::size_t size);

    /// Sends a text and waits for the answer; none when the time-out ran out.
    std::optional<std::string> ask(const std::string &text, std::chrono::milliseconds timeout);

    /// An answer that is there already, to whatever was sent. Throws std::runtime_error when the
    /// endpoint's machine said that nobody listens.
    std::optional<std::string> receive();
    /// To wait on for receive.
    int fd() const { return fd_; }

    std::string name() const { return name_; }
    /// The local address that is sent from.
    std::string ownAddress() const;

  private:
    int fd_ = -1;
    std::string name_;
};

}  // namespace quillon
