// The gateway's configuration, and what it answers to browsers.

#include <sys/stat.h>

#include "gateway/options.h"
#include "gateway/secrets.h"
#include "gateway/web/door.h"
#include "tests/support/support.h"

namespace {

using namespace gateway;
namespace http = boost::beast::http;

std::string mistake(const std::string &text) {
    return test::complaintOf([&] { parseConfiguration(text, "gateway.toml"); });
}

TEST(GatewayConfiguration, HasAllKeys) {
    const Configuration all = parseConfiguration(
        "[gateway]\nfrom = \"192.168.1.20\"\nweb = \"127.0.0.1:8080\"\nsocket_folder = \"/run/q\"\n"
        "certificate = \"c.pem\"\nkey = \"k.pem\"\nuser = \"u\"\npassword_file = \"p\"\n"
        "[limits]\nviewers = 9\nviewers_of_endpoint = 3\nunfinished = 4\nhandshake_seconds = 5\n"
        "send_seconds = 6\npicture_seconds = 7\ninput_bytes_per_second = 7000\nupdate_bytes = "
        "8000\n"
        "[endpoint.rack-1]\naddress = \"192.168.1.10\"\nport = 81\nlayout = \"de\"\n"
        "variant = \"nodeadkeys\"\nsystem = \"windows\"\nuser = \"ann\"\nlevel = 4\n"
        "control = \"connect\"\nlisten = \"0.0.0.0:5900\"\npicture = \"mjpeg:https://cam/s?t\"\n"
        "picture_user = \"cat\"\npicture_password_file = \"q\"\npicture_ca = \"ca\"\n",
        "gateway.toml");
    ASSERT_EQ(all.endpoints.size(), 1U);
    const Desk::Setup &desk = all.endpoints[0].desk;
    EXPECT_EQ(desk.name, "rack-1");
    EXPECT_EQ(desk.endpoint.to, "192.168.1.10");
    EXPECT_EQ(desk.endpoint.from, "192.168.1.20");
    EXPECT_EQ(desk.endpoint.port, 81);
    EXPECT_EQ(desk.layout.variant, "nodeadkeys");
    EXPECT_EQ(desk.layout.system, quillon::ComputerSystem::kWindows);
    EXPECT_EQ(desk.user, "ann");
    EXPECT_EQ(desk.level, 4);
    EXPECT_EQ(desk.taking, Taking::kConnect);
    EXPECT_EQ(all.endpoints[0].listen, "0.0.0.0:5900");
    const SourceAddress &picture = all.endpoints[0].picture;
    EXPECT_EQ(picture.host + picture.target + picture.user, "cam/s?tcat");
    EXPECT_EQ(picture.passwordFile + picture.authority, "qca");
    EXPECT_EQ(desk.source, "mjpeg:https://cam");
    EXPECT_EQ(all.limits.picture.count(), 7);
    EXPECT_EQ(all.limits.viewers + all.limits.viewersOfEndpoint + all.limits.unfinished, 16U);
    EXPECT_EQ(all.limits.handshake.count() + all.limits.send.count(), 11);
    EXPECT_EQ(all.limits.inputRate + all.limits.updateSize, 15000U);
}

TEST(GatewayConfiguration, NamesFileLineAndReason) {
    const std::string endpoint = "[endpoint.a]\naddress = \"192.168.1.10\"\n";
    const struct {
        std::string text, line, reason;
    } mistakes[] = {
        {"", "1", "there is no endpoint"},
        {endpoint + "colour = 1\n", "3", "endpoint.a has no key \"colour\""},
        {endpoint + "picture = \"rtsp://cam\"\n", "3", "is no source of pictures"},
        {endpoint + "picture_user = \"u\"\n", "1", "without a picture"},
        {endpoint + "port = 70000\n", "3", "port is a number from 1 to 65535"},
        {endpoint + "port = \"80\"\n", "3", "port is a number"},
        {endpoint + "control = \"grab\"\n", "3", "control is one of: apply, connect, never"},
        {endpoint + "layout = \"qq\"\n", "1", "no keyboard layout"},
        {endpoint + "user = \"a|b\"\n", "1", ""},
        {endpoint + "user = \"a\\nb\"\n", "3", "control character"},
        {endpoint + "listen = \"5900\"\n", "3", "is not HOST:PORT"},
        {endpoint + "listen = \"1.2.3.4:5900\"\n", "3", "password file"},
        {endpoint + "[endpoint.b]\naddress = \"192.168.1.10\"\n", "3", "two endpoints"},
        {endpoint + "[gateway]\nweb = \"0.0.0.0:80\"\n", "3", "loopback alone"},
        {endpoint + "[gateway]\ncertificate = \"c\"\n", "3", "belong together"},
        {endpoint + "[gateway]\nfrom = \"here\"\n", "4", "from is an IPv4 address"},
        {endpoint + "[limits]\nviewers = 0\n", "4", "viewers is a number from 1"},
        {"[endpoint.A]\n", "1", "small letters"},
        {"[endpoint.\"../a\"]\n", "1", "small letters"},
        {"[endpoint.a]\naddress = \"localhost\"\n", "1", "needs an address"},
        {"[endpoint]\na = 1\n", "2", "is a table"},
        {"endpoint = 1\n", "1", "is a table"},
        {"\nx = \n", "2", ""},
        {"\xc3\xa4 = 1\n", "1", "letters beyond ASCII"},
    };
    for (const auto &wrong : mistakes) {
        const std::string said = mistake(wrong.text);
        EXPECT_EQ(said.find("gateway.toml, line " + wrong.line + ": "), 0U) << said << wrong.text;
        EXPECT_TRUE(test::holds(said, wrong.reason)) << said;
    }
}

TEST(GatewayConfiguration, TakesPasswordsThatOthersCannotRead) {
    test::writeFile("password", "geheim\r\nmore\n");
    chmod("password", 0644);
    EXPECT_THROW(readPassword("password"), std::runtime_error);
    chmod("password", 0600);
    EXPECT_EQ(readPassword("password"), "geheim");
    test::writeFile("password", "\n");
    EXPECT_THROW(readPassword("password"), std::runtime_error);
    EXPECT_THROW(readPassword("nothing"), std::runtime_error);
}

// ---- browsers

class Door : public testing::Test {
  protected:
    Door() {
        test::run("mkdir -p page/core && echo page >page/index.html && echo js >page/core/a.js");
        door_.emplace("127.0.0.1", 8080, WebFiles("page"), std::vector<std::string>{"rack-1"});
    }
    using Headers = std::vector<std::pair<std::string, std::string>>;

