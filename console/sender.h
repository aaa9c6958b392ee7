// Sending records to an endpoint, paced, and letting everything go at the end.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "console/options.h"
#include "protocol/input.h"
#include <quillon/session.h>

namespace quillon {

/// Sends records at a rate that the chip takes: its line has 115200 bits per second and no flow
/// control. Whatever ends it, keys and buttons are let go, and more than once: nobody repeats what
/// a line loses, and a socket reports the loss of a datagram only when the next one is sent.
class Sender {
  public:
    /// Throws std::runtime_error when the endpoint would not take records from this address; says
    /// on standard error when that is not certain.
    explicit Sender(const Options &options);
    ~Sender() { letGo(); }
    Sender(const Sender &) = delete;
    Sender &operator=(const Sender &) = delete;

    Session &session() { return session_; }

    /// Sends the records, or those before a signal asks the program to end. progress: a word for a
    /// line on standard error that shows how far it is, null for none. Throws std::runtime_error
    /// when a record cannot leave.
    void send(const std::vector<Datagram> &records, const char *progress = nullptr);

  private:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    void askPermission();
    void sendOne(const Datagram &record);
    bool trySend(const Datagram &record);
    void letGo();
    void pause(Milliseconds time);

    Session session_;
    const std::string tag_;
    const Milliseconds interval_, patience_;
    const unsigned repeat_;
    Clock::time_point due_ = Clock::now();
    /// For each kind of record, told by its size, the last one's release.
    std::map<std::size_t, Datagram> release_;
};

}  // namespace quillon
