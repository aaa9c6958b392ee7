// A console that stays on: alive for the endpoints that it holds, and told of who controls what.
#pragma once

#include <csignal>
#include <string>

namespace quillon {

struct WatchOptions {
    std::string address;   ///< own address, at which messages and heartbeats come in
    std::string endpoint;  ///< whose questions go before those of others; empty for none
    /// What an endpoint is answered when somebody wants the control that is held here.
    enum Consent { kAsk, kGrant, kRefuse, kSilent } consent = kSilent;
    bool json = false;
};

/// Answers heartbeats, prints every message about control, and answers the questions for consent,
/// until stop is not 0. Throws std::runtime_error when a port cannot be had.
void watch(const WatchOptions &options, const volatile std::sig_atomic_t &stop);

}  // namespace quillon
