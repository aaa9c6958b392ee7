// Attacks of strangers, on the network and on the machine, and accidents of users.

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>

#include "protocol/input.h"
#include "sim/host/network.h"
#include "sim/view/trace.h"
#include "terminal/printable.h"
#include "tests/support/on_board.h"
#include "tests/support/tmux.h"
#include <quillon/discovery.h>
#include <quillon/questions.h>

namespace {

using namespace std::chrono_literals;
using quillon::DatagramSocket;
using test::expectHeld, test::holds, test::kBoard, test::kConsole, test::kFast, test::kOther,
    test::kThird, test::Outcome, test::run;

// Clear the screen, set the title, fill the clipboard, clear the screen with a C1 control.
constexpr char kEscapes[] = "\x1b[2J\x1b]0;x\x07\x1b]52;c;eA==\x07\x9b\x32J\r\x7f";

// A UDP port of 127.0.0.1 that answers as a test wants, from a thread of its own.
class Responder {
  public:
    using Answer = std::function<std::optional<std::string>(const std::string &)>;

    Responder(std::uint16_t port, Answer answer) : socket_("127.0.0.1", port, "") {
        thread_ = std::thread([this, answer = std::move(answer)] {
            while (!ending_) {
                const auto asked = socket_.receive(20ms);
                const auto text = asked ? answer(asked->text) : std::nullopt;
                if (text) socket_.send(asked->sender, asked->senderPort, *text);
            }
        });
    }
    ~Responder() {
        ending_ = true;
        thread_.join();
    }

  private:
    DatagramSocket socket_;
    std::atomic<bool> ending_{false};
    std::thread thread_;
};

// A socket for a name of the abstract name space; take is bind or connect.
int abstractSocket(const char *name, int (*take)(int, const sockaddr *, socklen_t)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path + 1, name, strlen(name));
    const std::size_t size = offsetof(sockaddr_un, sun_path) + 1 + strlen(name);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    take(fd, reinterpret_cast<sockaddr *>(&address), static_cast<socklen_t>(size));
    return fd;
}

// Listens at a name and answers everybody with a text.
void listenAt(const char *name, const char *answer) {
    const int fd = abstractSocket(name, bind);
    listen(fd, 8);
    std::thread([fd, answer] {
        for (;;) send(accept(fd, nullptr, nullptr), answer, strlen(answer), MSG_NOSIGNAL);
    }).detach();
}

bool isPlain(const std::string &text) {
    return std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return c == '\n' || (c >= ' ' && c <= '~'); });
}

TEST(Escapes, OfAnEndpointReachNoTerminal) {
    const std::string name = kEscapes, settings = "per_enable=1\n" + name + "=" + name + "\n";
    const Responder operators(41302, [&](const std::string &text) {
        return text == "query" ? "query|" + name + "|1|" + name + "|5" : settings;
    });
    const Responder data(80, [&](const std::string &) { return name; });
    for (const char *question : {"query", "settings", "link", "connect --name a --level 1",
                                 "--json query", "--json settings"}) {
        const Outcome outcome = run(std::string("quillon-console --to 127.0.0.1 ") + question);
        EXPECT_TRUE(isPlain(outcome.said)) << question << ": " << quillon::printable(outcome.said);
        EXPECT_TRUE(holds(outcome, "2J") || holds(outcome, "answered")) << outcome.said;
    }
    const Outcome log =
        run("quillon-board --log -- bash -c "
            "'printf \"\\033]0;x\\233\" >/dev/udp/192.168.1.10/80; sleep 0.2'");
    EXPECT_TRUE(holds(log, "data error: ?]0;x?")) << log.said;
    EXPECT_TRUE(isPlain(log.said));
}

