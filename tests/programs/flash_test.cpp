// quillon-flash as a user runs it, and the check of its file.

#include <sys/msg.h>
#include <sys/stat.h>

#include "flash/progress.h"
#include "flash/result.h"
#include "flash/srecord.h"
#include "state.h"
#include "tests/support/support.h"

namespace {

using test::expectHeld, test::holds;

constexpr char kGood[] =
    "S00600004844521B\n"
    "S206FFFFFEAABB98\r\n"
    "S20800001001020304DD\n"
    "\n"
    "S2060000000001F8\n"
    "S5030003F9\n"
    "S804000000FB\n";

TEST(SRecords, TellWhatTheyProgram) {
    const flash::Image image = flash::readImage(kGood);
    EXPECT_EQ(image.kind, 'O');
    EXPECT_EQ(image.records, 3U);
    EXPECT_EQ(image.bytes, 8U);
    EXPECT_EQ(image.first, 0U);
    EXPECT_EQ(image.last, 0xFFFFFFU);
    std::string counted = kGood;
    counted.replace(counted.find("S5030003F9"), 10, "S604000003F8");
    EXPECT_EQ(flash::readImage(counted).records, 3U);
}

TEST(Progress, BoardThatFailedIsNotDone) {
    flash::Progress progress(3, false);
    test::printedBy([&] {
        for (const char *line :
             {"[UploadMotFile]-84: earse: (ERO0)", "[UploadMotFile]-107: (1): 14",
              "[UploadMotFile]-122: upload .mot file failed!", "[UploadMotFile]-84: earse: (ERO1)"})
            progress.take(line);
    });
    EXPECT_EQ(progress.done(), "none");
    EXPECT_EQ(progress.unfinished().size(), 2U);
}

TEST(SRecords, DamageIsToldWithItsLine) {
    const std::pair<const char *, const char *> damaged[] = {
        {"S206000000AABB95", "line 1: its sum is wrong"},
        {"S00600004844521B\nS206000000AABB9", "line 2: half a byte"},
        {"S206000000AABBXX", "line 1: something else"},
        {"S207000000AABB94", "line 1: its byte count"},
        {"S2", "line 1: its byte count"},
        {"S204000000FB", "line 1: an S2 record without data"},
        {"S1130000", "line 1: an S1 record"},
        {"hello", "line 1: no S-record"},
        {"S804000000FB", "no S2 record"},
        {"", "no S2 record"},
        {"S2060000000001F8\n", "no termination record"},
        {"S804000000FB\nS2060000000001F8", "line 2: a record behind the termination"},
        {"S2060000000001F8\nS5030002FA", "line 2: it counts other than 1 records"},
        {"S207FFFFFE000001FB", "line 1: its data pass the last address"},
        {"S206000000AA123D\nS804000000FB", "its last byte of data names no kind"}};
    for (const auto &damage : damaged) {
        const auto said = test::complaintOf([&] { flash::readImage(damage.first); });
        EXPECT_EQ(said.rfind(damage.second, 0), 0U) << damage.first << ": " << said;
    }
}

TEST(ResultQueue, IsNobodyElses) {
    const flash::ResultQueue queue;
    msqid_ds info{};
    ASSERT_EQ(msgctl(c_netmsgid, IPC_STAT, &info), 0);
    EXPECT_EQ(info.msg_perm.mode & 0777, 0600);
    EXPECT_EQ(info.msg_perm.__key, IPC_PRIVATE);
    EXPECT_EQ(queue.receive(), "");
}

class QuillonFlash : public testing::Test {
  protected:
    QuillonFlash() {
        mkdir("/kept", 0755);
        test::writeFile("/kept/o.mot", kGood);
    }

