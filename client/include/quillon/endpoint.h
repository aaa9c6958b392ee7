// One UDP port of an endpoint, which takes records or answers short texts. An object is for one
// thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace quillon {

class Endpoint {
  public:
    /// Opens a socket for address:port (IPv4 in dotted form). Datagrams leave from the local
    /// address from; when that is empty, the system chooses. Nothing is sent yet. Throws
    /// std::runtime_error for a text that is no address, and when the system refuses.
    Endpoint(const std::string &address, std::uint16_t port, const std::string &from);
    ~Endpoint();
    Endpoint(const Endpoint &) = delete;
    Endpoint &operator=(const Endpoint &) = delete;

    /// Sends one datagram, without waiting for anything but room in the socket. Throws
    /// std::runtime_error when it cannot leave, or when the endpoint's machine answered an earlier
    /// datagram with "nobody listens"; then this one did not leave.
    void send(const void *bytes, std::size_t size);

    /// Sends a text and waits for the answer, as long as timeout; none after that. Answers to
    /// earlier texts, and what the endpoint's machine said to them, are thrown away before. Throws
    /// like send().
    std::optional<std::string> ask(const std::string &text, std::chrono::milliseconds timeout);

    /// An answer that is there already, to whatever was sent, of 1500 bytes at most; does not wait.
    /// Throws std::runtime_error when the endpoint's machine said that nobody listens.
    std::optional<std::string> receive();
    /// The socket, to poll for input before receive(); it stays the object's.
    int fd() const { return fd_; }

    /// "ADDRESS:PORT".
    std::string name() const { return name_; }
    /// The local address that datagrams leave from.
    std::string ownAddress() const;

  private:
    int fd_ = -1;
    std::string name_;
};

}  // namespace quillon