TEST(BoardControl, BelievesNobodyElsesBoard) {
    if (!test::asStranger([] { listenAt("quillon-board/0/default", "usb attached"); }))
        GTEST_SKIP() << "one user only";
    for (const char *arguments : {"ctl status", "enter -- touch /entered", "-- touch /entered"}) {
        const Outcome outcome = run(std::string("quillon-board ") + arguments);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_TRUE(holds(outcome, "another user of this machine has the name of the board"));
        EXPECT_FALSE(holds(outcome, "usb"));
    }
    EXPECT_NE(access("/entered", F_OK), 0);
}

TEST(BoardControl, SilentStrangersHoldNobodyUp) {
    run("quillon-board --name busy >/dev/null 2>&1 & "
        "until quillon-board --name busy ctl status 2>/dev/null | grep -q :80; do sleep 0.02; "
        "done");
    test::asStranger([] {
        for (int i = 0; i < 9; ++i) abstractSocket("quillon-board/0/busy", connect);
    });
    const auto begin = sim::Clock::now();
    EXPECT_EQ(run("quillon-board --name busy ctl status").status, 0);
    EXPECT_LT(sim::Clock::now() - begin, 4s) << "a second was spent on each of nine";
    run("pkill -INT -f 'quillon-board --name busy'");
}

TEST(BoardControl, EntersTheBoardAlsoInAChroot) {
    expectHeld(run("mkdir /chroot && mount --rbind / /chroot && cd / && chroot /chroot bash -c '"
                   "quillon-board --lines >/dev/null 2>&1 & "
                   "until quillon-board ctl status 2>/dev/null | grep -q :80; do sleep 0.02; done; "
                   "quillon-board enter -- cat /version/hardware_info; kill -INT $!; wait'")
                   .said,
               {"QBRD10401m2_3000_R1"});
}

TEST(BoardControl, RunsNothingOfTheCurrentFolderWithoutAPath) {
    mkdir("/trap", 0755);
    test::writeFile("/trap/ip", "#!/bin/sh\ntouch /trap/ran\n");
    chmod("/trap/ip", 0755);
    EXPECT_EQ(run("cd /trap && env -u PATH " PROGRAM_DIR "/quillon-board -- /bin/true").status, 0);
    EXPECT_NE(access("/trap/ran", F_OK), 0);
}

TEST(FullDisk, IsNoticed) {
    const Responder operators(41302, [](const std::string &) { return "ip=1\n"; });
    for (const char *command :
         {"quillon-console --to 127.0.0.1 settings >/dev/full", "quillon-console --help >/dev/full",
          "quillon-board --trace /dev/full -- true", "quillon-board --help >/dev/full",
          "quillon-board -- quillon-console --to 192.168.1.10 type a >/dev/full",
          "mkdir -p /kept && ln -s /dev/full /kept/quillon.log; quillon-board --keep /kept -- "
          "true"}) {
        const Outcome outcome = run(command);
        EXPECT_EQ(outcome.status, 1) << command;
        EXPECT_TRUE(holds(outcome, "cannot write to")) << command << outcome.said;
    }
}

TEST(ClosedOutput, IsNoPlaceForATrace) {
    EXPECT_EQ(run("quillon-board --trace /data/trace.pcapng -- quillon-console --to 192.168.1.10 "
                  "type hello >&- 2>&-; grep -c typed /data/trace.pcapng")
                  .said,
              "0\n");
}

TEST(Wait, ForAnAnswerEndsWithCtrlC) {
    const Responder silent(80, [](const std::string &) { return std::nullopt; });
    const auto begin = sim::Clock::now();
    run("timeout -s INT 1 quillon-console --to 127.0.0.1 --timeout 60000 link");
    EXPECT_LT(sim::Clock::now() - begin, 30s);
}

