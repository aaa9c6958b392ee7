// The programs beside the daemon, as the service manager and a person call them.

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <optional>

#include "protocol/ports.h"
#include "software_config.h"
#include "tests/support/on_board.h"
#include "tests/support/tmux.h"
#include <quillon/datagram_socket.h>

namespace {

using std::chrono::seconds;
using test::comesTrue, test::expectHeld, test::readFile, test::run, test::writeFile;

class Service : public test::OnBoard {
  protected:
    int daemonProcess() { return atoi(run("pgrep -x quillon").said.c_str()); }
};

TEST_F(Service, GuardCopiesEachCompleteWriteUntilItIsEnded) {
    ASSERT_EQ(mkdir("/data/state", 0755), 0);
    test::Background guard("quillon-guard watch --folder /data/state");
    SoftwareConfig config;
    const auto write = [&](const char *user) {
        config.SetConfig(SoftwareConfig::kConnectName, user);
        writeFile("/data/state/quillon.ini",
                  config.GetConfig(SoftwareConfig::kSoftWareConfigIDMax));
    };
    const auto kept = [&](const char *user) {
        return comesTrue(
            [&] { return test::holds(readFile("/data/state/quillon.ini.kept"), user); },
            seconds(5));
    };
    // The guard may not watch yet at the first write; it looks once before it waits.
    write("ann");
    EXPECT_TRUE(kept("connect_name=ann\n"));
    writeFile("/data/state/quillon.ini", "[serial]\n");
    write("eve");
    EXPECT_TRUE(kept("connect_name=eve\n"));
    writeFile("/data/state/quillon.ini", "");
    const test::Outcome status = run("quillon-guard status --folder /data/state");
    EXPECT_EQ(status.status, 1);
    EXPECT_EQ(status.said, "quillon.ini is incomplete; the copy is complete\n");
    EXPECT_EQ(run("quillon-guard restore --folder /data/state").said,
              "quillon.ini was incomplete: the copy is back in its place\n");
    EXPECT_EQ(run("quillon-guard --folder /data/state status").status, 0);
    EXPECT_EQ(guard.end(SIGTERM), 128 + SIGTERM);

    const test::Outcome nowhere = run("quillon-guard watch --folder /nowhere");
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_EQ(nowhere.said, "quillon-guard: cannot watch /nowhere: No such file or directory\n");
}

TEST_F(Service, HealthCheckAsksForARestartOnlyWhenNobodyReads) {
    const std::string check = "quillon-health --folder /data/quillon --patience 4";
    EXPECT_TRUE(test::holds(run(check).said, "No program has UDP port 41302"));
    startListening(test::kFast);
    EXPECT_EQ(run(check).said, "The daemon answers.\n");

    kill(daemonProcess(), SIGSTOP);
    const test::Outcome hung = run(check);
    EXPECT_EQ(hung.status, 10);
    EXPECT_TRUE(test::holds(hung.said, "has not answered for 4 s. It has to be restarted."));
    kill(daemonProcess(), SIGCONT);
    EXPECT_EQ(run(check).said, "The daemon answers.\n");

    // Somebody else at the port may take the question away: that is no reason for a restart.
    const quillon::DatagramSocket other("", quillon::kOperatorPort, "");
    const test::Outcome shared = run(check);
    EXPECT_EQ(shared.status, 0);
    EXPECT_TRUE(test::holds(shared.said, "WARNING: several programs share UDP port 41302"));
}

TEST_F(Service, HealthCheckDoesNotTakeABusyDaemonForAHungOne) {
    startListening(std::string(test::kFast) + "per_enable=1\n");
    quillon::Endpoint operators(test::kBoard, quillon::kOperatorPort, test::kOther);
    const auto send = [&](const std::string &text) { operators.send(text.data(), text.size()); };
    send("connect|192.168.1.20-ann|192.168.1.20|9");
    // Each keeps the daemon for 10 s, because nobody answers for ann.
    for (int i = 0; i < 3; ++i) send("apply|192.168.1.21-eve|192.168.1.21|1");
    const test::Outcome busy = run("quillon-health --folder /data/quillon --patience 15");
    EXPECT_EQ(busy.status, 0) << busy.said;
    EXPECT_EQ(busy.said, "The daemon is busy with the commands of operators.\n");
}

TEST_F(Service, DoctorFindsTheSimulatedBoardFitAndSaysWhatIsNot) {
    make(test::kFast);
    const std::string doctor = "quillon-doctor --folder /data/quillon";
    const test::Outcome fit = run(doctor);
    EXPECT_EQ(fit.status, 0) << fit.said;
    expectHeld(fit.said,
               {"ok     board QBRD10401m2_3000_R1, with a CH9329\n",
                "ok     eth0 has the address 192.168.1.10\n", "ok     /dev/mem can be opened\n",
                "ok     UDP port 41302 (operators) is free\n",
                "ok     the CH9329 answers at 115200 bits per second; it is plugged into a "
                "computer that is on\n",
                "This machine is fit for the daemon.\n"});

    board_->chip().unplug();
    EXPECT_TRUE(test::holds(run(doctor).said, "no computer is on at its USB plug"));
    board_->chip().silence(true);
    const quillon::DatagramSocket taken("", quillon::kConsentPort, "");
    writeFile("/data/net.ini", "kEth0Ip=10.1.2.3\n");
    unlink("/dev/mem");
    const test::Outcome unfit = run(doctor);
    EXPECT_EQ(unfit.status, 1);
    expectHeld(unfit.said, {"WRONG  the CH9329 does not answer at /dev/ttyAMA2",
                            "WRONG  UDP port 41303 (consent) is taken by another program",
                            "WRONG  /data/net.ini says 10.1.2.3, which eth0 does not have",
                            "WRONG  cannot open /dev/mem", "This machine is not fit"});
    EXPECT_TRUE(test::holds(run(doctor + " --without-memory").said,
                            "note   /dev/mem cannot be opened, as you want it"));
    // Names from files do not command the terminal.
    writeFile("/version/hardware_info", "\"board\": \"\x1b[2JX\"\n");
    EXPECT_TRUE(test::holds(run(doctor).said, "board ?[2JX, with a CH9350"));
}

TEST_F(Service, DoctorLeavesARunningDaemonAlone) {
    startListening(test::kFast);
    const test::Outcome running = run("quillon-doctor --folder /data/quillon");
    EXPECT_EQ(running.status, 0) << running.said;
    expectHeld(running.said,
               {"the daemon runs as process", "UDP port 80 (records) is in use, as it should be",
                "the chip is not asked, because the daemon has its serial port"});
    type(test::kConsole, 'a');
    EXPECT_TRUE(arrives("a"));

    // A program of another user has the port for heartbeats, which the daemon has only sometimes.
    std::optional<quillon::DatagramSocket> taken;
    const bool other = test::asStranger([&] { taken.emplace("", quillon::kHeartbeatPort, ""); });
    if (!other) taken.emplace("", quillon::kHeartbeatPort, "");
    const std::string said = run("quillon-doctor --folder /data/quillon").said;
    EXPECT_EQ(test::holds(said, "WRONG  UDP port 41301 (heartbeats) is taken by another program"),
              other);
}

TEST_F(Service, ADaemonWithoutItsRecordPortIsReportedByHealthAndDoctor) {
    {
        // When another program has it at the start, the daemon goes on without.
        const quillon::DatagramSocket taken("", 80, "", quillon::DatagramSocket::kAlone);
        start(test::kFast);
        ASSERT_TRUE(logs("bind error"));
    }
    std::string said;
    EXPECT_TRUE(comesTrue(
        [&] {
            said = run("quillon-health --folder /data/quillon").said;
            return test::holds(said, "The daemon answers.\nWARNING: no program has UDP port 80,");
        },
        seconds(10)))
        << said;
    const test::Outcome deaf = run("quillon-doctor --folder /data/quillon");
    EXPECT_EQ(deaf.status, 1);
    expectHeld(deaf.said, {"WRONG  UDP port 80 (records) is not in use although the daemon runs"});
}

TEST_F(Service, ABoardWithoutSystemdHasAScript) {
    make(test::kFast);
    test::Background script(SOURCE_DIR "/packaging/start-without-systemd /data/quillon /data/log");
    const auto answers = [] { return run("quillon-health --folder /data/quillon").said; };
    const auto listens = [&] {
        return comesTrue([&] { return test::holds(answers(), "The daemon answers."); },
                         seconds(30));
    };
    ASSERT_TRUE(listens());
    type(test::kConsole, 'a');
    EXPECT_TRUE(arrives("a"));
    const int first = daemonProcess();
    // As a power cut in the middle of a write would leave it.
    writeFile("/data/quillon/quillon.ini", "");
    kill(first, SIGKILL);
    EXPECT_TRUE(
        comesTrue([&] { return daemonProcess() != first && daemonProcess() != 0; }, seconds(20)));
    EXPECT_TRUE(listens());
    EXPECT_EQ(run("quillon-guard status --folder /data/quillon").status, 0);
    script.end(SIGTERM);
    EXPECT_EQ(run("pgrep ^quillon").said, "");
}

// As a person's shell does it, with the Tab key.
TEST(Documents, CompletionWorksInARealBash) {
    test::Tmux shell("cd " SOURCE_DIR "/packaging/completion; PS1='$ ' bash --norc");
    shell.send(
        "for f in *; do source ./$f; done; clear; "
        "complete -p quillon-{flash,guard,health,doctor} >/dev/null && echo re''ady\n");
    ASSERT_TRUE(shell.shows("ready"));
    for (const auto &[typed, completed] :
         {std::pair{"quillon-fence ap\t--k\t", "quillon-fence apply --keep"},
          {"quillon-console --to 1.2.3.4 mouse cl\t", "mouse click"},
          {"quillon-board --consoles-\t", "quillon-board --consoles-apart"}}) {
        shell.send(typed);
        EXPECT_TRUE(shell.shows(completed)) << shell.screen();
        shell.send("\x03");  // Ctrl-C
    }
}

TEST(Documents, OptionsAreThoseOfThePrograms) {
    const test::Outcome check = run("cd " SOURCE_DIR " && OPTIONS_WRITER=" PROGRAM_DIR
                                    "/options_writer scripts/options --check");
    EXPECT_EQ(check.status, 0) << check.said;
    for (const std::string program :
         {"quillon-guard", "quillon-health", "quillon-doctor", "quillon-fence"}) {
        EXPECT_EQ(run(program + " --wrong").status, 2);
        EXPECT_EQ(run(program + " --help").status, 0);
    }
}

}  // namespace
