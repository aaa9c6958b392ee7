// The viewers that people have, at a gateway, the daemon that ships and a German computer.

#include <csignal>
#include <thread>

#include "sim/computer/layout_reader.h"
#include "sim/computer/plain_computer.h"
#include "tests/support/on_board.h"
#include "tests/viewers/test_viewer.h"

namespace {

using namespace std::chrono_literals;
using test::holds, test::GatewayProgram, test::openViewer, test::optionsFor, test::run;

class AtGateway : public test::OnBoard {
  protected:
    AtGateway() {
        options_.computer = [] {
            return std::make_unique<sim::PlainComputer>(sim::readerOf({"de", "nodeadkeys"}));
        };
    }

    void startBoard(const std::string &settings = "") {
        startListening(test::kFast + settings);
        collectEvents();
    }

    void open(const std::string &kind, const std::string &settings = "") {
        startBoard(settings);
        gateway_.emplace("--to 192.168.1.10 --variant nodeadkeys " + optionsFor(kind));
        viewer_ = openViewer(kind, *gateway_);
        ASSERT_TRUE(test::comesTrue([this] { return findPicture(); }, 20s));
        ASSERT_TRUE(viewer_->shows("Lock keys: Caps Lock is off, Num Lock is off."));
    }

    // Where a window's picture begins shows when the pointer moves in it, which a window may take
    // some time to notice.
    bool findPicture() {
        constexpr int kX = 400, kY = 300, kDecoration = 200;
        for (const int aside : {50, 0}) {
            viewer_->move(kX + aside, kY);
            std::this_thread::sleep_for(100ms);
        }
        const auto state = board_->computer().state();
        const bool near =
            std::abs(state.x - kX) < kDecoration && std::abs(state.y - kY) < kDecoration;
        if (near) viewer_->correct(kX - state.x, kY - state.y);
        return near;
    }

    bool buttonsAre(int buttons) {
        return becomes([&](const auto &state) { return state.buttons == buttons; });
    }
    bool modifiersAre(int modifiers) {
        return becomes([&](const auto &state) { return state.modifiers == modifiers; });
    }

