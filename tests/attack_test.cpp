// What strangers try, on the network and on the machine, and what befalls clumsy users.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>

#include "commands.h"
#include "discovery.h"
#include "input.h"
#include "network.h"
#include "on_board.h"
#include "printable.h"
#include "questions.h"
#include "responder.h"
#include "stranger.h"
#include "tmux.h"
#include "trace.h"

namespace {

using namespace std::chrono_literals;
using test::holds, test::kBoard, test::kConsole, test::kFast, test::kOther, test::Outcome,
    test::run, test::Stranger;

constexpr char kProgram[] = PROGRAM_DIR "/quillon-console ";
constexpr char kBoardProgram[] = PROGRAM_DIR "/quillon-board ";
// Clear the screen, set the title, fill the clipboard; once more as a C1 control.
constexpr char kEscapes[] = "\x1b[2J\x1b]0;x\x07\x1b]52;c;eA==\x07\x9b\x32J\r\x7f";

bool isPlain(const std::string &text) {
    return std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return c == '\n' || (c >= ' ' && c <= '~'); });
}

TEST(Escapes, OfAnEndpointReachNoTerminal) {
    const std::string name = kEscapes, settings = "per_enable=1\n" + name + "=" + name + "\n";
    test::Responder operators("127.0.0.1", 41302, [&](const std::string &text) {
        return text == "query" ? "query|" + name + "|1|" + name + "|5" : settings;
    });
    test::Responder data("127.0.0.1", 80, [&](const std::string &) { return name; });
    for (const char *question : {"query", "settings", "link", "connect --name a --level 1",
                                 "--json query", "--json settings"}) {
        const Outcome outcome = run(std::string(kProgram) + "--to 127.0.0.1 " + question);
        EXPECT_TRUE(isPlain(outcome.said)) << question << ": " << console::printable(outcome.said);
        EXPECT_TRUE(holds(outcome, "2J") || holds(outcome, "answered")) << outcome.said;
    }
    const Outcome log = run(std::string(kBoardProgram) +
                            "--log -- bash -c 'printf \"\\033]0;x\\233\" >/dev/udp/192.168.1.10/80;"
                            " sleep 0.2'");
    EXPECT_TRUE(holds(log, "data error: ?]0;x?")) << log.said;
    EXPECT_TRUE(isPlain(log.said));
}

TEST(BoardControl, BelievesNobodyElsesBoard) {
    const Stranger impostor([] { test::listenAt("quillon-board/0/default", "usb attached"); });
    if (!impostor.exists()) GTEST_SKIP() << "one user only";
    const std::string board = kBoardProgram;
    for (const char *arguments : {"ctl status", "enter -- touch /entered", "-- touch /entered"}) {
        const Outcome outcome = run(board + arguments);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_TRUE(holds(outcome, "another user of this machine has the name of the board"));
        EXPECT_FALSE(holds(outcome, "usb"));
    }
    EXPECT_NE(access("/entered", F_OK), 0);
}

TEST(BoardControl, SilentStrangersHoldNobodyUp) {
    const Outcome outcome = run(
        std::string(kBoardProgram) + "--name busy 2>/dev/null >&2 & echo $!; until " +
        kBoardProgram + "--name busy ctl status 2>/dev/null | grep -q :80; do sleep 0.02; done");
    const pid_t board = static_cast<pid_t>(atoi(outcome.said.c_str()));
    const Stranger strangers([] {
        for (int i = 0; i < 9; ++i) test::connectTo("quillon-board/0/busy");
    });
    const auto begin = sim::Clock::now();
    EXPECT_EQ(run(std::string(kBoardProgram) + "--name busy ctl status").status, 0);
    EXPECT_LT(sim::Clock::now() - begin, 4s) << "a second was spent on each of nine";
    kill(board, SIGINT);
}

TEST(BoardControl, EntersTheBoardAlsoInAChroot) {
    const Outcome outcome = run(
        "mkdir /chroot && mount --rbind / /chroot && cd / && chroot /chroot bash -c '" +
        std::string(kBoardProgram) + "--lines >/dev/null 2>&1 & until " + kBoardProgram +
        "ctl status 2>/dev/null | grep -q :80; do sleep 0.02; done; " + kBoardProgram +
        "enter -- cat /version/hardware_info; kill -INT $!; wait'");
    EXPECT_TRUE(holds(outcome, "QBRD10401m2_3000_R1")) << outcome.said;
}

TEST(BoardControl, RunsNothingOfTheCurrentFolderWithoutAPath) {
    mkdir("/trap", 0755);
    test::writeFile("/trap/ip", "#!/bin/sh\ntouch /trap/ran\n");
    chmod("/trap/ip", 0755);
    EXPECT_EQ(run("cd /trap && env -u PATH " + std::string(kBoardProgram) + "-- /bin/true").status,
              0);
    EXPECT_NE(access("/trap/ran", F_OK), 0);
}

