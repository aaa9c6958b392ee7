// A console that runs on: it answers heartbeats, shows link messages, and answers the questions
// whether another user may take control.
#pragma once

#include <csignal>
#include <string>

namespace quillon {

struct WatchOptions {
    std::string address;   ///< own address, at which messages and heartbeats come in
    std::string endpoint;  ///< its questions go before those of other endpoints; empty for none
    /// How an endpoint is answered that asks for consent; kAsk asks the person at the terminal.
    enum Consent { kAsk, kGrant, kRefuse, kSilent } consent = kSilent;
    bool json = false;
};

/// Answers heartbeats, prints every message about control, and answers the questions for consent,
/// until stop is not 0. Throws std::runtime_error when a port cannot be had.
void watch(const WatchOptions &options, const volatile std::sig_atomic_t &stop);

}  // namespace quillon