    std::optional<GatewayProgram> gateway_;
    std::unique_ptr<test::TestViewer> viewer_;
};

class EveryViewer : public AtGateway, public testing::WithParamInterface<const char *> {};
INSTANTIATE_TEST_SUITE_P(Each, EveryViewer,
                         testing::Values("TigerVNC", "gvncviewer", "noVNC", "libvncclient"),
                         [](const auto &test) { return std::string(test.param); });

TEST_P(EveryViewer, TypesPointsAndShowsWhatIsKnown) {
    ASSERT_NO_FATAL_FAILURE(open(GetParam()));
    viewer_->type("Grüne Äpfel, 5 @ 2 Öre");
    EXPECT_TRUE(arrives("Grüne Äpfel, 5 @ 2 Öre"));

    for (const char *key : {"Control_L", "Alt_L", "F2"}) viewer_->key(key, true);
    for (const char *key : {"F2", "Alt_L", "Control_L"}) viewer_->key(key, false);
    EXPECT_TRUE(sees("ctrl+alt+f2")) << seen();
    viewer_->key("Shift_L", true);
    EXPECT_TRUE(modifiersAre(quillon::kLeftShift));
    std::this_thread::sleep_for(1500ms);  // a viewer repeats a key that is down
    EXPECT_TRUE(modifiersAre(quillon::kLeftShift));
    viewer_->key("Shift_L", false);
    EXPECT_TRUE(modifiersAre(0));

    viewer_->move(600, 500);
    EXPECT_TRUE(at(600, 500)) << seen();
    viewer_->button(1, true);
    EXPECT_TRUE(buttonsAre(1));
    viewer_->move(800, 700);
    EXPECT_TRUE(at(800, 700)) << seen();
    EXPECT_TRUE(buttonsAre(1));
    viewer_->button(1, false);
    EXPECT_TRUE(buttonsAre(0));
    viewer_->button(3, true);
    EXPECT_TRUE(buttonsAre(2));
    viewer_->button(3, false);
    EXPECT_TRUE(buttonsAre(0));
    for (const int wheel : {5, 5, 4}) {
        viewer_->button(wheel, true);
        viewer_->button(wheel, false);
    }
    EXPECT_TRUE(becomes([](const auto &state) { return state.wheel == -1; }));

    viewer_->tap("Caps_Lock");
    viewer_->tap("a");  // at once, before anybody knows what the computer made of it
    EXPECT_TRUE(viewer_->shows("Lock keys: Caps Lock is on, Num Lock is off."));
    viewer_->tap("Caps_Lock");
    EXPECT_TRUE(viewer_->shows("Lock keys: Caps Lock is off, Num Lock is off."));
    viewer_->tap("a");
    viewer_->tap("Caps_Lock");
    EXPECT_TRUE(viewer_->shows("Lock keys: Caps Lock is on, Num Lock is off."));
    viewer_->tap("a");
    // What comes by keysym is typed as the person sees it, and a person without Caps Lock sees a.
    const bool bySym = GetParam() == std::string("libvncclient");
    const std::string typed = bySym ? "aaa" : "AaA";
    EXPECT_TRUE(arrives("Grüne Äpfel, 5 @ 2 Öre" + typed)) << board_->computer().state().text;

    EXPECT_TRUE(viewer_->shows("Picture: 1920x1080, but no picture source."));
    EXPECT_TRUE(viewer_->shows("Mouse: positions."));
    EXPECT_TRUE(viewer_->shows("Control: permissions are off, everybody may type."));
}

// What ends a viewer, and the viewers that it is tried with: one that answers fences, one that
// does not.
struct End {
    const char *name, *viewer;
    std::function<void(pid_t)> happens;
    std::function<void(pid_t)> wakes;  ///< none: it does not come back
};
void PrintTo(const End &end, std::ostream *out) {
    *out << end.name;
}
class EveryEnd : public AtGateway, public testing::WithParamInterface<End> {};

void cutOff(pid_t) {
    const test::Outcome cut =
        run("nft 'add table ip cut; add chain ip cut in { type filter hook input priority 0; }; "
            "add rule ip cut in tcp dport 5900-5909 drop; add rule ip cut in tcp sport 5900-5909 "
            "drop'");
    EXPECT_EQ(cut.status, 0) << cut.said;
}

std::function<void(pid_t)> signals(int signal) {
    return [signal](pid_t pid) { kill(pid, signal); };
}
// The part of the browser that runs the page; the brackets keep the shell itself out.
std::function<void(pid_t)> page(const char *signal) {
    return [signal](pid_t) { run(std::string("pkill -") + signal + " -f [t]ype=renderer"); };
}

INSTANTIATE_TEST_SUITE_P(Each, EveryEnd,
                         testing::Values(End{"Killed", "TigerVNC", signals(SIGKILL), {}},
                                         End{"Stopped", "TigerVNC", signals(SIGSTOP),
                                             signals(SIGCONT)},
                                         End{"PageFrozen", "noVNC", page("STOP"), page("CONT")},
                                         End{"CutOff", "TigerVNC", cutOff, {}},
                                         End{"CutOffWithoutFences", "gvncviewer", cutOff, {}}),
                         [](const auto &test) { return std::string(test.param.name); });

TEST_P(EveryEnd, LetsEverythingGoInTime) {
    ASSERT_NO_FATAL_FAILURE(open(GetParam().viewer));
    viewer_->move(600, 500);
    viewer_->key("Shift_L", true);
    viewer_->key("x", true);
    viewer_->button(1, true);
    EXPECT_TRUE(becomes([](const auto &state) {
        return state.keys[0] != 0 && state.modifiers != 0 && state.buttons != 0;
    }));
    std::this_thread::sleep_for(1200ms);  // into the time when fences are on their way
    const auto begin = std::chrono::steady_clock::now();
    GetParam().happens(viewer_->pid());
    EXPECT_TRUE(becomes([](const auto &state) {
        return state.keys[0] == 0 && state.modifiers == 0 && state.buttons == 0;
    }));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3500ms);
    if (!GetParam().wakes) return;

    const std::string before = board_->computer().state().text;
    viewer_->key("x", false);
    viewer_->type("stale");
    GetParam().wakes(viewer_->pid());
    std::this_thread::sleep_for(2500ms);  // it sends what it was given meanwhile
    EXPECT_EQ(board_->computer().state().text, before);
    viewer_->key("Shift_L", false);
    viewer_->button(1, false);
    viewer_->type("fresh");
    EXPECT_TRUE(arrives(before + "fresh")) << board_->computer().state().text;
}

// As scripts/run --web does it: the gateway is on the board's network, the browser is not.
TEST(ClosedBoard, IsReachedByABrowserOnThePc) {
    GatewayProgram board(
        "--layout de --listen 0 -- sh -c 'exec quillon-gateway --to 192.168.1.10 --from "
        "192.168.1.20 --layout de --listen-fd web=$QUILLON_LISTEN_FD'",
        "quillon-board");
    const std::string address = board.browserAddress();
    ASSERT_FALSE(address.empty()) << board.said();
    {
        const auto viewer = test::openBrowser(address);
        EXPECT_EQ(viewer->ask("address"), address.substr(0, address.find("?")) + "\n")
            << "neither token nor key stays in the address bar";
        viewer->type("Grüße");
        EXPECT_TRUE(board.says("typed     Grüße")) << board.said();
        EXPECT_TRUE(holds(viewer->ask("open " + address), "was used already"));
        viewer->ask("open " + address.substr(0, address.find("?")));
        EXPECT_FALSE(viewer->ask("ready").empty()) << "the cookie and the key stay";
    }
    EXPECT_EQ(board.end(SIGINT), 130);
    const std::string script = test::readFile(SOURCE_DIR "/scripts/run");
    test::expectHeld(script, {"--listen 0 -- sh -c '",
                              "--from 192.168.1.20 --listen-fd \"web=$QUILLON_LISTEN_FD\""});
}

}  // namespace
