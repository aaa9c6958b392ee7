// quillon-console as a user runs it.

#include "tests/support/support.h"

namespace {

using test::expectHeld, test::holds, test::Outcome, test::run;

TEST(QuillonConsole, AsksAndSwitchesFromTheCommandLine) {
    test::writeFile("/data/linked.ini",
                    "buad_rate=115200\nper_enable=1\nconnect_name=192.168.1.21-bob\n"
                    "connect_per=3\nconnect_ip0=192.168.1.21\n");
    const Outcome outcome =
        run("quillon-board --console 192.168.1.20 --console 192.168.1.21 --config /data/linked.ini "
            "-- sh -c 'ann() { quillon-console --to 192.168.1.10 --from 192.168.1.20 \"$@\"; }; "
            "ann query; ann type a; ann --as-software type b; ann permissions off; "
            "ann set-leds num=on; ann set-leds caps=on; ann --json link; "
            "ann mouse by 1 1; echo status $?; ann mouse-mode rel; ann mouse by 200 -- -10; "
            "ann usb-link; ann usb-power on && echo powered; "
            "ann --json settings --via-group | grep -o rel; "
            "ann --port 9 --timeout 100 link; ann discover'");
    expectHeld(outcome.said,
               {"user      192.168.1.21-bob\nlevel     3\n", "192.168.1.20 may not send",
                "typed     b\n", "locks     Num on, Caps on, Scroll off\n", "caps  on\nnum   on\n",
                "{\"width\":1920,\"height\":1080,\"mouse\":\"absolute\"}\n", "absolute mode",
                "status 1\n", "pointer   at 200,0\n", "computer  yes\n", "powered\n", "rel\n",
                "nobody listens at 192.168.1.10:9\n", "192.168.1.10      192.168.1.10      yes"});
}

TEST(QuillonConsole, ErrorsComeBeforeAnythingIsSent) {
    const std::string nobody = "quillon-console --to 127.0.0.1 --port 9 ";
    test::expectRefused(
        nobody, 1,
        {{"type 'na\xC3\xAFve'",
          "cannot type character 3 (U+00EF): the layout us has no key for it; nothing was typed"},
         {"key ctrl+alt+nokey", "unknown key \"nokey\""},
         {"key a+b", "only one reaches the computer"},
         {"mouse by 1 1", "nobody listens at 127.0.0.1:41302"}});
    for (const char *arguments : {"", "type a b c", "mouse move 1", "mouse click up --at 1 1",
                                  "mouse move 70000 1", "--port 0 type a", "dance"}) {
        const Outcome outcome = run(nobody + arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.said.find('\n'), outcome.said.size() - 1) << outcome.said;
    }
}

// What arrives at the computer of a board; a busy machine may part it into several lines.
std::string typedOnBoard(const std::string &options, const std::string &commands) {
    return run("export LC_ALL=C.UTF-8; quillon-board " + options +
               " -- sh -c 'endpoint() { quillon-console --to 192.168.1.10 \"$@\"; }; " + commands +
               "' 2>/data/said | sed -n 's/^typed     //p' | tr -d '\\n'")
        .said;
}

TEST(QuillonConsole, TypesTheLayoutOfTheComputer) {
    EXPECT_EQ(typedOnBoard("--layout de",
                           "endpoint type --layout de \"Größe 5 €, zygote\"; "
                           "QUILLON_LAYOUT=us endpoint type \" zy\"; "
                           "endpoint type --layout de \"a中\""),
              "Größe 5 €, zygote yz");
    EXPECT_TRUE(holds(test::readFile("/data/said"), "character 2 (U+4E2D)"));
    // Caps Lock is switched off, and on again.
    EXPECT_EQ(typedOnBoard("--layout de",
                           "endpoint set-leds caps=on >/dev/null; endpoint type --layout de Abc; "
                           "endpoint type --keep-locks --layout de De; endpoint leds >&2"),
              "AbcDe");
    EXPECT_TRUE(holds(test::readFile("/data/said"), "caps  on\nnum   off\n"));
    EXPECT_EQ(typedOnBoard("--loss 1 --layout fr",
                           "endpoint type --repeat 3 --layout fr \"Où est l’été 2026?\""),
              "Où est l’été 2026?");

    const Outcome list =
        run("quillon-console type --layout list | grep nodeadkeys | head -n 1; "
            "quillon-console --json key --layout list | grep '\"de\"' | head -n 1");
    expectHeld(list.said,
               {"nodeadkeys", "{\"layout\":\"de\",\"variant\":\"\",\"name\":\"German\"}"});
    EXPECT_TRUE(holds(run("quillon-console --to 127.0.0.1 type --layout xx a"),
                      "there is no keyboard layout xx"));
    EXPECT_EQ(run("quillon-board --layout xx -- true").status, 2);
}

}  // namespace
