// The command line of quillon-gateway.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "gateway/configuration.h"

namespace gateway {

struct Options {
    std::string to, from, configFile;
    std::uint16_t port = quillon::kRecordPort;
    std::string layout = "us", variant, system = "x11";
    std::string user, control = "apply";
    int level = 0;
    std::string listen, certificate, key, viewerUser = "viewer", passwordFile;
    std::uint16_t webPort = 0;
    std::string picture, pictureUser, picturePasswordFile, pictureCa;
    std::string webFiles;
    std::vector<std::string> listenFds;
    bool check = false;
};

void describe(CLI::App &app, Options &options);

/// The configuration that options and file say, checked. Throws std::runtime_error, or CLI11's
/// errors for a wrong command line.
Configuration configurationOf(const Options &options);

/// A listening socket that was handed in.
struct HandedIn {
    bool web;              ///< for browsers; else for viewers
    std::string endpoint;  ///< its name, for viewers; empty: the only one
    int fd;
};
/// From --listen-fd, and from systemd's socket activation (LISTEN_FDS and LISTEN_FDNAMES, where a
/// socket is called "web", "viewers" or "viewers-NAME"). Throws std::runtime_error for what is no
/// listening socket.
std::vector<HandedIn> handedIn(const Options &options);

}  // namespace gateway
