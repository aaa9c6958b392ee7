// What is said with a source of pictures, without a socket.
#pragma once

#include <chrono>
#include <stdexcept>

#include "gateway/rfb/canvas.h"

namespace gateway {

/// Why a source gives no picture, in words for a person; foreign text may be in it.
class SourceError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// For one connection and one thread. Throws SourceError, or rfb::ProtocolError for what it cannot
/// read; then the connection is of no more use.
class Source {
  public:
    using Time = std::chrono::steady_clock::time_point;

    virtual ~Source() = default;
    /// Bytes came.
    virtual void take(const std::uint8_t *bytes, std::size_t count) = 0;
    /// Puts what came on the canvas, for some milliseconds at most; true: there is more to do.
    /// Until then take() is not to be called.
    virtual bool work(Time now) = 0;
    /// What is to be sent now; empty for nothing. Throws also when the source is silent.
    virtual rfb::Bytes output(Time now) = 0;
    /// When to call output() at the latest.
    virtual Time due() const = 0;
    /// A person works at the computer, and wants to see at once what it does.
    virtual void stayAwake(Time now) = 0;
};

}  // namespace gateway
