// A UDP port that answers as a test wants.
#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "datagram_socket.h"

namespace test {

class Responder {
  public:
    using Answer = std::function<std::optional<std::string>(const std::string &)>;

    /// answer is called from a thread of the responder's own.
    Responder(const std::string &address, std::uint16_t port, Answer answer)
        : socket_(address, port, address), answer_(std::move(answer)) {
        thread_ = std::thread([this] { serve(); });
    }
    ~Responder() {
        ending_ = true;
        thread_.join();
    }
    Responder(const Responder &) = delete;
    Responder &operator=(const Responder &) = delete;

  private:
    void serve() {
        while (!ending_) {
            const auto asked = socket_.receive(std::chrono::milliseconds(20));
            const auto text = asked ? answer_(asked->text) : std::nullopt;
            if (text) socket_.send(asked->sender, asked->senderPort, *text);
        }
    }

    console::DatagramSocket socket_;
    const Answer answer_;
    std::atomic<bool> ending_{false};
    std::thread thread_;
};

}  // namespace test
