// The chip's reports as a real firmware, a real boot loader and a real kernel read them.

#include <linux/input.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "protocol/keys.h"
#include "tests/support/on_pc.h"
#include <quillon/controlled_endpoint.h>

namespace {

using namespace std::chrono_literals;
using test::comesTrue, test::Event, test::holds, test::kBoard, test::kConsole;

using ColdPc = test::OnPc;
using VirtualPc = test::OnPc;

// ---- started cold

TEST_F(ColdPc, FirmwareTakesEscapeForItsBootMenu) {
    power(sim::Boot::kBios);
    ASSERT_TRUE(shows("Press ESC for boot menu."));
    console("key escape");
    EXPECT_TRUE(shows("Select boot device:"));
    // It does not let a key go that is down when the chip disappears: Esc would leave the menu.
    board_->waitUntilQuiet(10s);
    // Firmware knows no hot plug: without a word the person would wait for ever.
    board_->hidChip().powerCycle();
    EXPECT_TRUE(comesTrue([&] { return holds(pc().condition(), "\"ctl computer reset\""); }, 20s))
        << pc().condition();
    pc().reset();
    ASSERT_TRUE(pc().waitFor([](const auto &state) { return state.attached; }, 60s));
    ASSERT_TRUE(shows("Press ESC for boot menu."));
    console("key escape");
    EXPECT_TRUE(shows("Select boot device:"));
}

TEST_F(ColdPc, BootLoaderTakesTextAndRepeatsAHeldKey) {
    power(sim::Boot::kGrub);
    ASSERT_TRUE(shows("Press ESC for boot menu."));
    console("key escape");
    ASSERT_TRUE(shows("Select boot device:"));
    console("key 1");
    ASSERT_TRUE(shows("First entry"));
    console("key e");
    ASSERT_TRUE(shows("Emacs-like"));
    console("type 'Echo \"{ABC xyz}\" $0;|_'");
    EXPECT_TRUE(shows("Echo \"{ABC xyz}\" $0;|_setparams"));
    // The firmware asked the chip to repeat reports (SET_IDLE); the loader counts those.
    const auto down = quillon::keyboardRecord({0, quillon::kUsageA});
    quillon::Endpoint endpoint(kBoard, 80, kConsole);
    endpoint.send(down.data(), down.size());
    EXPECT_TRUE(shows("aaaa"));
    const auto up = quillon::keyboardRecord({});
    endpoint.send(up.data(), up.size());
}

TEST_F(ColdPc, LinuxEchoesALongLine) {
    unlink((std::string(PROGRAM_DIR) + "/computer/linux.state").c_str());
    power(sim::Boot::kLinux);
    std::string text = "echo ";
    while (text.size() < 200) text += "The quick brown fox #" + std::to_string(text.size()) + "; ";
    text.resize(200, 'x');
    ASSERT_TRUE(shows("\n#\n"));
    console("type '" + text + "' && quillon-console --to 192.168.1.10 key enter");
    // The screen breaks the line at its 80th column.
    const auto joined = [&] {
        std::string all;
        std::istringstream lines(screen());
        for (std::string line; std::getline(lines, line);)
            all += line + std::string(80 - std::min<std::size_t>(80, line.size()), ' ');
        return all;
    };
    EXPECT_TRUE(comesTrue([&] { return holds(joined(), "# " + text); }, 60s)) << screen();
}

// ---- restored

// Our name of a key, or its HID usage, and the kernel's name without "KEY_". Keys whose own name in
// capitals is the kernel's are left out.
constexpr char kKernelNames[] =
    "escape ESC printscreen SYSRQ - MINUS = EQUAL [ LEFTBRACE ] RIGHTBRACE \\ BACKSLASH "
    "; SEMICOLON ' APOSTROPHE ` GRAVE , COMMA . DOT / SLASH menu COMPOSE ctrl LEFTCTRL "
    "shift LEFTSHIFT alt LEFTALT gui LEFTMETA rctrl RIGHTCTRL rshift RIGHTSHIFT altgr RIGHTALT "
    "rgui RIGHTMETA "
    "0x32 BACKSLASH 0x54 KPSLASH 0x55 KPASTERISK 0x56 KPMINUS 0x57 KPPLUS 0x58 KPENTER 0x59 KP1 "
    "0x5A KP2 0x5B KP3 0x5C KP4 0x5D KP5 0x5E KP6 0x5F KP7 0x60 KP8 0x61 KP9 0x62 KP0 0x63 KPDOT "
    "0x64 102ND 0x66 POWER 0x67 KPEQUAL 0x74 OPEN 0x75 HELP 0x76 PROPS 0x77 FRONT 0x78 STOP "
    "0x79 AGAIN 0x7A UNDO 0x7B CUT 0x7C COPY 0x7D PASTE 0x7E FIND 0x7F MUTE 0x80 VOLUMEUP "
    "0x81 VOLUMEDOWN 0x85 KPCOMMA 0x87 RO 0x88 KATAKANAHIRAGANA 0x89 YEN 0x8A HENKAN "
    "0x8B MUHENKAN 0x8C KPJPCOMMA 0x90 HANGEUL 0x91 HANJA 0x92 KATAKANA 0x93 HIRAGANA "
    "0x94 ZENKAKUHANKAKU";

std::map<std::string, std::string> kernelNamesOfOurs() {
    std::map<std::string, std::string> names;
    std::istringstream words(kKernelNames);
    for (std::string ours, theirs; words >> ours >> theirs;) names[ours] = theirs;
    return names;
}

// The kernel's names for its codes, without "KEY_".
std::map<unsigned, std::set<std::string>> kernelNames() {
    std::map<unsigned, std::set<std::string>> names;
    std::ifstream header("/usr/include/linux/input-event-codes.h");
    for (std::string line; std::getline(header, line);) {
        char name[64] = "", value[64] = "";
        if (sscanf(line.c_str(), "#define KEY_%60s %60s", name, value) == 2)
            names[static_cast<unsigned>(strtoul(value, nullptr, 0))].insert(name);
    }
    return names;
}

TEST_F(VirtualPc, KernelReadsEveryKeyAndModifier) {
    power(sim::Boot::kLinux);
    auto aliases = kernelNamesOfOurs();
    std::string combos;
    std::vector<std::string> expected;
    std::set<int> unknown;  // to Linux
    constexpr int kLast = 0x94;
    for (int usage = quillon::kUsageA; usage <= kLast; ++usage) {
        char number[8];
        snprintf(number, sizeof number, "0x%02X", usage);
        combos += std::string(" usage:") + number;
        std::string name = quillon::keyName(static_cast<std::uint8_t>(usage));
        if (aliases.count(number) != 0) {
            name = aliases[number];
        } else if (name.rfind("key ", 0) == 0) {
            unknown.insert(usage);
            name = "UNKNOWN";
        } else if (aliases.count(name) != 0) {
            name = aliases[name];
        } else {
            std::transform(name.begin(), name.end(), name.begin(), ::toupper);
        }
        expected.push_back(name);
    }
    // Keys that lock mechanically, the second = of the keypad, and three that no keyboard has.
    EXPECT_EQ(unknown, (std::set<int>{0x82, 0x83, 0x84, 0x86, 0x8D, 0x8E, 0x8F}));
    for (const char *name : {"ctrl", "shift", "alt", "gui", "rctrl", "rshift", "altgr", "rgui"}) {
        combos += std::string(" ") + name;
        expected.push_back(aliases.at(name));
    }
    console("key" + combos);
    const auto names = kernelNames();
    ASSERT_GT(names.size(), 300U);
    std::vector<std::string> wrong;
    std::size_t n = 0;
    unsigned down = 0;
    events([&](const std::vector<Event> &all) {
        for (; n < all.size() && !expected.empty(); ++n) {
            if (all[n].type != EV_KEY || all[n].value == 2) continue;
            if (all[n].value == 0) {
                if (all[n].code != down) wrong.push_back("released " + std::to_string(all[n].code));
                continue;
            }
            down = all[n].code;
            if (names.at(down).count(expected.front()) == 0)
                wrong.push_back(expected.front() + " is " + *names.at(down).begin());
            expected.erase(expected.begin());
        }
        return expected.empty();
    });
    EXPECT_TRUE(expected.empty()) << "no " << expected.front();
    EXPECT_TRUE(wrong.empty()) << wrong.front();
}

TEST_F(VirtualPc, PointerIsWhereTheConsolePutsIt) {
    power(sim::Boot::kLinux);
    const auto expectMoves = [&](int width, int height) {
        for (const auto &[x, y] :
             {std::pair(1, 1), {width / 3, height / 2}, {width - 1, height - 1}}) {
            console("mouse move " + std::to_string(x) + " " + std::to_string(y));
            EXPECT_NEAR(value(EV_ABS, ABS_X), 4096 * x / width, 1) << width;
            EXPECT_NEAR(value(EV_ABS, ABS_Y), 4096 * y / height, 1) << height;
        }
    };
    expectMoves(1920, 1080);
    board_->video().setSize(1366, 768);
    ASSERT_TRUE(comesTrue([&] { return holds(console("link"), "1366"); }, 30s));
    expectMoves(1366, 768);
    const std::pair<const char *, unsigned> buttons[] = {
        {"left", BTN_LEFT}, {"right", BTN_RIGHT}, {"middle", BTN_MIDDLE}};
    for (const auto &[name, code] : buttons) {
        console(std::string("mouse click --at 10 10 ") + name);
        for (const int is : {1, 0}) {
            const Event seen = event([](const Event &e) { return e.type == EV_KEY; });
            EXPECT_EQ(std::pair(seen.code, seen.value), std::pair(code, is));
        }
    }
    console("mouse wheel --at 10 10 3");
    console("mouse wheel --at 10 10 -- -2");
    for (const int notches : {3, -2}) EXPECT_EQ(value(EV_REL, REL_WHEEL), notches);

    console("mouse-mode rel");
    console("mouse by 100 -- -120");
    EXPECT_EQ(value(EV_REL, REL_X), 100);
    EXPECT_EQ(value(EV_REL, REL_Y), -120);
}

TEST_F(VirtualPc, RawChipHasAnAbsoluteAndARelativeMouse) {
    options_.identifier = "X";
    options_.chip = sim::BoardOptions::kCh9350;
    power(sim::Boot::kLinux);
    console("key a");
    EXPECT_EQ(event([](const Event &e) { return e.type == EV_KEY; }).code, unsigned{KEY_A});
    for (const auto &[x, y] : {std::pair(1440, 270), {7, 1079}, {1919, 3}}) {
        console("mouse move " + std::to_string(x) + " " + std::to_string(y));
        EXPECT_NEAR(value(EV_ABS, ABS_X), 1024 * x / 1920, 1);
        EXPECT_NEAR(value(EV_ABS, ABS_Y), 1024 * y / 1080, 1);
    }
    console("mouse click --at 10 10 right");
    EXPECT_EQ(value(EV_KEY, BTN_RIGHT), 1);
    EXPECT_EQ(value(EV_KEY, BTN_RIGHT), 0);
    console("mouse wheel --at 10 10 -- -3");
    EXPECT_EQ(value(EV_REL, REL_WHEEL), -3);
    console("mouse-mode rel");
    ASSERT_TRUE(hasDevices(0));
    ASSERT_TRUE(hasDevices(2));
    console("mouse by 7 -- -9");
    EXPECT_EQ(value(EV_REL, REL_X), 7);
    EXPECT_EQ(value(EV_REL, REL_Y), -9);
}

TEST_F(VirtualPc, LockKeysAreTheComputers) {
    power(sim::Boot::kLinux);
    const auto become = [&](bool caps, bool num) {
        const std::string wanted =
            std::string("caps  ") + (caps ? "on" : "off") + "\nnum   " + (num ? "on" : "off");
        std::string seen;
        EXPECT_TRUE(comesTrue([&] { return holds(seen = console("leds"), wanted); }, 20s))
            << seen << "is not\n"
            << wanted;
    };
    become(false, false);
    guest("events 4");  // a program of the computer
    become(true, false);
    for (const char *key : {"num_lock", "caps_lock"})  // another keyboard
        qmp().execute("send-key", {{"keys", {{{"type", "qcode"}, {"data", key}}}}});
    become(false, true);
    console("key capslock");
    become(true, true);
    console("set-leds caps=off");
    become(false, true);
    EXPECT_EQ(ask("syncled"), "capslock=off&numlock=on");
    EXPECT_TRUE(holds(console("usb-link"), "yes"));
    become(false, true);
    board_->hidChip().unplug();
    EXPECT_TRUE(holds(console("usb-link"), "no"));
    board_->hidChip().plug();
    ASSERT_TRUE(pc().waitFor([](const auto &state) { return state.attached; }, 20s));
    become(false, true);
    EXPECT_TRUE(holds(console("usb-link"), "yes"));
}

TEST_F(VirtualPc, TextArrivesWholeOverALossyRoad) {
    options_.loss = 0.01;
    power(sim::Boot::kLinux);
    std::string text;
    while (text.size() < 400) text += "healed input, line " + std::to_string(text.size()) + "\n";
    std::vector<quillon::Stroke> states;
    std::uint8_t held = 0;
    for (const char c : "cat >typed\n" + text)
        quillon::appendStroke(states, held, *quillon::strokeOf(c));
    quillon::appendStroke(states, held, {quillon::kLeftCtrl, quillon::strokeOf('d')->usage});
    quillon::appendStroke(states, held, {});

    quillon::ControlledEndpoint::Setup setup;
    setup.to = kBoard;
    setup.from = kConsole;
    setup.pace = 10ms;  // Linux fetches a report each 8 ms
    quillon::ControlledEndpoint endpoint(setup);
    for (auto next = states.begin(); next != states.end() || !endpoint.input().idle();) {
        const bool taken = endpoint.input().idle() && pc().state().waiting < 8;
        if (next != states.end() && taken) endpoint.input().setKeyboard(*next++);
        std::vector<pollfd> fds;
        endpoint.addTo(fds);
        poll(fds.data(), fds.size(), 1);
        endpoint.serve(std::chrono::steady_clock::now());
    }
    std::string seen;
    EXPECT_TRUE(comesTrue([&] { return (seen = guest("cat /tmp/typed")) == text; }, 30s)) << seen;
}

TEST_F(VirtualPc, GermanAndFrenchGuestsReadWhatWasTyped) {
    power(sim::Boot::kLinux);
    const std::pair<const char *, const char *> texts[] = {
        {"de", "Größe: 5 €, schön äöüß ÄÖÜ @ {[]} \\ ~ | é è ê 10 µm² §\n"},
        {"fr", "Où ça? L'été: 20 € à Noël, É {[@#]} ^ ` ~ \\ 0123456789\n"}};
    for (const auto &[layout, text] : texts) {
        const std::string of = std::string("--layout ") + layout;
        guest(std::string("loadkmap </keymaps/") + layout + ".bmap >/dev/tty1");
        test::writeFile("/data/text", std::string("cat >typed\n") + text);
        console("type --system console " + of + " </data/text");
        console("key " + of + " ctrl+d");
        std::string seen;
        EXPECT_TRUE(comesTrue([&] { return (seen = guest("cat /tmp/typed")) == text; }, 30s))
            << layout << ": " << seen;
    }
}

TEST_F(VirtualPc, CableOutLetsKeysGoAndSaysWhatWasLost) {
    power(sim::Boot::kLinux);
    quillon::Endpoint endpoint(kBoard, 80, kConsole);
    const auto send = [&](const quillon::Stroke &stroke) {
        const auto record = quillon::keyboardRecord(stroke);
        endpoint.send(record.data(), record.size());
    };
    send({quillon::kLeftShift, 0});
    EXPECT_EQ(event([](const Event &e) { return e.type == EV_KEY; }).code, unsigned{KEY_LEFTSHIFT});
    board_->hidChip().unplug();
    ASSERT_TRUE(hasDevices(0));
    // The computer has let Shift go: its own keyboard types a small letter.
    qmp().execute("send-key", {{"keys", {{{"type", "qcode"}, {"data", "b"}}}}});
    EXPECT_TRUE(shows("# b"));
    send({0, quillon::kUsageA});
    EXPECT_TRUE(becomes([](const auto &state) { return state.lost != 0; }));
    board_->hidChip().plug();
    ASSERT_TRUE(hasDevices(3));
    type(kConsole, 'c');
    EXPECT_TRUE(shows("# bc"));
}

TEST_F(VirtualPc, SaysWhatIsTheMatterAndTakesTheComputerBack) {
    power(sim::Boot::kLinux);
    const auto condition = [&](const std::string &text) {
        EXPECT_TRUE(comesTrue([&] { return holds(pc().condition(), text); }, 20s))
            << pc().condition() << ", not " << text;
    };
    // Its driver is gone, so nobody fetches what is typed.
    guest("cd /sys/bus/usb/drivers/usbhid; for i in [0-9]*; do echo $i >unbind; done; cd /tmp");
    console("key a");
    condition("has not fetched a report for");
    board_->hidChip().unplug();
    board_->hidChip().plug();
    ASSERT_TRUE(hasDevices(3));
    condition("the computer is on");

    qmp().execute("stop");
    condition("is paused");
    // More reports than its queue has room for.
    std::string text(200, 'x');
    console("--interval 2 type " + text);
    EXPECT_TRUE(
        becomes([](const auto &state) { return state.replaced > 0 && state.waiting > 30; }));
    qmp().execute("cont");
    EXPECT_TRUE(becomes([](const auto &state) { return state.waiting == 0; }));

    kill(pc().qemu()->process(), SIGSTOP);
    console("key a");
    condition("has not fetched a report for");
    EXPECT_THROW(pc().screen(), std::runtime_error);
    kill(pc().qemu()->process(), SIGCONT);
    EXPECT_TRUE(becomes([](const auto &state) { return state.waiting == 0; }));
    condition("the computer is on");

    kill(pc().qemu()->process(), SIGKILL);
    condition("killed by the signal \"Killed\"");
    console("key a");
    EXPECT_THROW(pc().screenshot(), std::runtime_error);
    EXPECT_TRUE(pc().switchOn());
    ASSERT_TRUE(pc().waitFor([](const auto &state) { return state.attached; }, 60s));
    ASSERT_TRUE(hasDevices(6));  // nobody said that the first three are gone
    EXPECT_EQ(pc().screenshot().substr(1, 3), "PNG");
    console("key z");
    EXPECT_TRUE(shows("# z"));
}

}  // namespace