TEST(Relay, NameThatAnotherUserHoldsKeepsNobodyFromAnsweringHeartbeats) {
    sim::makeEth0({kConsole});
    const bool isHeld = test::asStranger([] {
        listenAt("quillon-watch-192.168.1.20", "");
        listenAt("quillon-watch/0/192.168.1.20", "");
    });
    const std::string said =
        run("quillon-console --from 192.168.1.20 watch --refuse 2>/data/said & "
            "until grep -q watching /data/said; do sleep 0.02; done; "
            "bash -c 'exec 3<>/dev/udp/192.168.1.20/41237; printf no >&3; printf heart >&3; "
            "read -r -N 8 -t 5 answer <&3; read -r -N 8 -t 0.2 more <&3; echo $answer$more'; "
            "kill $!; wait; cat /data/said")
            .said;
    EXPECT_TRUE(holds(said, "ackheart\n")) << said << "it answers heartbeats, and nothing else";
    EXPECT_EQ(holds(said, "another user of this machine has the name"), isHeld) << said;
}

TEST(Relay, AnotherUserHearsNothing) {
    sim::makeEth0({"192.168.1.22"});
    run("quillon-console --from 192.168.1.22 watch --refuse >/dev/null 2>/data/said & "
        "until grep -q watching /data/said; do sleep 0.02; done");
    // Returns when the console closes the connection.
    test::asStranger([] {
        char text[256];
        const int fd = abstractSocket("quillon-watch/0/192.168.1.22", connect);
        while (recv(fd, text, sizeof text, 0) > 0) continue;
    });
    run("pkill -f '^quillon-console'");
}

// ---- on the network

using Attack = test::OnBoard;

TEST_F(Attack, SettingsOfTheGroupComeFromTheEndpointAlone) {
    startListening(kFast);
    quillon::Session session(kBoard, 80, kConsole, 3s);
    std::atomic<bool> ending{false};
    std::thread forger([&] {
        DatagramSocket socket(kOther, 0, kOther);
        for (; !ending; usleep(200)) socket.send("224.168.1.1", 4001, "ip=6.6.6.6\n");
    });
    EXPECT_EQ(session.settingsViaGroup()["ip"], "128.0.111.55");
    ending = true;
    forger.join();
}

TEST_F(Attack, AnswerTypedForOneQuestionIsNotTakenForAnother) {
    sim::makeEth0({kConsole, kOther, kThird});
    DatagramSocket bobs(kOther, 41303, kOther), mallorys(kThird, 0, kThird);
    const auto heard = [](DatagramSocket &socket) {
        return socket.receive(5s).value_or(DatagramSocket::Received{}).text;
    };
    test::Tmux terminal("exec quillon-console --from 192.168.1.20 watch", 160);
    ASSERT_TRUE(terminal.shows("watching"));
    bobs.send(kConsole, 2333, "apply|192.168.1.21|bob");
    ASSERT_TRUE(terminal.shows("The number may be left out."));
    terminal.send("y");
    mallorys.send(kConsole, 2333, "apply|192.168.1.21|mallory");
    ASSERT_TRUE(terminal.shows("Question 2"));
    terminal.send("\r");
    terminal.send("y\r");
    EXPECT_TRUE(terminal.shows("type y or n and the number")) << terminal.screen();
    terminal.send("n 2\r");
    EXPECT_EQ(heard(mallorys), "reply|192.168.1.20|mallory|0");
    terminal.send("y1\r");
    EXPECT_EQ(heard(bobs), "reply|192.168.1.20|bob|1");
    EXPECT_FALSE(mallorys.receive(0ms));
}

TEST_F(Attack, EveryWayOutLetsKeysAndButtonsGo) {
    startListening(kFast);
    for (const char *signal : {"INT", "TERM", "HUP", "QUIT"}) {
        const Outcome started =
            run("quillon-console --to 192.168.1.10 --interval 1500 mouse click left --at 100 100 "
                ">/dev/null 2>&1 & echo $!");
        ASSERT_TRUE(becomes([](const auto &s) { return s.buttons == 1; }));
        run(std::string("kill -") + signal + " " + started.said);
        EXPECT_TRUE(becomes([](const auto &s) { return s.buttons == 0; })) << signal;
    }
}

