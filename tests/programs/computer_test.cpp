// quillon-board --computer as a user runs it.

#include <cstdlib>

#include "tests/support/support.h"
#include "tests/support/tmux.h"

namespace {

using namespace std::chrono_literals;
using test::comesTrue, test::expectHeld, test::holds, test::Outcome, test::run, test::Tmux;

TEST(Computer, IsSeenSwitchedAndConfinedAndEndsWithItsBoard) {
    setenv("XDG_RUNTIME_DIR", "/data", 1);
    Tmux terminal("stty sane; quillon-board --computer linux --vnc; cat", 100, 40);
    ASSERT_TRUE(terminal.shows("192.168.1.10:80  CH9329", 20s)) << terminal.screen();
    ASSERT_TRUE(terminal.shows("the computer is on", 20s)) << terminal.screen();
    ASSERT_TRUE(terminal.shows("BusyBox", 20s)) << terminal.screen();
    ASSERT_TRUE(terminal.shows("usb configured", 20s)) << terminal.screen();
    EXPECT_EQ(
        run("quillon-board enter -- quillon-console --to 192.168.1.10 type 'echo seen\n'").said,
        "");
    EXPECT_TRUE(terminal.shows("# echo seen\nseen\n#", 20s)) << terminal.screen();
    EXPECT_TRUE(terminal.shows("last report taken", 20s)) << terminal.screen();
    EXPECT_TRUE(holds(run("quillon-board ctl screen"), "# echo seen\nseen\n#"));
    test::writeFile("/data/line", "printf '\\303\\244 umlaut'\n");
    run("quillon-board enter -- quillon-console --to 192.168.1.10 type </data/line");
    EXPECT_TRUE(comesTrue(
        [] { return holds(run("LC_ALL=C.UTF-8 quillon-board ctl screen"), "\nä umlaut#"); }, 10s));
    EXPECT_EQ(run("cd /data && quillon-board ctl screenshot seen.png && head -c 4 seen.png").said,
              "\x89PNG");
    EXPECT_EQ(run("quillon-board ctl screenshot /nowhere/seen.png").status, 1);
    EXPECT_TRUE(holds(run("quillon-board ctl status"), "picture  /data/quillon-board/default.vnc"));

    const std::string process = "/proc/$(pidof qemu-system-x86_64)/";
    expectHeld(run("grep -E '^(CapEff|NoNewPrivs|Seccomp):' " + process + "status").said,
               {"CapEff:\t0000000000000000", "NoNewPrivs:\t1", "Seccomp:\t2"});
    const bool root = holds(run("cat /proc/self/uid_map"), "4294967295");  // that of the PC
    const int user = atoi(run("sed -n 's/^Uid://p' " + process + "status").said.c_str());
    EXPECT_EQ(user > 0, root);
    EXPECT_FALSE(holds(run("ls -l " + process + "fd"), "/data/"));
    EXPECT_EQ(run("ls -A " + process + "root/data").said, "") << "not even the board's own files";
    EXPECT_NE(run("touch " + process + "root/usr/seen").status, 0);
    EXPECT_LT(atoi(run("sed -n 's/^VmRSS://p' " + process + "status").said.c_str()), 300 * 1024);

    EXPECT_EQ(run("quillon-board ctl computer off").said, "the computer is off\n");
    EXPECT_TRUE(terminal.shows("usb not configured", 20s)) << terminal.screen();
    EXPECT_TRUE(holds(run("quillon-board ctl computer reset"), "error: the computer is off\n"));
    EXPECT_EQ(run("quillon-board ctl computer on").said, "the computer starts\n");
    EXPECT_TRUE(terminal.shows("usb configured", 20s)) << terminal.screen();
    run("pkill -KILL -f '^quillon-board --computer'");
    EXPECT_TRUE(comesTrue([] { return run("pidof qemu-system-x86_64").status != 0; }, 10s));
}

TEST(Computer, TwoBoardsHaveOneEach) {
    const Outcome outcome =
        run("for name in one two; do "
            "quillon-board --computer linux --name $name --quiet 2>/dev/null & pids=\"$pids $!\"; "
            "done; "
            "for name in one two; do until quillon-board ctl --name $name status 2>/dev/null | "
            "grep -q '^usb *attached'; do sleep 0.1; done; done; pidof qemu-system-x86_64 | wc -w; "
            "quillon-board ctl --name one computer off; "
            "quillon-board ctl --name two status | grep ^usb; kill $pids; wait");
    expectHeld(outcome.said, {"2\n", "the computer is off\nusb      attached\n"});
}

TEST(Computer, WhatIsMissingOrWrongIsSaid) {
    // A FIFO is never done, and an image that names another file would show that one to its guest.
    EXPECT_EQ(run("mkfifo /data/pipe && "
                  "printf 'QFI\\373\\0\\0\\0\\2\\0\\0\\0\\0\\0\\0\\0\\110' >/data/backed")
                  .status,
              0);
    test::expectRefused("quillon-board", 2,
                        {{"--computer windows",
                          "--computer takes bios, grub, linux, or a file; there is no windows"},
                         {"--computer linux --computer-files /data", "cannot open /data/vmlinuz"},
                         {"--computer linux --layout de", "--layout"},
                         {"--computer bios --chip-buffer two", "two"},
                         {"--computer /data", "is no file"},
                         {"--computer /data/pipe", "is no file"},
                         {"--computer /data/backed", "needs another file"},
                         {"--vnc", "--computer"},
                         {"--computer bios --computer-files /nowhere", "/nowhere"}});
    EXPECT_TRUE(holds(run("PATH=/nowhere /quillon-programs/quillon-board --computer bios"),
                      "qemu-system-x86_64 is missing; Debian's package qemu-system-x86"));
    EXPECT_TRUE(holds(run("quillon-board --quiet 2>/dev/null & "
                          "until quillon-board ctl screen 2>&1 | grep simulated; do sleep 0.1; "
                          "done; kill $!; wait"),
                      "error: the computer is simulated; --computer makes it a virtual PC"));
}

}  // namespace
