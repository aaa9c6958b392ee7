// Every UDP port and multicast group of the daemon except the port for records, which is a setting.
#pragma once

// The daemon's own ports.
constexpr unsigned kHeartbeatPort = 41301;  ///< asks outputs whether they are alive
constexpr unsigned kOperatorPort = 41302;   ///< takes operator commands, also in kEndpointGroup
constexpr unsigned kConsentPort = 41303;    ///< asks the holder's outputs for consent
constexpr unsigned kAnnouncePort = 41304;   ///< tells consoles who holds control

/// The group of all endpoints, and its port for settings that a command asks to send there.
constexpr char kEndpointGroup[] = "224.168.1.1";
constexpr unsigned kSettingsPort = 4001;

// Ports of consoles.
constexpr unsigned kConsolePort = 2333;  ///< hears who holds control, also in kConsoleGroup
constexpr char kConsoleGroup[] = "225.168.1.168";
constexpr unsigned kOutputPort = 41237;  ///< answers heartbeats
