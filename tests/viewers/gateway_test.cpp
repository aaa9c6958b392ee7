// The program quillon-gateway: who gets in, who has the input, what it keeps and what it lets go.

#include <fcntl.h>

#include <csignal>
#include <fstream>
#include <future>
#include <thread>

#include "tests/support/on_board.h"
#include "tests/viewers/gateway_program.h"
#include "tests/viewers/picture.h"
#include "tests/viewers/raw_viewer.h"
#include <quillon/datagram_socket.h>

namespace {

using namespace std::chrono_literals;
using namespace gateway;
using test::GatewayProgram, test::holds, test::RawViewer, test::run, test::showsLine;

constexpr char kHeld[] = "Control: held by 192.168.1.20-ann (you), level 5 | outputs 192.168.1.20.";

class Gateway : public test::OnBoard {
  protected:
    void startGateway(const std::string &arguments = "", const std::string &settings = "") {
        startListening(test::kFast + settings);
        gateway_.emplace("--to 192.168.1.10 --from 192.168.1.20 --name ann " + arguments);
    }
    std::unique_ptr<RawViewer> openGateway(const std::string &arguments = "",
                                           const std::string &settings = "") {
        startGateway(arguments, settings);
        return viewer();
    }
    std::unique_ptr<RawViewer> viewer() {
        auto viewer = std::make_unique<RawViewer>(gateway_->socketPath());
        EXPECT_TRUE(viewer->enter());
        return viewer;
    }
    using Bytes = RawViewer::Bytes;

    static bool shows(RawViewer &viewer, const std::string &line) {
        return viewer.until([&] { return showsLine(viewer.picture(), line); });
    }

