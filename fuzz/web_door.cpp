// Requests of browsers: without a cookie nothing but refusals, with it no viewer without a key.

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/parser.hpp>

#include "fuzz/require.h"
#include "gateway/web/door.h"

namespace {

namespace http = boost::beast::http;

gateway::WebDoor &door() {
    static gateway::WebDoor one("127.0.0.1", 8080, {}, {"rack"});
    return one;
}

// The cookie of a browser that has opened the address.
const std::string &cookie() {
    static const std::string text = [] {
        const std::string address = door().address();
        gateway::WebRequest request(http::verb::get, address.substr(address.find("/?")), 11);
        request.set(http::field::host, "127.0.0.1:8080");
        const auto answer = door().answer(request);
        fuzz::require(answer.usedToken, "the token is good once");
        const std::string all(answer.response[http::field::set_cookie]);
        door().address();  // a token that nobody knows
        return all.substr(0, all.find(';'));
    }();
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    cookie();
    http::request_parser<http::empty_body> parser;
    parser.header_limit(16384);
    parser.body_limit(0);
    boost::beast::error_code error;
    std::size_t used = 0;
    while (used < size && !parser.is_done() && !error) {
        const std::size_t now = parser.put(boost::asio::buffer(bytes + used, size - used), error);
        if (now == 0) break;
        used += now;
    }
    if (error || !parser.is_done()) return 0;
    gateway::WebRequest request = parser.release();
    const auto stranger = door().answer(request);
    fuzz::require(!stranger.viewerOf && !stranger.usedToken, "nothing without a cookie");
    fuzz::require(stranger.response.result_int() == 403 || stranger.response.result_int() == 405,
                  "a refusal");
    request.set(http::field::cookie, cookie());
    const auto known = door().answer(request);
    fuzz::require(!known.viewerOf && !known.usedToken, "no viewer without a key");
    return 0;
}
