// quillon-board and quillon-console as a user runs them.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support.h"

namespace {

constexpr char kBoard[] = PROGRAM_DIR "/quillon-board ";
constexpr char kConsole[] = PROGRAM_DIR "/quillon-console --to 192.168.1.10 ";

using test::holds, test::Outcome, test::run;

TEST(Quillon, ReleaseBinaryIsHardened) {
#if !defined(NDEBUG) || defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "not a release build";
#endif
    const Outcome outcome = run("readelf -hdlW --dyn-syms " PROGRAM_DIR "/quillon");
    for (const char *sign : {"Position-Independent Executable", "GNU_RELRO", "BIND_NOW",
                             "__stack_chk_fail", "__printf_chk"})
        EXPECT_TRUE(holds(outcome, sign)) << sign;
}

TEST(QuillonBoard, ShowsWhatReachesTheComputerAndEndsWithItsCommand) {
    const Outcome outcome =
        run(std::string(kBoard) + "-- sh -c \"" + kConsole + "type 'Hello, World!'; " + kConsole +
            "key ctrl+alt+delete capslock; " + kConsole + "mouse click left --at 960 540; " +
            kConsole + "mouse wheel -2 --at 960 540; exit 7\"");
    EXPECT_EQ(outcome.status, 7);
    EXPECT_EQ(outcome.said,
              "typed     Hello, World!\n"
              "key       ctrl+alt+delete\n"
              "locks     Num off, Caps on, Scroll off\n"
              "pointer   at 960,540\n"
              "buttons   left down at 960,540\n"
              "buttons   none down at 960,540\n"
              "wheel     turned by -2 at 960,540\n");
}

TEST(QuillonBoard, PacedTextArrivesWholeAndKeepLeavesSettingsAndLog) {
    mkdir("/kept", 0755);
    const Outcome outcome = run(std::string(kBoard) + "--pace --log --keep /kept -- " + kConsole +
                                "type " + std::string(40, 'x'));
    EXPECT_EQ(outcome.status, 0);
    // One line, but for a pause of half a second, which a busy machine may make.
    std::size_t typed = 0;
    for (std::size_t at = 0; (at = outcome.said.find("typed     x", at)) != std::string::npos;) {
        at = outcome.said.find('x', at);
        typed += outcome.said.find('\n', at) - at;
    }
    EXPECT_EQ(typed, 40U) << outcome.said;
    EXPECT_TRUE(holds(outcome, "log       ---ch9329 ini ok---\n"));
    EXPECT_NE(test::readFile("/kept/quillon.ini").find("com_port=COM2\n"), std::string::npos);
    EXPECT_NE(test::readFile("/kept/quillon.log").find("---ch9329 ini ok---\n"), std::string::npos);
}

TEST(QuillonBoard, LeavesNothingOnThePc) {
    run(std::string(kBoard) + "-- true");
    for (const char *path :
         {"/dev/mem", "/dev/ttyAMA0", "/data/quillon", "/version/hardware_info"}) {
        struct stat info {};
        EXPECT_NE(stat(path, &info), 0) << path;
    }
    EXPECT_EQ(run("ip link show eth0").status, 1);
}

TEST(QuillonBoard, WrongArgumentsAreOneLineAndStatusTwo) {
    for (const char *arguments : {"--chip CH1", "--bogus", "--config /nowhere", "--keep /nowhere",
                                  "--ip 1.2.3", "--chip-baud fast", "--stored-baud 1"}) {
        const Outcome outcome = run(std::string(kBoard) + arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.said.find('\n'), outcome.said.size() - 1) << outcome.said;
    }
    mkdir("/data/kept", 0755);
    EXPECT_TRUE(holds(run(std::string(kBoard) + "--keep /data/kept"), "own /data"));
    EXPECT_EQ(run(std::string(kBoard) + "--help").status, 0);
    EXPECT_EQ(run(std::string(kBoard) + "-- no-such-command").status, 1);
}

TEST(QuillonBoard, SaysWhyADaemonEnded) {
    const Outcome outcome = run(std::string(kBoard) + "--config /proc/version -- true");
    EXPECT_EQ(outcome.status, 0) << "settings that hold nothing are no reason";
    const Outcome ended = run(std::string(kBoard) +
                              "-- sh -c 'grep -lx quillon /proc/[0-9]*/comm | cut -d/ -f3 | "
                              "xargs kill -9; sleep 20'");
    EXPECT_EQ(ended.status, 1);
    EXPECT_TRUE(holds(ended, "the daemon ended with status 137")) << ended.said;
}

TEST(QuillonBoard, SignalEndsEverything) {
    const Outcome outcome = run("timeout -s INT 3 " + std::string(kBoard) +
                                "-- sleep 60; "
                                "! grep -l quillon /proc/[0-9]*/comm");
    EXPECT_EQ(outcome.said, "");
    EXPECT_EQ(outcome.status, 0) << "something was left running";
}

TEST(QuillonBoard, RunningBoardIsToldAndEntered) {
    const std::string board = kBoard;
    const Outcome outcome =
        run(board + "2>/dev/null & until " + board + "ctl status | grep -q 10:80; do :; done; " +
            board + "ctl unplug; " + board + "ctl video 1x; " + board + "ctl dance; " + board +
            "--name other ctl plug; " + board + "; " + board + "enter -- " + kConsole +
            "--from 192.168.1.20 --json query; kill -INT $!; wait");
    for (const char *said :
         {"usb       keyboard and mouse gone\n", "the computer's USB cable is out\n",
          "error: video takes a size", "error: unknown request \"dance\"",
          "no board named other runs\n", "a board named default runs already",
          "{\"endpoint\":\"192.168.1.10\",\"linked\":false,\"user\":\"\",\"level\":0}\n"})
        EXPECT_TRUE(holds(outcome, said)) << said << "\nin\n" << outcome.said;
}

TEST(QuillonConsole, AsksAndSwitchesFromTheCommandLine) {
    const std::string console = std::string(kConsole) + "--from 192.168.1.20 ";
    test::writeFile("/data/linked.ini",
                    "buad_rate=115200\nper_enable=1\nconnect_name=192.168.1.21-bob\n"
                    "connect_per=3\nconnect_ip0=192.168.1.21\n");
    const Outcome outcome =
        run(std::string(kBoard) +
            "--console 192.168.1.20 --console 192.168.1.21 --config "
            "/data/linked.ini -- sh -c '" +
            console + "query; " + console + "type a; " + console + "--as-software type b; " +
            console + "permissions off; " + console + "set-leds num=on; " + console +
            "set-leds caps=on; " + console +
            "--json link; " + console + "mouse-mode rel; " + console + "usb-link; " + console +
            "--json settings --via-group | grep -o rel; " + console +
            "--port 9 --timeout 100 link; " + console + "discover'");
    for (const char *said :
         {"user      192.168.1.21-bob\nlevel     3\n", "192.168.1.20 may not send", "typed     b\n",
          "locks     Num on, Caps on, Scroll off\n", "caps  on\nnum   on\n",
          "{\"width\":1920,\"height\":1080,\"mouse\":\"absolute\"}\n", "computer  yes\n", "rel\n",
          "nobody listens at 192.168.1.10:9\n", "endpoint          linked"})
        EXPECT_TRUE(holds(outcome, said)) << said << "\nin\n" << outcome.said;
}

TEST(QuillonConsole, ErrorsComeBeforeAnythingIsSent) {
    const std::string nobody = PROGRAM_DIR "/quillon-console --to 127.0.0.1 --port 9 ";
    const std::pair<const char *, const char *> wrong[] = {
        {"type 'na\xC3\xAFve'", "no key for byte 0xc3, character 3"},
        {"key ctrl+alt+nokey", "unknown key \"nokey\""},
        {"key a+b", "only one reaches the computer"},
        {"mouse by 1 1", "nobody listens at 127.0.0.1:41302"}};
    for (const auto &[arguments, message] : wrong) {
        const Outcome outcome = run(nobody + arguments);
        EXPECT_EQ(outcome.status, 1) << arguments;
        EXPECT_TRUE(holds(outcome, message)) << outcome.said;
    }
    for (const char *arguments : {"", "type a b c", "mouse move 1", "mouse click up --at 1 1",
                                  "mouse move 70000 1", "--port 0 type a", "dance"}) {
        const Outcome outcome = run(nobody + arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.said.find('\n'), outcome.said.size() - 1) << outcome.said;
    }
}

TEST(QuillonConsole, MovementsNeedRelativeMode) {
    test::writeFile("/data/rel.ini", "buad_rate=115200\nchip_model=rel\n");
    const Outcome relative =
        run(std::string(kBoard) + "--config /data/rel.ini -- " + kConsole + "mouse by 200 -- -10");
    EXPECT_TRUE(holds(relative, "pointer   at 200,0\n")) << relative.said;
    const Outcome absolute = run(std::string(kBoard) + "-- " + kConsole + "mouse by 1 1");
    EXPECT_EQ(absolute.status, 1);
    EXPECT_TRUE(holds(absolute, "absolute mode"));
}

}  // namespace