    std::optional<GatewayProgram> gateway_;
};

TEST_F(Gateway, GivesTheInputToTheFirstAndThenToTheNext) {
    ASSERT_NO_FATAL_FAILURE(startGateway());
    auto first = viewer(), second = viewer();
    EXPECT_EQ(first->name(), "192.168.1.10");
    EXPECT_EQ(first->width(), 1920U);
    second->tap('x');
    second->tap(0xFFE5);  // Caps Lock
    second->pointer(1, 10, 10);
    first->tap('a');
    EXPECT_TRUE(arrives("a"));
    EXPECT_TRUE(shows(*second, "Input: from this machine; one other viewer watches."));
    EXPECT_EQ(board_->computer().state().buttons, 0) << "a watcher's button";
    first->key('b', true);
    first->pointer(4, 960, 540);
    EXPECT_TRUE(becomes([](const auto &s) { return s.keys[0] != 0 && s.buttons == 2; }));
    second->key('d', true);
    second->pointer(1, 500, 500);
    first->close();
    EXPECT_TRUE(becomes([](const auto &s) { return s.keys[0] == 0 && s.buttons == 0; }));
    EXPECT_TRUE(shows(*second, "Input: from this machine."));
    second->key('d', true);  // repeats of what it held as a watcher
    second->pointer(1, 501, 500);
    second->tap('c');
    EXPECT_EQ(board_->computer().state().buttons, 0);
    EXPECT_TRUE(arrives("abc"));
    EXPECT_EQ(board_->computer().state().leds, 0);
}

// What a viewer is told beside pixels: a changed size, the mouse mode, lock keys that are certain.
TEST_F(Gateway, TellsSizesModesAndLockKeys) {
    auto viewer = openGateway();
    viewer->encodings({rfb::kRaw, rfb::kExtendedDesktopSize, rfb::kLedState, rfb::kRelativePointer,
                       rfb::kExtendedKeyEvents});
    const auto told = [&](rfb::Encoding encoding, unsigned value) {
        return viewer->until([&] {
            const auto found = viewer->told().find(encoding);
            return found != viewer->told().end() && found->second == value;
        });
    };
    EXPECT_TRUE(told(rfb::kExtendedKeyEvents, 0));
    EXPECT_TRUE(told(rfb::kLedState, 0));
    viewer->tap(0xFFE5);
    EXPECT_TRUE(told(rfb::kLedState, 4));
    viewer->tap('a');  // by keysym: the person sees an a
    EXPECT_TRUE(arrives("a"));

    viewer->say(std::string("\xfb\0\x10\0\x10\0\0\0", 8));  // a wish for another size
    EXPECT_TRUE(told(rfb::kExtendedDesktopSize, 1)) << "this viewer's wish";
    EXPECT_EQ(viewer->width(), 1920U);
    board_->video().setSize(1280, 720);
    EXPECT_TRUE(viewer->until([&] { return viewer->width() == 1280 && viewer->height() == 720; }));
    viewer->pointer(0, 640, 360);
    EXPECT_TRUE(becomes([](const auto &s) {
        return std::abs(s.absoluteX - 2048) < 8 && std::abs(s.absoluteY - 2048) < 8;
    }));

    run("quillon-console --to 192.168.1.10 --from 192.168.1.21 mouse-mode rel");
    EXPECT_TRUE(told(rfb::kRelativePointer, 0));
    const auto before = board_->computer().state();
    viewer->pointer(0, 0x7FFF + 40, 0x7FFF - 20);
    EXPECT_TRUE(
        becomes([&](const auto &s) { return s.x == before.x + 40 && s.y == before.y - 20; }));

    RawViewer old(gateway_->socketPath());
    ASSERT_TRUE(old.enter());
    board_->video().setSize(1920, 1080);
    EXPECT_TRUE(viewer->until([&] { return viewer->width() == 1920; }));
    old.request(true);
    while (old.read()) old.request(true);
    EXPECT_TRUE(gateway_->says("which this viewer cannot follow"));
}

TEST_F(Gateway, TakesAndKeepsControlOverARestart) {
    auto viewer = openGateway("--level 5", "per_enable=1\n");
    EXPECT_TRUE(shows(*viewer, kHeld));
    viewer->tap('a');
    EXPECT_TRUE(arrives("a"));
    EXPECT_EQ(gateway_->end(SIGTERM), 0);
    gateway_.emplace("--to 192.168.1.10 --from 192.168.1.20 --name ann --level 5");
    viewer = Gateway::viewer();
    viewer->tap('b');
    EXPECT_TRUE(arrives("ab"));
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(quillon::linkedOutputs(quillon::parseSettings(settings())).size(), 1U);

    // A stronger user takes over: what is down goes up, and the picture says who it is.
    viewer->key('c', true);
    EXPECT_TRUE(keyIs(6));
    run("quillon-console --to 192.168.1.10 --from 192.168.1.21 connect --name bob --level 9 "
        "--output 192.168.1.21");
    EXPECT_TRUE(keyIs(0));
    EXPECT_TRUE(
        shows(*viewer, "Control: held by 192.168.1.21-bob, level 9 | outputs 192.168.1.21."));
}

TEST_F(Gateway, GivesTheControlThatItTookWhenNobodyIsThere) {
    auto viewer = openGateway("--level 5", "per_enable=1\n");
    EXPECT_TRUE(shows(*viewer, kHeld));
    viewer.reset();
    const auto given =
        run("quillon-console --to 192.168.1.10 --from 192.168.1.21 apply --level 5 --name bob "
            "--output 192.168.1.21");
    EXPECT_TRUE(holds(given, "granted by 192.168.1.20-ann")) << given.said;
}

TEST_F(Gateway, GivesNoControlThatItDidNotTake) {
    startGateway("--level 5",
                 "per_enable=1\nconnect_name=192.168.1.20-ann\nconnect_per=5\n"
                 "connect_ip0=192.168.1.20\n");
    const auto refused =
        run("quillon-console --to 192.168.1.10 --from 192.168.1.21 apply --level 5 --name bob "
            "--output 192.168.1.21");
    EXPECT_FALSE(holds(refused, "granted by")) << refused.said;
    EXPECT_TRUE(holds(settings(), "connect_name=192.168.1.20-ann")) << refused.said;
}

TEST_F(Gateway, OwnsTheConsolePortsAndPassesOn) {
    ASSERT_NO_FATAL_FAILURE(startGateway());
    const auto second = run("quillon-gateway --to 192.168.1.10 --from 192.168.1.20");
    EXPECT_EQ(second.status, 1);
    EXPECT_TRUE(holds(second, "another program at 192.168.1.20 answers the endpoints"));
    const auto watching =
        run("timeout 4 quillon-console --from 192.168.1.20 watch >/data/watch 2>&1 & sleep 1; "
            "quillon-console --to 192.168.1.10 --from 192.168.1.21 permissions on; "
            "quillon-console --to 192.168.1.10 --from 192.168.1.21 connect --name bob --level 9 "
            "--output 192.168.1.20; wait; cat /data/watch");
    EXPECT_TRUE(holds(watching, "bob")) << watching.said;
}

// Whatever ends the gateway, nothing stays down.
class EverySignal : public Gateway, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Each, EverySignal, testing::Values(SIGINT, SIGTERM, SIGHUP, SIGKILL));

