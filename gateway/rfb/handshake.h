// The beginning of a connection: version, security, and what the screen is. Versions 3.3, 3.7, 3.8.
#pragma once

#include <array>
#include <string>

#include "gateway/rfb/pixel_format.h"

namespace gateway::rfb {

/// What a viewer has to show before it sees anything.
struct Credentials {
    enum Kind {
        kNone,      ///< the listener has seen to it: a folder of one user, a cookie
        kPassword,  ///< of VNC: a challenge, on an open line; 8 characters count
        kPlain      ///< a user and a password inside TLS (VeNCrypt's X509Plain)
    };
    Kind kind = kNone;
    std::string user, password;
};

/// Random bytes that a viewer without TLS has to encrypt with the password.
using Challenge = std::array<std::uint8_t, 16>;

/// Bytes in, bytes out. An object is for one connection.
class Handshake {
  public:
    enum State {
        kGoesOn,    ///< needs more bytes
        kStartTls,  ///< send what is to be sent, begin TLS, and call take() with what comes there
        kDone,      ///< the viewer asked for the screen: send appendScreen()
        kRefused    ///< send what is to be sent, and close
    };

    Handshake(Credentials credentials, const Challenge &challenge);

    /// The first bytes of the connection.
    Bytes greeting() const;
    /// Takes from the beginning of in what belongs to the handshake, and appends the answers. Keeps
    /// nothing: what is not complete stays in in, 2 kB at most.
    State take(Bytes &in, Bytes &out);
    /// Why a viewer was refused, for the log; the text is ours.
    const std::string &reason() const { return reason_; }

  private:
    using Step = State (Handshake::*)(Bytes &, Bytes &);
    State takeVersion(Bytes &in, Bytes &out);
    State takeSecurity(Bytes &in, Bytes &out);
    State takeVencryptVersion(Bytes &in, Bytes &out);
    State takeSubtype(Bytes &in, Bytes &out);
    State takePlain(Bytes &in, Bytes &out);
    State takeResponse(Bytes &in, Bytes &out);
    State takeShared(Bytes &in, Bytes &out);
    State startSecurity(std::uint8_t type, Bytes &out);
    State accept(Bytes &out, bool tell);
    State refuse(Bytes &out, const std::string &why);

    const Credentials credentials_;
    const Challenge challenge_;
    Step step_ = &Handshake::takeVersion;
    unsigned minor_ = 8;  ///< of the version
    std::string reason_;
};

/// The answer to a viewer that came through: size, format and name of the screen.
void appendScreen(Bytes &to, unsigned width, unsigned height, const PixelFormat &format,
                  const std::string &name);

/// The challenge as a password of VNC encrypts it: DES with the bits of each byte turned around.
Challenge encrypted(const Challenge &challenge, const std::string &password);

}  // namespace gateway::rfb