TEST(FullDisk, IsNoticed) {
    test::Responder operators("127.0.0.1", 41302, [](const std::string &) { return "ip=1\n"; });
    const std::string console = kProgram, board = kBoardProgram;
    for (const std::string &command :
         {console + "--to 127.0.0.1 settings >/dev/full", console + "--help >/dev/full",
          board + "--trace /dev/full -- true", board + "-- true; " + board + "--help >/dev/full",
          board + "-- " + console + "--to 192.168.1.10 type a >/dev/full",
          "mkdir -p /kept && ln -s /dev/full /kept/quillon.log; " + board + "--keep /kept -- true"}) {
        const Outcome outcome = run(command);
        EXPECT_EQ(outcome.status, 1) << command;
        EXPECT_TRUE(holds(outcome, "cannot write to")) << command << outcome.said;
    }
}

TEST(ClosedOutput, IsNoPlaceForATrace) {
    const Outcome outcome = run(std::string(kBoardProgram) + "--trace /data/trace.pcapng -- " +
                                kProgram + "--to 192.168.1.10 type hello >&- 2>&-; "
                                "grep -c typed /data/trace.pcapng");
    EXPECT_EQ(outcome.said, "0\n");
}

TEST(Wait, ForAnAnswerEndsWithCtrlC) {
    test::Responder silent("127.0.0.1", 80, [](const std::string &) { return std::nullopt; });
    const auto begin = sim::Clock::now();
    run("timeout -s INT 1 " + std::string(kProgram) + "--to 127.0.0.1 --timeout 60000 link");
    EXPECT_LT(sim::Clock::now() - begin, 30s);
}

TEST(Relay, NameThatAnotherUserHoldsSilencesNobody) {
    sim::makeEth0({kConsole});
    const Stranger holder([] {
        test::listenAt("quillon-watch-192.168.1.20", "");
        test::listenAt("quillon-watch/0/192.168.1.20", "");
    });
    if (!holder.exists()) GTEST_SKIP() << "one user only";
    const Outcome outcome = run(std::string(kProgram) +
                                "--from 192.168.1.20 watch --refuse 2>/data/said & "
                                "until grep -q watching /data/said; do sleep 0.02; done; "
                                "bash -c 'exec 3<>/dev/udp/192.168.1.20/41237; printf heart >&3; "
                                "read -r -N 8 -t 5 answer <&3; echo $answer'; kill $!; wait; "
                                "cat /data/said");
    EXPECT_TRUE(holds(outcome, "ackheart\n")) << outcome.said;
    EXPECT_TRUE(holds(outcome, "another user of this machine has the name")) << outcome.said;
}

TEST(Relay, AnotherUserHearsNothing) {
    sim::makeEth0({"192.168.1.22"});
    const Outcome started = run(std::string(kProgram) +
                                "--from 192.168.1.22 watch --refuse >/dev/null 2>/data/said & "
                                "echo $!; until grep -q watching /data/said; do sleep 0.02; done");
    // Returns when the connection is closed on it.
    const Stranger eavesdropper([] { test::hearAt("quillon-watch/0/192.168.1.22"); });
    run("kill " + started.said);
}

// ---- on the network

console::LinkMessage asks(const std::string &user) {
    return *console::parseLinkMessage("apply|192.168.1.10|" + user);
}

TEST(Questions, AFloodLeavesRoomForOthers) {
    console::Questions questions("192.168.1.10");
    const auto now = sim::Clock::now();
    for (int i = 0; i < 100; ++i)
        questions.add(asks("mallory" + std::to_string(i)), {"", "192.168.1.66", 1}, now);
    EXPECT_EQ(questions.surplus(), 96U);
    for (int i = 0; i < 50; ++i)
        questions.add(asks("eve"), {"", "192.168.2." + std::to_string(i), 1}, now);
    EXPECT_EQ(questions.size(), 16U);
    const auto *bob = questions.add(asks("bob"), {"", "192.168.1.10", 41303}, now);
    ASSERT_NE(bob, nullptr);
    EXPECT_EQ(questions.front().message.user, "bob");
    EXPECT_EQ(questions.add(asks("bob"), {"", "192.168.1.10", 41303}, now), nullptr);
    const unsigned number = questions.front().number;
    EXPECT_TRUE(questions.remove(number));
    EXPECT_FALSE(questions.remove(number));
    EXPECT_EQ(questions.find(number), nullptr);
    EXPECT_FALSE(questions.takeLate(now + 10s));
    for (int i = 0; i < 16; ++i) EXPECT_TRUE(questions.takeLate(now + 11s));
    EXPECT_TRUE(questions.empty());
    EXPECT_EQ(questions.surplus(), 0U);
}

