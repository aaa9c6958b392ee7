// "quillon-console control" in a real terminal.

#include <csignal>
#include <future>

#include "protocol/keys.h"
#include "tests/support/on_board.h"
#include "tests/support/tmux.h"
#include <quillon/datagram_socket.h>

namespace {

using namespace std::chrono_literals;
using test::kBoard, test::kFast, test::kOther, test::run, test::Tmux;

constexpr char kControl[] =
    "exec quillon-console --to 192.168.1.10 --from 192.168.1.20 control --name ann --level 5 ";

class Terminal : public test::OnBoard {
  protected:
    void startControl(const std::string &arguments = "", const std::string &settings = "") {
        startListening(kFast + settings);
        collectEvents();
        terminal_ = std::make_unique<Tmux>(kControl + arguments);
        ASSERT_TRUE(terminal_->shows("answers in")) << terminal_->screen();
    }

    // A cell of the terminal is some pixels of the picture.
    bool points(int x, int y) { return at(x, y, 15, 35); }

    std::unique_ptr<Tmux> terminal_;
};

TEST_F(Terminal, TypesPastesAndSendsCombinations) {
    startControl();
    terminal_->send("Hello, World!\r");
    EXPECT_TRUE(arrives("Hello, World!\n"));
    terminal_->press("C-c F5 M-x");
    EXPECT_TRUE(sees("ctrl+c\nf5\nalt+x\n")) << seen();
    terminal_->press("C-]");
    EXPECT_TRUE(terminal_->shows("x  ctrl+alt+delete"));
    terminal_->press("x");
    EXPECT_TRUE(sees("ctrl+alt+delete"));
    terminal_->press("C-] k");
    EXPECT_TRUE(terminal_->shows("keys, e.g."));
    terminal_->send("ctrl+alt+f2\r");
    EXPECT_TRUE(sees("ctrl+alt+f2"));
    terminal_->paste("two\nlines");
    EXPECT_TRUE(arrives("Hello, World!\ntwo\nlines"));
    terminal_->press("C-] p");
    EXPECT_TRUE(terminal_->shows("text:"));
    terminal_->send("abc\r");
    EXPECT_TRUE(arrives("Hello, World!\ntwo\nlinesabc"));
    terminal_->paste(std::string(2000, 'x'));
    EXPECT_TRUE(terminal_->shows("pasting, 1 %"));
    terminal_->press("C-]");
    EXPECT_TRUE(terminal_->shows("the paste was stopped"));
    terminal_->send("\xc3\xa9");
    EXPECT_TRUE(terminal_->shows("refused: cannot type U+00E9: the layout us has no key"));
    terminal_->press("C-] q");
    EXPECT_TRUE(keyIs(0));
}

TEST_F(Terminal, MousePointsClicksAndFollowsTheWindow) {
    startControl();
    terminal_->send("\x1b[<35;40;11M");  // the middle of the picture: columns 2 to 79, rows 3 to 19
    EXPECT_TRUE(points(960, 540));
    terminal_->send("\x1b[<0;40;11M\x1b[<0;40;11m\x1b[<2;40;11M\x1b[<2;40;11m\x1b[<65;40;11M");
    EXPECT_TRUE(sees("turned by -1")) << seen();
    test::expectHeld(seen(), {"left down", "right down"});
    terminal_->resize(120, 40);
    EXPECT_TRUE(terminal_->shows("mouse: positions"));
    terminal_->send("\x1b[<35;119;35M");
    EXPECT_TRUE(points(1911, 1063));
    terminal_->press("C-] m");
    ASSERT_TRUE(terminal_->shows("mouse: movements"));
    terminal_->send("\x1b[<35;60;20M\x1b[<35;50;20M");
    EXPECT_TRUE(points(1911 - 10 * (1920 / 118), 1063));
}

TEST_F(Terminal, KeysAreHeldWhereTheTerminalTellsReleases) {
    startControl();
    terminal_->send("\x1b[?15u\x1b[57441;2:1u\x1b[97;2:1u");
    EXPECT_TRUE(arrives("A"));
    const unsigned reports = board_->computer().state().reports;
    terminal_->send("\x1b[97;2:2u");
    // A key that is held is sent again, but types once.
    EXPECT_TRUE(becomes([&](const auto &s) { return s.reports >= reports + 3; }));
    EXPECT_EQ(board_->computer().state().text, "A");
    EXPECT_EQ(board_->computer().state().modifiers, quillon::kLeftShift);
    terminal_->send("\x1b[97;2:3u\x1b[57441;1:3u");
    EXPECT_TRUE(keyIs(0));
    terminal_->send("\x1b[98;1:1u");
    EXPECT_TRUE(keyIs(0x05));
    terminal_->send("\x1b[O");  // the focus goes, and the release will not come
    EXPECT_TRUE(keyIs(0));
}

TEST_F(Terminal, HolderIsAskedAndTakenOver) {
    startControl("--apply", "per_enable=1\nconnect_name=0\n");
    ASSERT_TRUE(terminal_->shows("held by 192.168.1.20-ann (you), level 5"));
    const auto apply = [](const std::string &request) {
        return quillon::Session(kBoard, 80, kOther, 3s).holderAfter(request, 15s).user;
    };
    const std::string equal = "apply|192.168.1.21-bob|192.168.1.21|5";
    auto refused = std::async(std::launch::async, apply, equal);
    ASSERT_TRUE(terminal_->shows("192.168.1.21-bob asks for control"));
    terminal_->send("y");  // typed as text, it does not give control away
    terminal_->press("C-] n");
    EXPECT_EQ(refused.get(), "192.168.1.20-ann");
    EXPECT_TRUE(terminal_->shows("control was refused to 192.168.1.21-bob"));
    auto granted = std::async(std::launch::async, apply, equal);
    ASSERT_TRUE(terminal_->shows("192.168.1.21-bob asks for control"));
    terminal_->send("\x1b[?15u\x1b[97;1:1u");
    EXPECT_TRUE(keyIs(0x04));
    // Soon after another question an answer is not taken for a second: it may be for that one.
    EXPECT_TRUE(test::comesTrue(
        [&] {
            terminal_->send("\x1b[93;5:1u\x1b[93;5:3uy");
            return granted.wait_for(1500ms) == std::future_status::ready;
        },
        8s));
    EXPECT_EQ(granted.get(), "192.168.1.21-bob");
    EXPECT_TRUE(keyIs(0)) << "held when control went";
    EXPECT_TRUE(terminal_->shows("held by 192.168.1.21-bob, level 5"));
    terminal_->send("z");
    EXPECT_TRUE(terminal_->shows("refused: the endpoint takes nothing from 192.168.1.20"));
}

TEST_F(Terminal, ForgedMessagesNeitherTakeControlNorHideWhoApplies) {
    startControl("--apply", "per_enable=1\nconnect_name=0\n");
    ASSERT_TRUE(terminal_->shows("held by 192.168.1.20-ann (you), level 5"));
    // The sender's address is not an endpoint's.
    quillon::DatagramSocket mallory(kOther, 0, kOther);
    const auto forge = [&](const std::string &text) { mallory.send("192.168.1.20", 2333, text); };
    terminal_->send("\x1b[?15u\x1b[97;1:1u");
    ASSERT_TRUE(keyIs(0x04));
    forge("disconnect|192.168.1.10|0|192.168.1.20-ann|5");
    EXPECT_TRUE(terminal_->shows("192.168.1.21 (calls itself 192.168.1.10): 192.168.1.20-ann"));
    for (int i = 0; i < 100; ++i) forge("apply|192.168.1.10|mallory" + std::to_string(i));
    EXPECT_TRUE(terminal_->shows("mallory0 asks for control of 192.168.1.21"));
    quillon::Endpoint(kBoard, 41302, "192.168.1.30")
        .send("apply|192.168.1.30-bob|192.168.1.30|5", 37);
    EXPECT_TRUE(
        terminal_->shows("192.168.1.30-bob asks for control of 192.168.1.10 (and 100 more)"))
        << terminal_->screen();
    EXPECT_EQ(board_->computer().state().keys[0], 0x04) << "it let go";
}

TEST_F(Terminal, MenuAndShortcutsGoByTheRightLayout) {
    startControl("--layout de");
    terminal_->press("C-]");
    EXPECT_TRUE(terminal_->shows("x  ctrl+alt+delete"));
    terminal_->press("C-]");
    // The computer is German: its z lies where a US keyboard has y.
    terminal_->press("C-z");
    EXPECT_TRUE(sees("ctrl+y"));
    terminal_->send("\x1b[?31u\x1b[122::121;5:1u\x1b[122::121;5:3u");
    EXPECT_TRUE(sees("ctrl+y\nctrl+y"));
    terminal_->send("\xe4\xb8\xad");
    EXPECT_TRUE(terminal_->shows("refused: cannot type U+4E2D"));
    terminal_->press("C-] q");
}

TEST_F(Terminal, SoftwaresKeysAreTakenFromAnybody) {
    startControl("--as-software --port 8080",
                 "udpserver_port=8080\nper_enable=1\nconnect_name=bob\nconnect_ip0=192.168.1.9\n");
    terminal_->send("k");
    EXPECT_TRUE(arrives("k"));
}

TEST_F(Terminal, LostEndpointShowsAndComesBackByItself) {
    startControl();
    terminal_->send("\x1b[?15u\x1b[97;1:1u");
    EXPECT_TRUE(keyIs(0x04));
    const pid_t daemon = board_->daemon()->pid();
    kill(daemon, SIGSTOP);
    EXPECT_TRUE(terminal_->shows("THE ENDPOINT IS LOST", 3s));
    terminal_->send("\x1b[97;1:3u");
    kill(daemon, SIGCONT);
    EXPECT_TRUE(terminal_->shows("answers in"));
    EXPECT_TRUE(keyIs(0));
    board_->powerCycle();
    ASSERT_TRUE(board_->waitUntilListening(20s));
    terminal_->send("\x1b[98;1:1u");
    EXPECT_TRUE(keyIs(0x05));
}

TEST_F(Terminal, EveryWayOutRestoresItAndLetsKeysGo) {
    startListening(kFast);
    for (const int sig : {SIGINT, SIGTERM, SIGHUP, SIGKILL}) {
        // After SIGKILL a second process restores the terminal; the shell waits for that one.
        Tmux terminal("sh -c '" + std::string(kControl) +
                      "'; left=$?; while pgrep -f '^quillon-console' >/dev/null; do :; done; "
                      "stty -a | grep -q ' echo ' && echo left $left; cat");
        ASSERT_TRUE(terminal.shows("answers in")) << terminal.screen();
        terminal.send("\x1b[?15u\x1b[97;1:1u");
        EXPECT_TRUE(keyIs(0x04));
        EXPECT_EQ(run("pkill -o -" + std::to_string(sig) + " -f '^quillon-console'").status, 0);
        EXPECT_TRUE(terminal.shows(sig == SIGKILL ? "left 137" : "left 130")) << terminal.screen();
        EXPECT_TRUE(keyIs(0)) << sig;
        EXPECT_FALSE(test::holds(terminal.screen(), "mouse: "));
        EXPECT_EQ(terminal.modes(), "0 0 0") << "the mouse is still reported";
        terminal.paste("pasted");
        EXPECT_TRUE(terminal.shows("pasted"));
        EXPECT_FALSE(test::holds(terminal.screen(), "200~")) << terminal.screen();
    }
}

}  // namespace