TEST_P(EverySignal, LetsEverythingGo) {
    auto viewer = openGateway();
    viewer->pointer(1, 500, 500);
    viewer->key('a', true);
    EXPECT_TRUE(becomes([](const auto &s) { return s.keys[0] != 0 && s.buttons == 1; }));
    const std::string path = gateway_->socketPath();
    EXPECT_EQ(gateway_->end(GetParam()), GetParam() == SIGKILL ? 128 + SIGKILL : 0);
    EXPECT_TRUE(becomes([](const auto &s) { return s.keys[0] == 0 && s.buttons == 0; }));
    if (GetParam() != SIGKILL) {
        EXPECT_NE(access(path.c_str(), F_OK), 0);
    }
    gateway_.emplace("--to 192.168.1.10 --from 192.168.1.20");
    Gateway::viewer()->tap('b');
    EXPECT_TRUE(becomes([](const auto &s) { return s.text.back() == 'b'; }));
}

TEST_F(Gateway, LetsEverythingGoBeforeItIsStopped) {
    auto viewer = openGateway();
    viewer->key('a', true);
    EXPECT_TRUE(keyIs(quillon::kUsageA));
    kill(gateway_->pid(), SIGTSTP);  // Ctrl-Z
    EXPECT_TRUE(keyIs(0));
    EXPECT_TRUE(test::comesTrue(
        [this] {
            return holds(test::readFile("/proc/" + std::to_string(gateway_->pid()) + "/stat"),
                         ") T");
        },
        5s));
    kill(gateway_->pid(), SIGCONT);
    viewer->key('a', false);
    viewer->tap('b');
    EXPECT_TRUE(arrives("ab"));
}

// A viewer that does not take what is sent, and one whose clipboard comes before a release.
TEST_F(Gateway, LetsGoForViewersThatAreBusy) {
    auto viewer = openGateway();
    viewer->encodings({rfb::kRaw});  // without fences
    viewer->request(false);
    // On a slow machine an update is small, and a socket takes several.
    for (int i = 0; i < 30; ++i) {
        std::this_thread::sleep_for(20ms);
        viewer->request(true);
    }
    viewer->key('a', true);
    EXPECT_TRUE(keyIs(quillon::kUsageA));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(keyIs(0));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3500ms);
    viewer.reset();

    viewer = Gateway::viewer();
    viewer->key('b', true);
    EXPECT_TRUE(keyIs(quillon::kUsageA + 1));
    const auto copied = std::chrono::steady_clock::now();
    constexpr std::size_t kCopied = 300000;
    Bytes head{6, 0, 0, 0};
    rfb::append32(head, kCopied);
    viewer->say(head);
    viewer->say(std::string(kCopied, 'x'));
    viewer->key('b', false);
    EXPECT_TRUE(keyIs(0));
    EXPECT_LT(std::chrono::steady_clock::now() - copied, 2s);
}

TEST_F(Gateway, BoundsWhoComesAndWhatTheySend) {
    startListening(test::kFast);
    test::writeFile("/data/gateway.toml",
                    "[gateway]\nfrom = \"192.168.1.20\"\n[limits]\nviewers = 3\nunfinished = 2\n"
                    "handshake_seconds = 1\n[endpoint.rack]\naddress = \"192.168.1.10\"\n");
    EXPECT_TRUE(holds(run("quillon-gateway --config /data/gateway.toml --check"), "is right"));
    gateway_.emplace("--config /data/gateway.toml");
    EXPECT_TRUE(holds(gateway_->socketPath(), "/rack.sock"));
    auto first = viewer();

    RawViewer silent(gateway_->socketPath()), slow(gateway_->socketPath());
    EXPECT_EQ(silent.get(12).size(), 12U);
    EXPECT_EQ(slow.get(12).size(), 12U);
    RawViewer surplus(gateway_->socketPath());
    EXPECT_TRUE(silent.closed()) << "there is room for two that are not through";
    EXPECT_EQ(surplus.get(12).size(), 12U);
    EXPECT_TRUE(slow.closed() && surplus.closed()) << "after a second";

    auto second = viewer(), third = viewer();
    RawViewer fourth(gateway_->socketPath());
    EXPECT_FALSE(fourth.enter());

    // One that floods, and does not read what comes, does not slow the first one.
    std::string flood;
    for (int i = 0; i < 3000; ++i)
        flood += std::string("\x03\0\0\0\0\0\x07\x80\x04\x38", 10) +
                 std::string("\x05\0\0\x01\0\x01", 6);
    std::thread flooding([&] { second->say(flood); });
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 10; ++i) first->tap('a');
    EXPECT_TRUE(arrives("aaaaaaaaaa"));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);
    third->say("\x7f");
    EXPECT_TRUE(gateway_->says("a message of type 127, which was not offered"));
    first->tap('b');
    EXPECT_TRUE(arrives("aaaaaaaaaab"));
    EXPECT_EQ(gateway_->end(SIGINT), 0);
    flooding.join();
}