    WebDoor::Answer ask(const std::string &target, const Headers &headers,
                        http::verb verb = http::verb::get) {
        WebRequest request(verb, target, 11);
        for (const auto &[name, value] : headers) request.insert(name, value);
        return door_->answer(request);
    }
    unsigned status(const std::string &target, const Headers &headers,
                    http::verb verb = http::verb::get) {
        const auto answer = ask(target, headers, verb);
        return answer.viewerOf ? 101 : answer.response.result_int();
    }
    std::string target() {
        const std::string address = door_->address();
        return address.substr(address.find("/?"));
    }
    Headers signedIn(Headers more = {}) {
        const auto answer = ask(target(), {{"Host", "127.0.0.1:8080"}});
        const auto cookie = answer.response[http::field::set_cookie];
        key_ = "?" + std::string(answer.response[http::field::location]).substr(2);
        more.emplace_back("Host", "127.0.0.1:8080");
        more.emplace_back("Cookie", "other=1; " + std::string(cookie.substr(0, cookie.find(';'))));
        return more;
    }

    std::optional<WebDoor> door_;
    std::string key_;  ///< of the page that signed in last
    const Headers upgrade_{{"Connection", "Upgrade"},
                           {"Upgrade", "websocket"},
                           {"Sec-WebSocket-Key", "dGhlIHNhbXBsZSBub25jZQ=="},
                           {"Sec-WebSocket-Version", "13"}};
    Headers upgradeFrom(const std::string &origin) {
        Headers headers = upgrade_;
        headers.emplace_back("Origin", origin);
        return headers;
    }
};

TEST_F(Door, ExchangesATokenOnceForACookieOfItsPort) {
    const Headers host{{"Host", "127.0.0.1:8080"}};
    EXPECT_EQ(status("/", host), 403U);
    EXPECT_EQ(status("/?token=", host), 403U) << "before there is one";
    const std::string wrong = target(), right = target();
    EXPECT_EQ(status(wrong, host), 403U) << "an address from before";
    EXPECT_EQ(status(right, host, http::verb::head), 403U) << "a preview does not use it";
    const auto answer = ask(right, host);
    EXPECT_EQ(answer.response.result_int(), 303U);
    EXPECT_EQ(std::string(answer.response[http::field::location]).substr(0, 6), "/#key=");
    const std::string cookie(answer.response[http::field::set_cookie]);
    EXPECT_EQ(cookie.find("quillon-8080="), 0U);
    EXPECT_TRUE(test::holds(cookie, "HttpOnly; SameSite=Strict"));
    EXPECT_EQ(status(right, host), 403U) << "a second time";
    EXPECT_EQ(status("/?token=", host), 403U) << "a token that was used is none";

    const Headers in = signedIn();
    EXPECT_EQ(ask("/", in).response.body(), "page\n");
    EXPECT_EQ(ask("/core/a.js?x", in).response.body(), "js\n");
    EXPECT_EQ(ask("/endpoints.json", in).response.body(), "[\"rack-1\"]");
    for (const char *path : {"/../door", "/core", "//etc/passwd", "/%2e%2e/door", ""})
        EXPECT_EQ(status(path, in), 404U) << path;
    EXPECT_EQ(status("/", in, http::verb::post), 405U);
    Headers forged = host;
    forged.emplace_back("Cookie", "quillon-8080=; quillon-8080=0; xquillon-8080=" + cookie);
    EXPECT_EQ(status("/", forged), 403U);
}

TEST_F(Door, ChecksWhereARequestComesFrom) {
    for (const char *host :
         {"evil.example", "127.0.0.1", "127.0.0.1:80", "127.0.0.1:8080.evil", ""}) {
        Headers in = signedIn();
        in[0].second = host;
        EXPECT_EQ(status("/", in), 403U) << host;
    }
    Headers two = signedIn();
    two.emplace_back("Host", "127.0.0.1:8080");
    EXPECT_EQ(status("/", two), 403U);
    EXPECT_EQ(status("/", signedIn({{"Origin", "http://evil.example"}})), 403U);
    EXPECT_EQ(status("/", signedIn({{"Origin", "http://127.0.0.1:8080"}})), 200U);
    EXPECT_EQ(status("/", signedIn({{"Origin", "http://127.0.0.1:8080"},
                                    {"Origin", "http://evil.example"}})),
              403U);

    const Headers here = signedIn(upgradeFrom("http://127.0.0.1:8080"));
    EXPECT_EQ(status("/viewers/rack-1" + key_, here), 101U);
    EXPECT_EQ(status("/viewers/other" + key_, here), 404U);
    for (const std::string key : {"", "?key=", "?key=0"})
        EXPECT_EQ(status("/viewers/rack-1" + key, here), 403U) << "without the page's key";
    for (const char *origin : {"http://evil.example", "null", "https://127.0.0.1:8080",
                               "http://localhost:8080", "http://127.0.0.1:80"}) {
        const Headers there = signedIn(upgradeFrom(origin));
        EXPECT_EQ(status("/viewers/rack-1" + key_, there), 403U) << origin;
    }
    const Headers nowhere = signedIn(upgrade_);
    EXPECT_EQ(status("/viewers/rack-1" + key_, nowhere), 403U) << "without an origin";
    Headers stranger = upgradeFrom("http://127.0.0.1:8080");
    stranger.emplace_back("Host", "127.0.0.1:8080");
    EXPECT_EQ(status("/viewers/rack-1" + key_, stranger), 403U) << "without a cookie";
}

}  // namespace
