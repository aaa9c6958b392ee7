// What the gateway answers to browsers: its page, and the way in for a viewer in that page.
#pragma once

#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace gateway {

using WebRequest = boost::beast::http::request<boost::beast::http::empty_body>;
using WebResponse = boost::beast::http::response<boost::beast::http::string_body>;

/// The files that browsers get, read once: nothing else of the machine is within reach.
class WebFiles {
  public:
    struct File {
        std::string type, text;
    };
    /// All files of a folder and the folders in it, 16 MB at most. Throws std::runtime_error
    /// without an index.html in it.
    explicit WebFiles(const std::string &folder);
    WebFiles() = default;

    /// The file for a path such as "/index.html"; null for none.
    const File *find(const std::string &path) const;

  private:
    std::map<std::string, File> files_;
};

/// Bytes nobody can guess, in hexadecimal digits. Throws std::runtime_error.
std::string freshSecret();

/// Decides on requests; it has no socket. Who has the one-time token gets a cookie for it, and with
/// the cookie the page. A browser sends its cookies to every port of a host, to programs of other
/// users too, so a viewer also needs a key, which the page keeps. An object is for one listening
/// socket.
class WebDoor {
  public:
    /// host, port: of the socket, as browsers have it in their addresses. endpoints: their names.
    WebDoor(std::string host, std::uint16_t port, WebFiles files,
            std::vector<std::string> endpoints);

    /// An address with a new token. The ones before, which nobody used, do not count any more.
    std::string address();

    struct Answer {
        WebResponse response;
        /// The endpoint that a viewer wants by WebSocket: then there is no response.
        std::optional<std::string> viewerOf;
        bool usedToken = false;  ///< the token was exchanged for a cookie
    };
    Answer answer(const WebRequest &request);

  private:
    bool fromHere(const WebRequest &request) const;
    /// What a browser got for a token.
    struct Pass {
        std::string cookie, key;
    };
    const Pass *passOf(const WebRequest &request) const;
    Answer exchange(const WebRequest &request, const std::string &token);
    Answer page(const WebRequest &request, const std::string &path) const;

    const std::string host_, port_, cookieName_;
    const WebFiles files_;
    const std::vector<std::string> endpoints_;
    std::string token_;
    std::deque<Pass> passes_;
};

}  // namespace gateway