// Frames of a WebSocket without bytes cost what they cost the gateway.
TEST_F(Gateway, BoundsFramesThatHoldNothing) {
    ASSERT_NO_FATAL_FAILURE(startGateway());
    auto first = viewer();
    test::writeFile(
        "/data/flood.py",
        "import http.client, socket, sys, time\n"
        "host, path = sys.argv[1][7:].split('/', 1)\n"
        "c = http.client.HTTPConnection(host); c.request('GET', '/' + path)\n"
        "r = c.getresponse(); cookie = r.getheader('Set-Cookie').split(';')[0]\n"
        "key = r.getheader('Location')[2:]\n"
        "s = socket.create_connection(host.split(':'))\n"
        "s.sendall(('GET /viewers/192.168.1.10?%s HTTP/1.1\\r\\nHost: %s\\r\\n'\n"
        "  'Origin: http://%s\\r\\nCookie: %s\\r\\nConnection: Upgrade\\r\\n'\n"
        "  'Upgrade: websocket\\r\\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\\r\\n'\n"
        "  'Sec-WebSocket-Version: 13\\r\\n\\r\\n' % (key, host, host, cookie)).encode())\n"
        "print(s.recv(12)); sent = 0; end = time.time() + 3; s.settimeout(1)\n"
        "flood = (b'\\x89\\x80\\0\\0\\0\\0' * 400 + b'\\x82\\x81\\0\\0\\0\\0R') * 20\n"
        "try:\n"
        "  while time.time() < end: sent += s.send(flood)\n"
        "except OSError: pass\n"
        "print('few' if sent < 15000000 else sent)  # the kernel's buffers\n");
    std::future<test::Outcome> flood = std::async(std::launch::async, [this] {
        return run("python3 /data/flood.py " + gateway_->browserAddress());
    });
    std::this_thread::sleep_for(1500ms);
    first->tap('a');
    EXPECT_TRUE(arrives("a"));
    const auto said = flood.get();
    EXPECT_TRUE(holds(said, "HTTP/1.1 101")) << said.said;
    EXPECT_TRUE(holds(said, "few")) << said.said;
}

TEST_F(Gateway, ServesManyEndpoints) {
    std::ofstream file("/data/gateway.toml");
    for (int i = 0; i < 600; ++i)
        file << "[endpoint.e" << i << "]\naddress = \"127.0." << 1 + i / 200 << "." << 1 + i % 200
             << "\"\n";
    file.close();
    gateway_.emplace("--config /data/gateway.toml");
    quillon::DatagramSocket endpoint("127.0.1.100", 80, "");
    RawViewer viewer(gateway_->socketPath());  // of e99, the last name
    EXPECT_TRUE(viewer.enter());
    viewer.key('a', true);
    const auto keyGets = [&](char usage) {
        for (int i = 0; i < 20; ++i) {
            const auto record = endpoint.receive(1s);
            if (record && record->text.size() == 11 && record->text[5] == usage) return true;
        }
        return false;
    };
    EXPECT_TRUE(keyGets(quillon::kUsageA));
    gateway_->end(SIGKILL);
    EXPECT_TRUE(keyGets(0));
}