TEST(Discovery, AnAnswerCountsForWhoSentItOnce) {
    console::Discovery discovery;
    discovery.take({"query|192.168.1.10|1|bob|5", "192.168.1.66", 41302});
    discovery.take({"query|kEth0Ip|0||0", kBoard, 41302});
    discovery.take({"query|192.168.1.10|1|mallory|5", kBoard, 41302});
    discovery.take({"garbage", "192.168.1.67", 41302});
    ASSERT_EQ(discovery.found().size(), 2U);
    EXPECT_EQ(discovery.found()[0].address, "192.168.1.66");
    EXPECT_FALSE(discovery.found()[1].holder.linked);
    EXPECT_EQ(discovery.surplus(), 2U);
}

class Attack : public test::OnBoard {
  protected:
    // Says something to the console at 192.168.1.20, as an endpoint that is none.
    static void forge(const std::string &text, const std::string &from = kOther) {
        console::DatagramSocket(from, 0, from).send(kConsole, 2333, text);
    }
};

TEST_F(Attack, ForgedMessagesNeitherTakeControlNorHideWhoApplies) {
    startListening(std::string(kFast) + "per_enable=1\nconnect_name=0\n");
    test::Tmux terminal(std::string("exec ") + kProgram +
                        "--to 192.168.1.10 --from 192.168.1.20 control --name ann --level 5 --apply");
    ASSERT_TRUE(terminal.shows("held by 192.168.1.20-ann (you), level 5")) << terminal.screen();
    const auto keyIs = [&](std::uint8_t usage) {
        return board_->computer().waitFor([&](const auto &s) { return s.keys[0] == usage; }, 5s);
    };
    terminal.send("\x1b[?15u\x1b[97;1:1u");
    ASSERT_TRUE(keyIs(0x04));
    forge("disconnect|192.168.1.10|0|192.168.1.20-ann|5");
    EXPECT_TRUE(terminal.shows("192.168.1.21 (calls itself 192.168.1.10): 192.168.1.20-ann"))
        << terminal.screen();
    for (int i = 0; i < 100; ++i) forge("apply|192.168.1.10|mallory" + std::to_string(i));
    EXPECT_TRUE(terminal.shows("mallory0 asks for control of 192.168.1.21"));
    console::Endpoint(kBoard, 41302, "192.168.1.30")
        .send("apply|192.168.1.30-bob|192.168.1.30|5", 37);
    EXPECT_TRUE(terminal.shows("192.168.1.30-bob asks for control of 192.168.1.10 (and 100 more)"))
        << terminal.screen();
    EXPECT_EQ(board_->computer().state().keys[0], 0x04) << "it let go";
}

TEST_F(Attack, SettingsOfTheGroupComeFromTheEndpointAlone) {
    startListening(kFast);
    console::Session session(kBoard, 80, kConsole, 3s);
    std::atomic<bool> ending{false};
    std::thread forger([&] {
        console::DatagramSocket socket(kOther, 0, kOther);
        for (; !ending; usleep(200)) socket.send("224.168.1.1", 4001, "ip=6.6.6.6\n");
    });
    EXPECT_EQ(session.settingsViaGroup()["ip"], "128.0.111.55");
    ending = true;
    forger.join();
}

TEST_F(Attack, AnswerTypedForOneQuestionIsNotTakenForAnother) {
    sim::makeEth0({kConsole, kOther, test::kThird});
    console::DatagramSocket bobs(kOther, 41303, kOther), mallorys(test::kThird, 0, test::kThird);
    test::Tmux terminal(std::string("exec ") + kProgram + "--from 192.168.1.20 watch", 160);
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
    EXPECT_EQ(mallorys.receive(5s).value_or(console::DatagramSocket::Received{}).text,
              "reply|192.168.1.20|mallory|0");
    terminal.send("y1\r");
    EXPECT_EQ(bobs.receive(5s).value_or(console::DatagramSocket::Received{}).text,
              "reply|192.168.1.20|bob|1");
    EXPECT_FALSE(mallorys.receive(0ms));
}

TEST_F(Attack, EveryWayOutLetsKeysAndButtonsGo) {
    startListening(kFast);
    const std::string console = std::string(kProgram) + "--to 192.168.1.10 --interval 1500 ";
    for (const char *signal : {"INT", "TERM", "HUP", "QUIT"}) {
        const Outcome started =
            run(console + "mouse click left --at 100 100 >/dev/null 2>&1 & echo $!");
        const auto buttonsAre = [&](int buttons) {
            return board_->computer().waitFor([&](const auto &s) { return s.buttons == buttons; },
                                              10s);
        };
        ASSERT_TRUE(buttonsAre(1));
        run(std::string("kill -") + signal + " " + started.said);
        EXPECT_TRUE(buttonsAre(0)) << signal;
    }
}

