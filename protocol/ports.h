// The UDP ports and multicast groups of endpoints and consoles, for every tool. The daemon has a
// list of its own in src/ports.h: each is the other's check.
#pragma once

#include <cstdint>

namespace quillon {

/// An endpoint takes console records here unless its setting udpserver_port says otherwise.
constexpr std::uint16_t kRecordPort = 80;
/// An endpoint takes operator commands here, at its address and in the group of all endpoints.
constexpr std::uint16_t kOperatorPort = 41302;
constexpr char kEndpointGroup[] = "224.168.1.1";
/// Port of that group to which an endpoint sends its settings when "getKvmInfo:ADDRESS" asks.
constexpr std::uint16_t kSettingsPort = 4001;

/// From these ports an endpoint sends heartbeats, questions for consent, and who holds control.
constexpr std::uint16_t kHeartbeatPort = 41301, kConsentPort = 41303, kAnnouncePort = 41304;

/// A console takes link messages here, at its address and in the group of all consoles.
constexpr std::uint16_t kConsolePort = 2333;
constexpr char kConsoleGroup[] = "225.168.1.168";
/// A console answers heartbeats here.
constexpr std::uint16_t kOutputPort = 41237;

}  // namespace quillon