TEST_F(Gateway, WantsAPasswordOnTcpAndReadsANewCertificate) {
    startListening(test::kFast);
    const auto certificate = [](const std::string &name) {
        run("cd /data && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes "
            "-days 2 -subj /CN=" +
            name +
            " -keyout key.new -out cert.new && mv key.new key.pem && "
            "mv cert.new cert.pem");
    };
    certificate("first");
    run("cd /data && echo geheim >password && chmod 600 password");
    EXPECT_EQ(run("quillon-gateway --to 192.168.1.10 --listen 127.0.0.1:5900").status, 2);
    gateway_.emplace(
        "--to 192.168.1.10 --from 192.168.1.20 --listen 127.0.0.1:5900 --certificate "
        "/data/cert.pem --key /data/key.pem --password-file /data/password");
    RawViewer plain("127.0.0.1:5900");
    EXPECT_FALSE(plain.enter()) << "without TLS";
    // A viewer's handshake up to TLS, which openssl goes on with.
    const std::string subject =
        "python3 -c '\n"
        "import socket, ssl\n"
        "s = socket.create_connection((\"127.0.0.1\", 5900))\n"
        "for words, count in ((b\"\", 12), (b\"RFB 003.008\\n\", 2), (b\"\\x13\", 2),\n"
        "                     (b\"\\0\\2\", 6), (b\"\\0\\0\\1\\6\", 1)):\n"
        "    s.sendall(words)\n"
        "    while count: count -= len(s.recv(count))\n"
        "c = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT); c.check_hostname = False\n"
        "c.verify_mode = ssl.CERT_NONE\n"
        "t = c.wrap_socket(s); d = t.getpeercert(True)\n"
        "print(\"first\" if b\"first\" in d else \"second\" if b\"second\" in d else \"none\")'";
    EXPECT_EQ(run(subject).said, "first\n");
    certificate("second");
    EXPECT_EQ(run(subject).said, "second\n");
    test::writeFile("/data/cert.pem", "broken");
    EXPECT_EQ(run(subject).said, "second\n") << "the one before still counts";
    EXPECT_TRUE(gateway_->says("The certificate from before still counts"));
}

TEST_F(Gateway, TakesSocketsAsSystemdPassesThem) {
    startListening(test::kFast);
    test::writeFile("/data/activate.py",
                    "import os, socket, sys\n"
                    "for fd, port in ((3, 8017), (4, 5900)):\n"
                    "    s = socket.create_server((\"127.0.0.1\", port))\n"
                    "    os.dup2(s.fileno(), fd)\n"
                    "os.environ.update(LISTEN_PID=str(os.getpid()), LISTEN_FDS=\"2\",\n"
                    "                  LISTEN_FDNAMES=\"web:viewers\")\n"
                    "os.execvp(\"quillon-gateway\", [\"quillon-gateway\"] + sys.argv[1:])\n");
    run("cd /data && echo geheim >password && chmod 600 password");
    gateway_.emplace("--to 192.168.1.10 --from 192.168.1.20 --password-file /data/password",
                     "python3 /data/activate.py");
    EXPECT_TRUE(holds(gateway_->browserAddress(), "http://127.0.0.1:8017/?token="));
    EXPECT_TRUE(gateway_->says("Viewers of 192.168.1.10: 127.0.0.1:5900, with a password"));
    RawViewer viewer("127.0.0.1:5900");
    viewer.get(12);
    viewer.say("RFB 003.008\n");
    EXPECT_EQ(viewer.get(2), "\x01\x02");
    viewer.say("\x02");
    rfb::Challenge challenge{};
    const std::string asked = viewer.get(challenge.size());
    std::copy(asked.begin(), asked.end(), challenge.begin());
    challenge = rfb::encrypted(challenge, "geheim");
    viewer.say(Bytes(challenge.begin(), challenge.end()));
    EXPECT_EQ(viewer.get(4), std::string(4, '\0'));
    viewer.say("\x01");
    EXPECT_TRUE(viewer.screen());
}

TEST_F(Gateway, RefusesWhatDoesNotFitTogether) {
    test::expectRefused("quillon-gateway", 2,
                        {{"", "--to or --config"},
                         {"--to rack", "--to"},
                         {"--to 192.168.1.10 --config x", "excludes"},
                         {"--to 192.168.1.10 --listen-fd web", "takes WHAT=N"},
                         {"--to 192.168.1.10 --certificate a", "--key"}});
    test::expectRefused("quillon-gateway", 1,
                        {{"--config /data/none", "there is no file"},
                         {"--to 192.168.1.10 --layout qq", "no keyboard layout"},
                         {"--to 192.168.1.10 --listen-fd web=77", "is no listening socket"},
                         {"--to 192.168.1.10 --listen-fd other=0", "is called web, viewers"},
                         {"--to 192.168.1.10 --web-files /data", "there is no page"}});
}

}  // namespace
