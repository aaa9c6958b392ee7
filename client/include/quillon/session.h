// What a console asks an endpoint and tells it to do. Where an endpoint does not answer a command,
// the functions ask afterwards whether it took effect.
//
// Every function waits for its answers, as long as the object's time-out for each, and throws
// std::runtime_error with a sentence for a person when it did not work. What an endpoint said may
// stand in that sentence as it came: make it printable before a terminal gets it. An object is for
// one thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "protocol/answers.h"
#include <quillon/endpoint.h>

namespace quillon {

/// An endpoint's record port and its operator port.
class Session {
  public:
    /// timeout: for each answer; lock keys take more than 190 ms, the USB-link test 600 ms.
    /// to, from: IPv4 addresses in dotted form; with an empty from the system chooses. dataPort:
    /// the endpoint's record port, kRecordPort unless its settings say otherwise. Sends nothing
    /// yet.
    Session(const std::string &to, std::uint16_t dataPort, const std::string &from,
            std::chrono::milliseconds timeout);

    /// The record port, for records.
    Endpoint &data() { return data_; }
    /// The endpoint's address.
    const std::string &to() const { return to_; }
    /// The address of this machine that the endpoint sees.
    std::string ownAddress() const { return data_.ownAddress(); }

    /// Picture size and mouse mode.
    Link link();
    /// The computer's lock LEDs. The endpoint forwards no record while it asks its chip for them,
    /// 190 ms and more.
    LockKeys lockKeys();
    /// Who holds control.
    Holder holder();
    /// Carries out an operator command that has no answer (see requests.h), and returns who holds
    /// control when the endpoint is done with it. Waits for that as long as patience and one
    /// time-out, because an endpoint takes its commands one after the other and may wait 10 s for a
    /// user's consent.
    Holder holderAfter(const std::string &command, std::chrono::milliseconds patience);
    Settings settings();
    /// The same, sent by the endpoint to the group of all endpoints.
    Settings settingsViaGroup();
    /// Whether a computer is on the USB cable. The endpoint strokes Num Lock to find out, and takes
    /// no records meanwhile, some 600 ms.
    bool usbLinked();

    // Each returns when the endpoint reports the new state, and throws when it reports another.
    /// asSoftware: marks the request as sent by software, so that it is taken from everybody.
    void setLockKeys(LockKeys wanted, bool asSoftware = false);
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
