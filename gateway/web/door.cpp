#include "gateway/web/door.h"

#include <algorithm>
#include <array>
#include <boost/beast/http/field.hpp>
#include <boost/beast/websocket/rfc6455.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "gateway/secrets.h"

namespace gateway {
namespace {

namespace http = boost::beast::http;

constexpr std::size_t kMostPasses = 16;

std::string typeOf(const std::string &path) {
    const std::map<std::string, std::string> types{{".html", "text/html; charset=utf-8"},
                                                   {".js", "text/javascript; charset=utf-8"},
                                                   {".css", "text/css; charset=utf-8"},
                                                   {".svg", "image/svg+xml"},
                                                   {".txt", "text/plain; charset=utf-8"}};
    const auto found = types.find(std::filesystem::path(path).extension());
    return found == types.end() ? "text/plain; charset=utf-8" : found->second;
}

std::string textOf(boost::beast::string_view view) {
    return {view.data(), view.size()};
}

WebResponse response(const WebRequest &request, http::status status, const std::string &type,
                     std::string text) {
    WebResponse answer(status, request.version());
    answer.set(http::field::content_type, type);
    answer.set(http::field::cache_control, "no-store");
    answer.set("Referrer-Policy", "no-referrer");
    answer.set("Content-Security-Policy",
               "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
               "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
    answer.set("X-Content-Type-Options", "nosniff");
    answer.set("Cross-Origin-Resource-Policy", "same-origin");
    answer.keep_alive(request.keep_alive());
    answer.body() = request.method() == http::verb::head ? "" : std::move(text);
    answer.prepare_payload();
    return answer;
}

WebDoor::Answer refusal(const WebRequest &request, http::status status, const std::string &why) {
    WebDoor::Answer answer{response(request, status, "text/plain; charset=utf-8", why + "\n"),
                           std::nullopt, false};
    if (status == http::status::forbidden) answer.response.keep_alive(false);
    return answer;
}

}  // namespace

WebFiles::WebFiles(const std::string &folder) {
    namespace fs = std::filesystem;
    constexpr std::size_t kMost = 16U << 20U;
    std::size_t size = 0;
    std::error_code error;
    for (const auto &entry : fs::recursive_directory_iterator(folder, error)) {
        if (!entry.is_regular_file()) continue;
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string path = "/" + fs::relative(entry.path(), folder).generic_string();
        File &into = files_[path];
        into.text.assign(std::istreambuf_iterator<char>(file), {});
        into.type = typeOf(path);
        size += into.text.size();
        if (size > kMost) throw std::runtime_error(folder + " is too large for a page");
    }
    if (find("/index.html") == nullptr)
        throw std::runtime_error("there is no page for browsers in " + folder);
}

const WebFiles::File *WebFiles::find(const std::string &path) const {
    const auto found = files_.find(path);
    return found == files_.end() ? nullptr : &found->second;
}

std::string freshSecret() {
    std::array<unsigned char, 16> bytes{};
    fillRandom(bytes.data(), bytes.size());
    std::string text;
    for (const unsigned char byte : bytes) {
        constexpr char kDigits[] = "0123456789abcdef";
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0x0FU];
    }
    return text;
}

// Browsers send the cookies of 127.0.0.1 to all its ports.
WebDoor::WebDoor(std::string host, std::uint16_t port, WebFiles files,
                 std::vector<std::string> endpoints)
    : host_(std::move(host)),
      port_(std::to_string(port)),
      cookieName_("quillon-" + port_),
      files_(std::move(files)),
      endpoints_(std::move(endpoints)) {}

std::string WebDoor::address() {
    token_ = freshSecret();
    return "http://" + host_ + ":" + port_ + "/?token=" + token_;
}

// A page from elsewhere can make a browser ask, by a name that leads here (Host) or from its own
// scripts (Origin). A browser sends its origin with every WebSocket.
bool WebDoor::fromHere(const WebRequest &request) const {
    const std::string host = textOf(request[http::field::host]);
    const auto names = [&](const std::string &name) {
        return host == name + ":" + port_ || (port_ == "80" && host == name);
    };
    if (!names(host_) && !(host_ == "127.0.0.1" && names("localhost"))) return false;
    if (request.count(http::field::host) != 1 || request.count(http::field::origin) > 1)
        return false;
    const auto origin = request.find(http::field::origin);
    if (origin == request.end()) return !boost::beast::websocket::is_upgrade(request);
    return textOf(origin->value()) == "http://" + host;
}

const WebDoor::Pass *WebDoor::passOf(const WebRequest &request) const {
    std::string all = textOf(request[http::field::cookie]);
    for (std::size_t begin = 0; begin < all.size();) {
        const std::size_t end = std::min(all.find(';', begin), all.size());
        std::string one = all.substr(begin, end - begin);
        one.erase(0, std::min(one.find_first_not_of(' '), one.size()));
        if (one.compare(0, cookieName_.size() + 1, cookieName_ + "=") == 0) {
            const std::string value = one.substr(cookieName_.size() + 1);
            for (const Pass &pass : passes_)
                if (sameSecret(value, pass.cookie)) return &pass;
        }
        begin = end + 1;
    }
    return nullptr;
}

WebDoor::Answer WebDoor::exchange(const WebRequest &request, const std::string &token) {
    if (token_.empty() || !sameSecret(token, token_))
        return refusal(request, http::status::forbidden,
                       "This address was used already, or is wrong. The gateway prints one that "
                       "can be used once.");
    token_.clear();
    passes_.push_back({freshSecret(), freshSecret()});
    if (passes_.size() > kMostPasses) passes_.pop_front();
    Answer answer = refusal(request, http::status::see_other, "Go on to /");
    // Browsers do not send what is behind #; the page takes it out of the address.
    answer.response.set(http::field::location, "/#key=" + passes_.back().key);
    answer.response.set(http::field::set_cookie, cookieName_ + "=" + passes_.back().cookie +
                                                     "; Path=/; HttpOnly; SameSite=Strict");
    answer.usedToken = true;
    return answer;
}

WebDoor::Answer WebDoor::page(const WebRequest &request, const std::string &path) const {
    if (path == "/endpoints.json") {
        std::string names;
        for (const std::string &name : endpoints_)
            names += (names.empty() ? "\"" : ",\"") + name + "\"";
        return {response(request, http::status::ok, "application/json", "[" + names + "]"),
                std::nullopt, false};
    }
    const WebFiles::File *file = files_.find(path == "/" ? "/index.html" : path);
    if (file == nullptr) return refusal(request, http::status::not_found, "There is no such page.");
    return {response(request, http::status::ok, file->type, file->text), std::nullopt, false};
}

WebDoor::Answer WebDoor::answer(const WebRequest &request) {
    if (!fromHere(request))
        return refusal(request, http::status::forbidden,
                       "This request was not made for the gateway, or comes from another page.");
    if (request.method() != http::verb::get && request.method() != http::verb::head)
        return refusal(request, http::status::method_not_allowed, "The gateway takes GET alone.");
    const std::string target = textOf(request.target());
    const std::string path = target.substr(0, target.find('?'));
    constexpr char kToken[] = "/?token=";
    constexpr std::size_t kTokenSize = sizeof kToken - 1;
    // Some programs look at an address before a person opens it.
    const bool plain =
        request.method() == http::verb::get && !boost::beast::websocket::is_upgrade(request);
    if (plain && target.compare(0, kTokenSize, kToken) == 0)
        return exchange(request, target.substr(kTokenSize));
    const Pass *pass = passOf(request);
    if (pass == nullptr)
        return refusal(request, http::status::forbidden,
                       "Open the address that the gateway printed.");
    if (!boost::beast::websocket::is_upgrade(request)) return page(request, path);
    constexpr char kViewers[] = "/viewers/", kKey[] = "?key=";
    constexpr std::size_t kViewersSize = sizeof kViewers - 1;
    const std::string name =
        path.compare(0, kViewersSize, kViewers) == 0 ? path.substr(kViewersSize) : "";
    if (!sameSecret(target.substr(path.size()), kKey + pass->key))
        return refusal(request, http::status::forbidden, "This page has no key for a viewer.");
    if (std::find(endpoints_.begin(), endpoints_.end(), name) == endpoints_.end())
        return refusal(request, http::status::not_found, "There is no such endpoint.");
    return {WebResponse{}, name, false};
}

}  // namespace gateway
