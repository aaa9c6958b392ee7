// What the console asks of an endpoint and tells it to do, verified where the endpoint says
// nothing. Every function throws std::runtime_error, in words for the person, when it did not work.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "protocol/answers.h"
#include <quillon/endpoint.h>

namespace quillon {

/// An endpoint's two ports.
class Session {
  public:
    Session(const std::string &to, std::uint16_t dataPort, const std::string &from,
            std::chrono::milliseconds timeout);

    Endpoint &data() { return data_; }
    /// The endpoint's address.
    const std::string &to() const { return to_; }
    /// Own address as the endpoint sees it.
    std::string ownAddress() const { return data_.ownAddress(); }

    Link link();
    LockKeys lockKeys();
    Holder holder();
    /// Carries out an operator's command that has no answer, and tells who has control when the
    /// endpoint is done with it; that may take up to patience.
    Holder holderAfter(const std::string &command, std::chrono::milliseconds patience);
    Settings settings();
    /// The same, sent by the endpoint to everybody on its network.
    Settings settingsViaGroup();
    bool usbLinked();

    /// Sets both keys, and sees that the computer followed.
    void setLockKeys(LockKeys wanted);
    void setMouseMode(bool relative);
    void setPermissions(bool on);
    void setUsbPower(bool on);

  private:
    std::string ask(Endpoint &endpoint, const std::string &request);
    void setVerified(const std::string &command, const std::string &key, bool on);

    std::string to_, from_;
    std::chrono::milliseconds timeout_;
    Endpoint data_, operators_;
};

}  // namespace quillon
