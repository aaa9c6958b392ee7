// quillon-board as a user runs it.

#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/support.h"

namespace {

using test::expectHeld, test::holds, test::Outcome, test::run;

TEST(QuillonBoard, ShowsWhatReachesTheComputerAndEndsWithItsCommand) {
    const Outcome outcome =
        run("to='quillon-console --to 192.168.1.10'; "
            "quillon-board -- sh -c \"$to type 'Hello, World!'; $to key ctrl+alt+delete capslock; "
            "$to mouse click left --at 960 540; $to mouse wheel -2 --at 960 540; exit 7\"");
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

TEST(QuillonBoard, PacedTextArrivesWholeAfterARebootAndKeepLeavesSettingsAndLog) {
    mkdir("/kept", 0755);
    const std::string text(40, 'x');
    // One line, but for a pause of half a second, which a busy machine may make.
    EXPECT_EQ(
        run("quillon-board --pace --log --keep /kept --chip-baud 9600 --stored-baud 115200 -- "
            "quillon-console --to 192.168.1.10 type " +
            text +
            " >/data/out && "
            "sed -n 's/^typed     //p' /data/out | tr -d '\\n'")
            .said,
        text);
    expectHeld(test::readFile("/data/out"),
               {"log       reboot\n", "log       ---ch9329 ini ok---\n"});
    expectHeld(test::readFile("/kept/quillon.ini"), {"com_port=COM2\n"});
    expectHeld(test::readFile("/kept/quillon.log"), {"---ch9329 ini ok---\n"});
}

TEST(QuillonBoard, LeavesNothingOnThePc) {
    EXPECT_EQ(run("quillon-board -- true; ls -d /dev/mem /dev/ttyAMA0 /data/quillon "
                  "/version/hardware_info 2>/dev/null; ip link show eth0 2>&1 | grep UP")
                  .said,
              "");
}

TEST(QuillonBoard, WrongArgumentsAreOneLineAndStatusTwo) {
    for (const char *arguments : {"--chip CH1", "--bogus", "--config /nowhere", "--keep /nowhere",
                                  "--ip 1.2.3", "--chip-baud fast", "--stored-baud 1"}) {
        const Outcome outcome = run(std::string("quillon-board ") + arguments);
        EXPECT_EQ(outcome.status, 2) << arguments;
        EXPECT_EQ(outcome.said.find('\n'), outcome.said.size() - 1) << outcome.said;
    }
    mkdir("/data/kept", 0755);
    EXPECT_TRUE(holds(run("quillon-board --keep /data/kept"), "own /data"));
    EXPECT_EQ(run("quillon-board --help").status, 0);
    EXPECT_EQ(run("quillon-board -- no-such-command").status, 1);
}

TEST(QuillonBoard, SaysWhyADaemonEnded) {
    EXPECT_EQ(run("quillon-board --config /proc/version -- true").status, 0)
        << "settings that hold nothing are no reason";
    const Outcome ended =
        run("quillon-board -- sh -c 'grep -lx quillon /proc/[0-9]*/comm | cut -d/ -f3 | "
            "xargs kill -9; sleep 20'");
    EXPECT_EQ(ended.status, 1);
    EXPECT_TRUE(holds(ended, "the daemon ended with status 137")) << ended.said;
}

TEST(QuillonBoard, SignalEndsEverything) {
    const Outcome outcome =
        run("timeout -s INT 3 quillon-board -- sleep 60; "
            "! grep -l quillon /proc/[0-9]*/comm");
    EXPECT_EQ(outcome.said, "");
    EXPECT_EQ(outcome.status, 0) << "something was left running";
}

TEST(QuillonBoard, RunningBoardIsToldAndEntered) {
    const Outcome outcome = run(
        "quillon-board 2>/dev/null & until quillon-board ctl status | grep -q 10:80; do :; done; "
        "for request in unplug 'video 1x' dance '--name other plug'; do "
        "quillon-board ctl $request; done; quillon-board; "
        "for question in query usb-link; do quillon-board enter -- "
        "quillon-console --to 192.168.1.10 --from 192.168.1.20 --json $question; done; "
        "kill -INT $!; wait");
    expectHeld(outcome.said,
               {"usb       keyboard and mouse gone\n", "the computer's USB cable is out\n",
                "error: video takes a size", "error: unknown request \"dance\"",
                "no board named other runs\n", "a board named default runs already",
                "{\"endpoint\":\"192.168.1.10\",\"linked\":false,\"user\":\"\",\"level\":0}\n",
                "{\"computer\":false}\n"});
}

TEST(QuillonBoard, ConsolesApartReachTheBoardByItsCable) {
    const Outcome outcome =
        run("quillon-board --consoles-apart --console 192.168.1.20 -- sh -c 'ip link show eth0; "
            "quillon-console --to 192.168.1.10 --from 192.168.1.20 type hello'");
    EXPECT_EQ(outcome.status, 0);
    expectHeld(outcome.said, {"Device \"eth0\" does not exist.", "typed     hello\n"});
}

TEST(QuillonBoard, MakesDevicesInNoFolderOfOthers) {
    run("mkdir -m 777 /data/open; mkdir /data/full; echo mine >/data/full/mem; touch /data/file");
    test::expectRefused("quillon-board", 2,
                        {{"--devices ''", "has no name"},
                         {"--devices /data/b --log", "excludes"},
                         {"--devices /data/b -- true", "no network for a command"}});
    test::expectRefused("quillon-board", 1,
                        {{"--devices /dev/b", "the system's own"},
                         {"--devices /", "it is the root folder"},
                         {"--devices /nowhere/b", "No such file or directory"},
                         {"--devices /data/file", "Not a directory"},
                         {"--devices /data/open", "others must not write to it"},
                         {"--devices /data/full", "/data/full/mem exists and is not ours"}});
    EXPECT_EQ(test::readFile("/data/full/mem"), "mine\n");
}

}  // namespace
