// quillon-flash as a user runs it, and the check of what it is given.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "srecord.h"
#include "support.h"

namespace {

using test::holds, test::run;

constexpr char kGood[] =
    "S00600004844521B\n"
    "S20800001001020304DD\n"
    "S206000000AABB94\r\n"
    "\n"
    "S206FFFFFE0001FC\n"
    "S804000000FB\n";

TEST(SRecords, TellWhatTheyProgram) {
    const flash::Image image = flash::readImage(kGood);
    EXPECT_EQ(image.kind, 'O');
    EXPECT_EQ(image.records, 3U);
    EXPECT_EQ(image.bytes, 8U);
    EXPECT_EQ(image.first, 0U);
    EXPECT_EQ(image.last, 0xFFFFFFU);
}

TEST(SRecords, DamageIsToldWithItsLine) {
    const std::pair<const char *, const char *> damaged[] = {
        {"S206000000AABB95", "line 1: its sum is wrong"},
        {"S804000000FB\nS206000000AABB9", "line 2: half a byte"},
        {"S206000000AABBXX", "line 1: something else"},
        {"S207000000AABB94", "line 1: its byte count"},
        {"S2", "line 1: its byte count"},
        {"S204000000FB", "line 1: an S2 record without data"},
        {"S1130000", "line 1: an S1 record"},
        {"hello", "line 1: no S-record"},
        {"S804000000FB", "no S2 record"},
        {"", "no S2 record"},
        {"S206000000AA12"
         "3D",
         "line 1: its last byte names no kind"}};
    for (const auto &[text, reason] : damaged) {
        try {
            flash::readImage(text);
            ADD_FAILURE() << text;
        } catch (const std::runtime_error &error) {
            EXPECT_EQ(std::string(error.what()).rfind(reason, 0), 0U) << error.what();
        }
    }
}

constexpr char kMcu[] = PROGRAM_DIR "/quillon-board --mcu 10 ";
constexpr char kFlash[] = PROGRAM_DIR "/quillon-flash ";

std::string onMcu(const std::string &command, const std::string &options = "") {
    return kMcu + options + " -- bash -c '" + command + "'";
}

std::string absentBut(unsigned present) {
    std::string options;
    for (unsigned i = 0; i < 10; ++i)
        if (i != present) options += "--absent " + std::to_string(i) + " ";
    return options;
}

class QuillonFlash : public testing::Test {
  protected:
    QuillonFlash() {
        mkdir("/kept", 0755);
        test::writeFile("/kept/o.mot", kGood);
    }
};

TEST_F(QuillonFlash, ProgramsWhatIsPresentAndKeepsTheFile) {
    const auto outcome =
        run(onMcu("mkdir /data/t; export TMPDIR=/data/t; " + std::string(kFlash) +
                      "--yes /kept/o.mot; echo status $?; ls /data/t; grep -c . /proc/sysvipc/msg",
                  absentBut(3)));
    for (const char *said :
         {"/kept/o.mot: kind O, 3 records, 8 bytes, 0x000000 to 0xffffff; "
          "through /dev/ttyAMA2\n",
          "board 3: 3 of 3 records sent\n", "board 2   absent\nboard 3   OK\n",
          "status 0\n1\nmcu       board 3 holds 8 bytes, 0x000000 to 0xffffff\n"})
        EXPECT_TRUE(holds(outcome, said)) << said << "\nin\n" << outcome.said;
    EXPECT_EQ(test::readFile("/kept/o.mot"), kGood);
}

TEST_F(QuillonFlash, DrawsABarOnATerminalAndAsks) {
    const auto outcome = run(onMcu(
        "echo y | script -qec \"" + std::string(kFlash) + "/kept/o.mot\" /dev/null", absentBut(0)));
    EXPECT_TRUE(holds(outcome, "[y/n]")) << outcome.said;
    EXPECT_TRUE(holds(outcome, std::string(51, '*'))) << outcome.said;
    EXPECT_TRUE(holds(outcome, "board 0   OK")) << outcome.said;
}

TEST_F(QuillonFlash, RefusesBeforeAnythingIsSent) {
    test::writeFile("/kept/bad.mot", "S206000000AABB95\n");
    test::writeFile("/kept/a.rar", kGood);
    const std::string flash = kFlash;
    const auto outcome = run(
        onMcu(flash + "--yes /kept/bad.mot; " + flash + "--yes /kept/a.rar; " + flash +
              "/kept/o.mot </dev/null; " + flash + "--yes /kept/none.mot; " + flash +
              "--config /kept --yes /kept/o.mot; exec 5<>/dev/ttyAMA2; sleep 9 & " + flash +
              "--yes /kept/o.mot; echo status $?; kill %1; " + flash + "--bogus; echo status $?"));
    for (const char *said :
         {"/kept/bad.mot: line 1: its sum is wrong\n", "/kept/a.rar is no .mot file\n",
          "nobody to ask: give --yes\n", "cannot read /kept/none.mot", "no quillon.ini in /kept",
          "has /dev/ttyAMA2; end it first\nstatus 1\n", "status 2\n"})
        EXPECT_TRUE(holds(outcome, said)) << said << "\nin\n" << outcome.said;
    EXPECT_FALSE(holds(outcome, "mcu       board"));
}

TEST_F(QuillonFlash, SaysWhatAnInterruptionLeaves) {
    const auto outcome = run(onMcu(std::string(kFlash) +
                                   "--yes /kept/o.mot >/data/out & "
                                   "until grep -qs \"board 0:\" /data/out; do sleep 0.05; done; "
                                   "kill -INT $!; wait $!; echo status $?"));
    // Board 0 is said to be sent when the next one begins, which then has 2 s.
    EXPECT_TRUE(holds(outcome, "quillon-flash: interrupted\nboard 1: ")) << outcome.said;
    EXPECT_TRUE(holds(outcome, "; program it again before it is used\nboards that are not named"));
    EXPECT_TRUE(holds(outcome, "status 130\n"));
}

}  // namespace