TEST_F(Attack, KeysAreLetGoWhenAnEndpointWasGoneForAWhile) {
    test::Responder operators("127.0.0.1", 41302, [](const std::string &) { return "per_enable=0"; });
    auto data = std::make_unique<console::DatagramSocket>("127.0.0.1", 8080, "");
    run(std::string(kProgram) +
        "--to 127.0.0.1 --port 8080 --interval 200 key ctrl+c >/dev/null 2>&1 &");
    const auto first = data->receive(5s);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->text[3], 0x01) << "Ctrl is down";
    data.reset();
    std::this_thread::sleep_for(600ms);  // two more records find nobody
    data = std::make_unique<console::DatagramSocket>("127.0.0.1", 8080, "");
    for (int times = 0; times < 2; ++times) {
        const auto release = data->receive(5s);
        ASSERT_TRUE(release) << times;
        EXPECT_EQ(release->text, std::string("\x57\xAB\x01\0\0\0\0\0\0\0\0", 11));
    }
}

TEST_F(Attack, RecordsAreRepeatedAsOftenAsAsked) {
    test::Responder operators("127.0.0.1", 41302, [](const std::string &) { return "per_enable=0"; });
    console::DatagramSocket data("127.0.0.1", 8080, "");
    EXPECT_EQ(run(std::string(kProgram) + "--to 127.0.0.1 --port 8080 type --repeat 5 a").status, 0);
    int presses = 0, releases = 0;
    while (const auto record = data.receive(0ms)) ++(record->text[5] == 4 ? presses : releases);
    EXPECT_EQ(presses, 5);
    EXPECT_EQ(releases, 5 + 3) << "and once more, whatever was asked";
}

TEST_F(Attack, LogGoesNeitherIntoMemoryNorKeepsTheDaemonAlive) {
    // Standard output and error closed: the next descriptors are /dev/mem's.
    test::writeFile("/data/closed", "#!/bin/sh\nexec " PROGRAM_DIR "/quillon >&- 2>&-\n");
    // Its reader gone after a line.
    test::writeFile("/data/unread", "#!/bin/sh\n" PROGRAM_DIR "/quillon | head -n 1\n");
    for (const char *wrapper : {"/data/closed", "/data/unread"}) {
        chmod(wrapper, 0755);
        options_.daemon = wrapper;
        start(kFast);
        for (int i = 0; i < 1000 && !sim::udpPortBound(41302); ++i) usleep(10000);
        ASSERT_TRUE(sim::udpPortBound(41302)) << wrapper;
        type(kConsole, 'k');
        EXPECT_TRUE(arrives("k")) << wrapper;
        EXPECT_EQ(board_->registers().get(0), 0U);
        run("pkill -KILL -x quillon");
        board_.reset();
    }
}

TEST_F(Attack, ClosedPortFillsNoLogAndSigtermEndsIt) {
    options_.chipBaud = 9600;  // stores 115200: the daemon asks for a reboot, its port closed
    options_.powerCycle = false;
    const auto key = console::keyboardRecord({0, 0x04});
    for (const std::string &text : {std::string("capslock"), std::string(key.begin(), key.end())}) {
        startListening("buad_rate=9600\n");
        console::Endpoint(kBoard, 80, kConsole).send(text.data(), text.size());
        EXPECT_TRUE(logs(text == "capslock" ? "select error" : "version 1, rel_enable 0"));
        std::this_thread::sleep_for(300ms);
        EXPECT_EQ(board_->daemon()->stop(SIGTERM, 15s), 255);
        const auto log = board_->daemon()->log();
        EXPECT_LT(std::count(log.begin(), log.end(), "select error"), 100);
        board_.reset();
    }
}

TEST_F(Attack, LongTextsDoNotHoldTheDissectorUp) {
    sim::makeEth0({kBoard});
    {
        sim::Trace trace(sim::openTrace("/data/long.pcapng"));
        console::DatagramSocket socket("", 0, "");
        for (const char *piece : {"=", "a=\n", "|", "connect|"}) {
            std::string text;
            while (text.size() < 65000) text += piece;
            socket.send(kBoard, 41302, text.substr(0, 65000));
        }
        EXPECT_EQ(trace.finish(), "");
    }
    const Outcome outcome = run("timeout 30 tshark -r /data/long.pcapng -V -X lua_script:" SOURCE_DIR
                                "/packaging/wireshark/quillon.lua | grep -c 'Quillon Console'");
    EXPECT_EQ(atoi(outcome.said.c_str() + outcome.said.rfind('\n', outcome.said.size() - 2) + 1), 4)
        << outcome.said;
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