    // Runs a command on a board with a microcontroller; returns the output.
    static std::string onMcu(const std::string &command, const std::string &options = "") {
        return test::run("quillon-board --mcu 10 " + options + " -- bash -c '" + command + "'")
            .said;
    }
};

// Begins an upload; goes on when board 0 is done, which is printed when the next board begins.
const std::string kBegin =
    "quillon-flash --yes /kept/o.mot >/data/out & "
    "until grep -qs \"board 0:\" /data/out; do sleep 0.05; done; ";

TEST_F(QuillonFlash, ProgramsWhatIsPresentAndKeepsTheFile) {
    const std::string said = onMcu(
        "mkdir /data/t; TMPDIR=/data/t quillon-flash --yes /kept/o.mot; echo status $?; "
        "ls /data/t; grep -c . /proc/sysvipc/msg",
        "$(seq -f --absent=%g 0 2) $(seq -f --absent=%g 4 9)");
    expectHeld(said, {"/kept/o.mot: kind O, 3 records, 8 bytes, 0x000000 to 0xffffff; "
                      "through /dev/ttyAMA2\n",
                      "board 3: 3 of 3 records sent\n", "board 2   absent\nboard 3   OK\n",
                      "status 0\n1\nmcu       board 3 holds 8 bytes, 0x000000 to 0xffffff\n"});
    EXPECT_EQ(test::readFile("/kept/o.mot"), kGood);
}

TEST_F(QuillonFlash, DrawsABarOnATerminalAndAsks) {
    const std::string ask = "script -qec \"quillon-flash /kept/o.mot\" /dev/null";
    expectHeld(onMcu("echo y | " + ask, "$(seq -f --absent=%g 1 9)"),
               {"[y/n]", "***************************************************", "board 0   OK"});
    expectHeld(onMcu("echo maybe | " + ask), {"nothing was programmed"});
    expectHeld(onMcu("(until grep -qs y/n /data/o; do sleep 0.02; done; exec 5<>/dev/ttyAMA2; "
                     "echo y; sleep 9) | " +
                     ask + " >/data/o; cat /data/o"),
               {"has /dev/ttyAMA2; end it first"});
}

TEST_F(QuillonFlash, NeitherAFullDiskNorAClosedPipeNorItsDeathLeavesMoreThanItSays) {
    expectHeld(onMcu("mkdir /data/t; mount -t tmpfs -o size=4k none /data/t; "
                     "head -c 4096 /dev/zero >/data/t/x; TMPDIR=/data/t "
                     "quillon-flash --yes /kept/o.mot"),
               {"cannot write to /data/t/"});
    expectHeld(onMcu("quillon-flash --yes /kept/o.mot | head -n 1", "$(seq -f --absent=%g 1 8)"),
               {"board 9 holds 8 bytes"});
    expectHeld(
        onMcu(kBegin + "kill -KILL $!; wait; timeout 5 bash -c "
                       "\"while pgrep -x quillon-flash; do sleep 0.02; done\"; echo status $?"),
        {"status 0\n"});
}

TEST_F(QuillonFlash, RefusesBeforeAnythingIsSent) {
    test::writeFile("/kept/bad.mot", "S206000000AABB95\n");
    test::writeFile("/kept/a.rar", kGood);
    const std::string said = onMcu(
        "for arguments in \"--yes /kept/bad.mot\" \"--yes /kept/a.rar\" /kept/o.mot "
        "\"--yes /kept/none.mot\" \"--config /kept --yes /kept/o.mot\"; "
        "do quillon-flash $arguments </dev/null; done; "
        "exec 5<>/dev/ttyAMA2; sleep 9 & quillon-flash --yes /kept/o.mot; echo status $?; "
        "kill %1; quillon-flash --bogus; echo status $?");
    expectHeld(said, {"/kept/bad.mot: line 1: its sum is wrong\n", "/kept/a.rar is no .mot file\n",
                      "nobody to ask: give --yes\n", "cannot read /kept/none.mot",
                      "no quillon.ini in /kept", "has /dev/ttyAMA2; end it first\nstatus 1\n",
                      "status 2\n"});
    EXPECT_FALSE(holds(said, "mcu       board"));
}

TEST_F(QuillonFlash, EndsWithStatusOneUnlessEveryBoardIsOk) {
    EXPECT_TRUE(flash::printResult("0:OK;1:N/A;"));
    for (const char *reply : {"0:OK;1:Failed;", "0:N/A;", "timeout", "file error", "upload error"})
        EXPECT_FALSE(flash::printResult(reply)) << reply;
    test::writeFile("/data/slow.ini", "com_port=COM2\nbuad_rate=9600\n");
    expectHeld(onMcu("quillon-flash --yes /kept/o.mot; echo status $?", "--config /data/slow.ini"),
               {"did not tell its boards within 2.5 s; nothing was programmed\nstatus 1\n"});
    const std::string killIt = "kill -KILL $(cat /proc/$!/task/$!/children); ";
    expectHeld(onMcu(kBegin + killIt + "wait $!; echo status $?"),
               {"the upload ended with signal 9", "boards that are done: 0", "status 1\n"});
}

TEST_F(QuillonFlash, SaysWhatAnInterruptionLeaves) {
    // The interruption comes after board 0, while board 1 is programmed.
    expectHeld(onMcu(kBegin + "kill -INT $!; wait $!; echo status $?"),
               {"; program it again before it is used\nquillon-flash: interrupted\n"
                "boards that are done: 0",
                "status 130\n"});
}

}  // namespace
