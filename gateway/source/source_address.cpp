#include "gateway/source/source_address.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "gateway/secrets.h"
#include "gateway/source/mjpeg_source.h"
#include "gateway/source/vnc_source.h"

namespace gateway {
namespace {

[[noreturn]] void refuse(const std::string &why) {
    throw std::runtime_error(why);
}

bool takePrefix(std::string &text, const std::string &prefix) {
    if (text.compare(0, prefix.size(), prefix) != 0) return false;
    text.erase(0, prefix.size());
    return true;
}

// HOST:PORT, where HOST may be an IPv6 address in brackets; without a port the usual one.
void takeHostPort(const std::string &text, const std::string &usual, SourceAddress &into) {
    std::size_t end = text.find(':');
    if (!text.empty() && text.front() == '[') {
        end = text.find(']');
        if (end == std::string::npos) refuse("an address in brackets has no end");
        into.host = text.substr(1, end - 1);
        ++end;
        if (end < text.size() && text[end] != ':') refuse("\"" + text + "\" is not HOST:PORT");
    } else {
        into.host = text.substr(0, end);
    }
    into.port = end < text.size() && text[end] == ':' ? text.substr(end + 1) : usual;
    const bool digits = !into.port.empty() && into.port.size() <= 5 &&
                        into.port.find_first_not_of("0123456789") == std::string::npos;
    const auto isPlain = [](unsigned char c) {
        return isalnum(c) != 0 || c == '.' || c == '-' || c == '_' || c == ':' || c == '%';
    };
    if (into.host.empty() || into.host.size() > 255 ||
        !std::all_of(into.host.begin(), into.host.end(), isPlain) || !digits ||
        std::stoi(into.port) > 65535 || std::stoi(into.port) == 0)
        refuse("\"" + text + "\" is not HOST:PORT");
}

void takeUrl(std::string url, SourceAddress &into) {
    into.kind = SourceAddress::kMjpeg;
    into.tls = takePrefix(url, "https://");
    if (!into.tls && !takePrefix(url, "http://"))
        refuse("mjpeg: takes a URL with http:// or https://");
    const std::size_t slash = std::min(url.size(), url.find_first_of("/?#"));
    const std::string where = url.substr(0, slash);
    into.target = url.substr(slash, url.find('#') - slash);
    if (into.target.empty() || into.target[0] != '/') into.target.insert(0, "/");
    if (std::any_of(into.target.begin(), into.target.end(),
                    [](unsigned char c) { return c <= ' ' || c >= 0x7F; }))
        refuse("a URL has no blanks and no other letters than ASCII's; write them with %");
    takeHostPort(where, into.tls ? "443" : "80", into);
}

}  // namespace

SourceAddress parseSourceAddress(const std::string &text, const std::string &user,
                                 const std::string &passwordFile, const std::string &authority) {
    SourceAddress address;
    address.words = text.substr(0, text.find('?'));
    address.user = user;
    address.passwordFile = passwordFile;
    address.authority = authority;
    std::string rest = text;
    // Nothing is quoted, for a password may be in it.
    const bool local = takePrefix(rest, "vnc:unix:");
    const std::size_t slashes = rest.find("//"),
                      begin = slashes == std::string::npos ? 0 : slashes + 2;
    if (!local &&
        rest.substr(begin, rest.find_first_of("/?#", begin) - begin).find('@') != std::string::npos)
        refuse("user and password do not belong in the name of a source; there are keys for them");
    if (local) {
        constexpr std::size_t kMostPath = 107;  // sun_path, with the zero behind it
        address.kind = SourceAddress::kVnc;
        address.path = rest;
        if (rest.empty() || rest[0] != '/' || rest.size() > kMostPath)
            refuse("the path of a unix socket begins with / and has 107 letters at most");
    } else if (takePrefix(rest, "vnc:")) {
        address.kind = SourceAddress::kVnc;
        takeHostPort(rest, "5900", address);
    } else if (takePrefix(rest, "mjpeg:")) {
        takeUrl(rest, address);
    } else if (takePrefix(rest, "http://") || takePrefix(rest, "https://")) {
        refuse("write mjpeg: before the URL of a source of pictures");
    } else {
        refuse("\"" + address.words +
               "\" is no source of pictures: vnc:unix:PATH, vnc:HOST:PORT or mjpeg:URL");
    }
    // A path may be as secret as a password.
    if (address.kind == SourceAddress::kMjpeg) {
        const std::size_t host = text.find("//") + 2;
        address.words = text.substr(0, text.find_first_of("/?#", host));
    }
    if (!user.empty() && address.kind != SourceAddress::kMjpeg)
        refuse("only a source with mjpeg: takes a user");
    if (user.empty() != passwordFile.empty() && address.kind == SourceAddress::kMjpeg)
        refuse("a source with mjpeg: takes a user together with a password file");
    if (user.find(':') != std::string::npos) refuse("the user of a source has no colon");
    if (!authority.empty() && !address.tls)
        refuse("only a source with https:// takes a certificate");
    return address;
}

std::unique_ptr<Source> sourceAt(const SourceAddress &address, rfb::Canvas &canvas,
                                 std::chrono::milliseconds patience, Source::Time now) {
    const std::string password =
        address.passwordFile.empty() ? "" : readPassword(address.passwordFile);
    if (address.kind == SourceAddress::kVnc)
        return std::make_unique<VncSource>(
            canvas, VncSource::Setup{!address.path.empty(), password, patience}, now);
    const std::string host =
        address.host.find(':') == std::string::npos ? address.host : "[" + address.host + "]";
    const bool usual = address.port == (address.tls ? "443" : "80");
    return std::make_unique<MjpegSource>(
        canvas,
        MjpegSource::Setup{usual ? host : host + ":" + address.port, address.target, address.user,
                           password, patience},
        now);
}

}  // namespace gateway
