// What a gateway is to do: from its command line, or from a file in TOML.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "gateway/desk.h"
#include "gateway/source/source_address.h"

namespace gateway {

/// "HOST:PORT" of a listening socket; HOST is an IPv4 address.
struct HostPort {
    std::string host;
    std::uint16_t port = 0;
};
/// Throws std::runtime_error for another text. A port of 0 stands for any that is free.
HostPort parseHostPort(const std::string &text);

/// Bounds against viewers that want too much.
struct Limits {
    unsigned viewers = 256;              ///< at all endpoints together
    unsigned viewersOfEndpoint = 32;     ///< at one of them
    unsigned unfinished = 32;            ///< connections that are not through the handshake
    std::chrono::seconds handshake{20};  ///< time for it
    std::chrono::seconds send{60};       ///< time for a viewer to take what was sent
    std::chrono::seconds picture{10};    ///< time for a source to give a picture, or an answer
    unsigned inputRate = 16384;          ///< bytes a second that are read from a viewer
    unsigned updateSize = 1U << 20U;     ///< bytes of an update, most of a viewer's memory
};

struct EndpointEntry {
    Desk::Setup desk;
    std::string listen;     ///< HOST:PORT for viewers of this endpoint; empty: none
    SourceAddress picture;  ///< where its picture comes from
};

struct Configuration {
    std::string where;                ///< "FILE, line N" of the table gateway; empty: no file
    std::string web = "127.0.0.1:0";  ///< HOST:PORT for browsers, on loopback; empty: none
    std::string socketFolder;         ///< for the unix sockets; empty: one of the user's own
    std::string certificate, key;     ///< files in PEM; empty: no TLS
    std::string user, passwordFile;   ///< what viewers on TCP have to show
    std::vector<EndpointEntry> endpoints;
    Limits limits;
};

/// Checked as below. Throws std::runtime_error with file, line and reason. name: what the file is
/// called.
Configuration parseConfiguration(const std::string &text, const std::string &name);

/// Says where an endpoint's picture comes from, see parseSourceAddress(); picture may be empty.
void setPicture(EndpointEntry &entry, const std::string &picture, const std::string &user,
                const std::string &passwordFile, const std::string &authority);

/// Throws std::runtime_error for what does not fit together, such as a listener without a password.
void check(const Configuration &configuration);
/// Throws std::runtime_error for a user that an endpoint would not take, and a layout that is not
/// there. typists: keeps what it made to find out.
void check(const Desk::Setup &setup, Typists &typists);

}  // namespace gateway
