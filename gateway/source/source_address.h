// How a configuration names a source of pictures.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "gateway/source/source.h"

namespace gateway {

/// "vnc:unix:PATH", "vnc:HOST[:PORT]", "mjpeg:http://HOST[:PORT]/..." or "mjpeg:https://...".
struct SourceAddress {
    enum Kind { kNone, kVnc, kMjpeg };
    Kind kind = kNone;
    std::string path;        ///< of a unix socket; empty: by TCP
    std::string host, port;  ///< host: without the brackets of an IPv6 address
    bool tls = false;
    std::string target;                         ///< path and query of a URL
    std::string words;                          ///< for a person, without path and query of a URL
    std::string user, passwordFile, authority;  ///< to be shown; a file in PEM to believe, or empty
};

/// user, passwordFile, authority: see SourceAddress, each may be empty. Throws std::runtime_error
/// for another text, and for what does not fit together.
SourceAddress parseSourceAddress(const std::string &text, const std::string &user,
                                 const std::string &passwordFile, const std::string &authority);

/// What is said with it. Throws std::runtime_error when the password cannot be read.
std::unique_ptr<Source> sourceAt(const SourceAddress &address, rfb::Canvas &canvas,
                                 std::chrono::milliseconds patience, Source::Time now);

}  // namespace gateway
