#include "gateway/rfb/handshake.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "gateway/secrets.h"

namespace gateway::rfb {
namespace {

constexpr std::uint8_t kSecurityNone = 1, kSecurityVnc = 2, kSecurityVencrypt = 19;
constexpr std::uint32_t kX509Plain = 262;
constexpr std::size_t kVersionSize = 12;

std::uint8_t securityOf(Credentials::Kind kind) {
    switch (kind) {
        case Credentials::kNone:
            return kSecurityNone;
        case Credentials::kPassword:
            return kSecurityVnc;
        default:
            return kSecurityVencrypt;
    }
}

void drop(Bytes &from, std::size_t count) {
    from.erase(from.begin(), from.begin() + static_cast<std::ptrdiff_t>(count));
}

std::uint8_t turnedAround(std::uint8_t byte) {
    unsigned turned = 0;
    for (unsigned bit = 0; bit < 8; ++bit) turned |= (byte >> bit & 1U) << (7 - bit);
    return static_cast<std::uint8_t>(turned);
}

}  // namespace

Challenge encrypted(const Challenge &challenge, const std::string &password) {
    // Three times DES with one key is DES once, which OpenSSL does not have any more by itself.
    constexpr std::size_t kKey = 8;
    std::array<std::uint8_t, 3 * kKey> keys{};
    for (std::size_t i = 0; i < keys.size(); ++i)
        if (i % kKey < password.size())
            keys[i] = turnedAround(static_cast<std::uint8_t>(password[i % kKey]));
    Challenge result{};
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> cipher(
        EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    int size = 0;
    if (!cipher ||
        EVP_EncryptInit_ex(cipher.get(), EVP_des_ede3_ecb(), nullptr, keys.data(), nullptr) != 1 ||
        EVP_CIPHER_CTX_set_padding(cipher.get(), 0) != 1 ||
        EVP_EncryptUpdate(cipher.get(), result.data(), &size, challenge.data(),
                          static_cast<int>(challenge.size())) != 1)
        throw std::runtime_error("OpenSSL has no DES for the password of VNC");
    return result;
}

Handshake::Handshake(Credentials credentials, const Challenge &challenge)
    : credentials_(std::move(credentials)), challenge_(challenge) {}

Bytes Handshake::greeting() const {
    Bytes bytes;
    appendBytes(bytes, std::string("RFB 003.008\n"));
    return bytes;
}

Handshake::State Handshake::take(Bytes &in, Bytes &out) {
    for (;;) {
        const std::size_t before = in.size();
        const Step step = step_;
        const State state = (this->*step)(in, out);
        if (state != kGoesOn || (in.size() == before && step_ == step)) return state;
        if (in.empty()) return kGoesOn;
    }
}

Handshake::State Handshake::takeVersion(Bytes &in, Bytes &out) {
    if (in.size() < kVersionSize) return kGoesOn;
    const std::string version(in.begin(), in.begin() + kVersionSize);
    drop(in, kVersionSize);
    const bool known = version.compare(0, 8, "RFB 003.") == 0 && version.back() == '\n';
    if (!known) {
        reason_ = "it does not speak RFB";
        return kRefused;
    }
    const std::string minor = version.substr(8, 3);
    minor_ = minor == "008" ? 8 : minor == "007" ? 7 : 3;
    const std::uint8_t type = securityOf(credentials_.kind);
    if (minor_ == 3) {
        if (type == kSecurityVencrypt) {
            append32(out, 0);
            return refuse(out, "this viewer is too old for a connection with TLS");
        }
        append32(out, type);
        return startSecurity(type, out);
    }
    append8(out, 1);
    append8(out, type);
    step_ = &Handshake::takeSecurity;
    return kGoesOn;
}

Handshake::State Handshake::takeSecurity(Bytes &in, Bytes &out) {
    if (in.empty()) return kGoesOn;
    const std::uint8_t type = in[0];
    drop(in, 1);
    if (type != securityOf(credentials_.kind)) {
        append32(out, 1);
        return refuse(out, "the viewer chose a security type that was not offered");
    }
    return startSecurity(type, out);
}

Handshake::State Handshake::startSecurity(std::uint8_t type, Bytes &out) {
    if (type == kSecurityNone) return accept(out, minor_ == 8);
    if (type == kSecurityVnc) {
        appendBytes(out, challenge_);
        step_ = &Handshake::takeResponse;
        return kGoesOn;
    }
    append8(out, 0);  // version 0.2 of VeNCrypt
    append8(out, 2);
    step_ = &Handshake::takeVencryptVersion;
    return kGoesOn;
}

Handshake::State Handshake::takeVencryptVersion(Bytes &in, Bytes &out) {
    if (in.size() < 2) return kGoesOn;
    const bool known = in[0] == 0 && in[1] == 2;
    drop(in, 2);
    append8(out, known ? 0 : 1);
    if (!known) {
        reason_ = "it does not know VeNCrypt 0.2";
        return kRefused;
    }
    append8(out, 1);
    append32(out, kX509Plain);
    step_ = &Handshake::takeSubtype;
    return kGoesOn;
}

Handshake::State Handshake::takeSubtype(Bytes &in, Bytes &out) {
    if (in.size() < 4) return kGoesOn;
    const bool known = read32(in.data()) == kX509Plain;
    drop(in, 4);
    // What came before TLS must not count as if it had come inside.
    if (!known || !in.empty()) {
        append8(out, 0);
        reason_ = "it did not take TLS with a user name and a password";
        return kRefused;
    }
    append8(out, 1);
    step_ = &Handshake::takePlain;
    return kStartTls;
}

Handshake::State Handshake::takePlain(Bytes &in, Bytes &out) {
    constexpr std::uint32_t kMost = 255;
    if (in.size() < 8) return kGoesOn;
    const std::uint32_t user = read32(in.data()), password = read32(in.data() + 4);
    if (user > kMost || password > kMost) {
        append32(out, 1);
        return refuse(out, "the user name or the password is too long");
    }
    if (in.size() < 8 + user + password) return kGoesOn;
    const auto at = in.begin() + 8;
    const std::string givenUser(at, at + user), givenPassword(at + user, at + user + password);
    OPENSSL_cleanse(&*at, user + password);
    drop(in, 8 + user + password);
    // Both are compared, so that the time does not tell which one is wrong.
    const bool userFits = sameSecret(givenUser, credentials_.user);
    const bool passwordFits = sameSecret(givenPassword, credentials_.password);
    if (userFits && passwordFits) return accept(out, true);
    append32(out, 1);
    return refuse(out, "the user name or the password is wrong");
}

Handshake::State Handshake::takeResponse(Bytes &in, Bytes &out) {
    Challenge response{};
    if (in.size() < response.size()) return kGoesOn;
    std::copy_n(in.begin(), response.size(), response.begin());
    drop(in, response.size());
    const Challenge wanted = encrypted(challenge_, credentials_.password);
    if (CRYPTO_memcmp(response.data(), wanted.data(), wanted.size()) == 0) return accept(out, true);
    append32(out, 1);
    return refuse(out, "the password is wrong");
}

Handshake::State Handshake::accept(Bytes &out, bool tell) {
    if (tell) append32(out, 0);
    step_ = &Handshake::takeShared;
    return kGoesOn;
}

// Versions before 3.8 do not read a reason behind the result, but for the one of no security.
Handshake::State Handshake::refuse(Bytes &out, const std::string &why) {
    reason_ = why;
    if (minor_ == 8 || credentials_.kind == Credentials::kPlain) {
        append32(out, static_cast<std::uint32_t>(why.size()));
        appendBytes(out, why);
    }
    return kRefused;
}

// A viewer that wants to be alone gets the same as others: nobody is thrown out for it.
Handshake::State Handshake::takeShared(Bytes &in, Bytes &) {
    if (in.empty()) return kGoesOn;
    drop(in, 1);
    return kDone;
}

void appendScreen(Bytes &to, unsigned width, unsigned height, const PixelFormat &format,
                  const std::string &name) {
    append16(to, width);
    append16(to, height);
    appendPixelFormat(to, format);
    append32(to, static_cast<std::uint32_t>(name.size()));
    appendBytes(to, name);
}

}  // namespace gateway::rfb