TEST_F(Attack, KeysAreLetGoWhenAnEndpointWasGoneForAWhile) {
    const Responder operators(41302, [](const std::string &) { return "per_enable=0"; });
    auto data = std::make_unique<DatagramSocket>("127.0.0.1", 8080, "");
    run("quillon-console --to 127.0.0.1 --port 8080 --interval 200 key ctrl+c >/dev/null 2>&1 &");
    const auto first = data->receive(5s);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->text[3], 0x01) << "Ctrl is down";
    data.reset();
    std::this_thread::sleep_for(600ms);  // nobody receives two more records
    data = std::make_unique<DatagramSocket>("127.0.0.1", 8080, "");
    for (int times = 0; times < 2; ++times) {
        const auto release = data->receive(5s);
        ASSERT_TRUE(release) << times;
        EXPECT_EQ(release->text, std::string("\x57\xAB\x01\0\0\0\0\0\0\0\0", 11));
    }
}

TEST_F(Attack, RecordsAreRepeatedAsOftenAsAsked) {
    const Responder operators(41302, [](const std::string &) { return "per_enable=0"; });
    DatagramSocket data("127.0.0.1", 8080, "");
    EXPECT_EQ(run("quillon-console --to 127.0.0.1 --port 8080 key --repeat 5 a").status, 0);
    int presses = 0, releases = 0;
    while (const auto record = data.receive(0ms)) ++(record->text[5] == 4 ? presses : releases);
    EXPECT_EQ(presses, 5);
    EXPECT_EQ(releases, 5 + 3) << "and once more, whatever was asked";
}

TEST_F(Attack, LogGoesNeitherIntoMemoryNorKeepsTheDaemonAlive) {
    // Standard output and error are closed, so /dev/mem would get their descriptors.
    test::writeFile("/data/closed", "#!/bin/sh\nexec " PROGRAM_DIR "/quillon >&- 2>&-\n");
    // The reader of the log ends after one line.
    test::writeFile("/data/unread", "#!/bin/sh\n" PROGRAM_DIR "/quillon | head -n 1\n");
    for (const char *wrapper : {"/data/closed", "/data/unread"}) {
        chmod(wrapper, 0755);
        options_.daemon = wrapper;
        start(kFast);
        const auto listens = [] { return sim::udpPortBound(80) && sim::udpPortBound(41302); };
        ASSERT_TRUE(test::comesTrue(listens, 20s)) << wrapper;
        type(kConsole, 'k');
        EXPECT_TRUE(arrives("k")) << wrapper;
        EXPECT_EQ(board_->registers().get(0), 0U);
        run("pkill -KILL -x quillon");
        board_.reset();
    }
}

TEST_F(Attack, LongTextsDoNotHoldTheDissectorUp) {
    sim::makeEth0({kBoard});
    DatagramSocket socket("", 0, "");
    for (const char *piece : {"=", "a=\n", "|", "connect|"}) {
        std::string text;
        while (text.size() < 65000) text += piece;
        sim::Trace trace(sim::openTrace("/data/long.pcapng"));
        socket.send(kBoard, 41302, text.substr(0, 65000));
        EXPECT_EQ(trace.finish(), "");
        expectHeld(run("timeout 30 tshark -r /data/long.pcapng -V -X lua_script:" SOURCE_DIR
                       "/packaging/wireshark/quillon.lua | grep -m 1 'Quillon Console'")
                       .said,
                   {"Quillon Console"});
    }
}

TEST(Live, EndsWithItsTerminal) {
    run("ln -s " SOURCE_DIR " '/a tree'; ln -s " PROGRAM_DIR " '/a folder'");
    {
        test::Tmux terminal("'/a tree/scripts/live' '/a folder'", 180, 50);
        ASSERT_TRUE(terminal.shows("answers in", 20s)) << terminal.screen();
    }
    const Outcome outcome =
        run("for i in $(seq 500); do pgrep -f '[/]a folder/quillon' >/dev/null || "
            "{ echo gone; break; }; sleep 0.02; done");
    EXPECT_EQ(outcome.said, "gone\n");
}

}  // namespace
