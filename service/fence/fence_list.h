// The list of who may reach the daemon: a short TOML file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace service {

struct FenceList {
    std::string interface;               ///< where consoles and operators are, "eth0"
    std::uint16_t recordPort = 80;       ///< the daemon's udpserver_port
    std::vector<std::string> consoles;   ///< may send records, heartbeats and consent
    std::vector<std::string> operators;  ///< may send commands
    std::vector<std::string> software;   ///< may send records as software
};

/// Reads the list. Every address is an IPv4 address or network, "192.168.1.20" or
/// "192.168.1.16/28". Throws std::runtime_error with file, line and reason for anything else than a
/// list.
FenceList readFenceList(const std::string &file);
/// The same from a text; name stands in the messages.
FenceList parseFenceList(const std::string &text, const std::string &name);

/// What is allowed but may not be meant, in whole sentences.
std::vector<std::string> oddities(const FenceList &list);

}  // namespace service
