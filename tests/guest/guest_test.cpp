// The packages on a Debian with systemd. The tests share one machine and build on each other, in
// the order in which they stand here.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <thread>

#include "tests/guest/guest.h"

namespace {

using std::chrono::seconds;
using test::Guest;

std::string folder;
Guest *guest;

std::string readFile(const std::string &path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

class Installed : public testing::Test {
  protected:
    static Guest::Outcome run(const std::string &line, int patience = 120) {
        return guest->run(line, seconds(patience));
    }
    static bool does(const std::string &line, int patience = 120) {
        return run(line, patience).status == 0;
    }
    static std::string says(const std::string &line) { return run(line).said; }

    /// Waits in the guest until a line of bash succeeds.
    static bool becomes(const std::string &line, int patience = 60) {
        return does("for i in {1.." + std::to_string(patience * 5) + "}; do " + line +
                        " && break; sleep 0.2; done; " + line,
                    patience + 30);
    }

    static bool listens() { return becomes("ss -Hulpn 'sport = 41302' | grep -q quillon"); }

    /// Types a word and waits until the simulated computer has it.
    static bool types(const std::string &word) {
        return becomes("quillon-console --to 192.168.1.10 type " + word +
                       " && sleep 1.5 && journalctl -u board --no-pager | grep -q 'typed .*" +
                       word + "'");
    }

    static std::string mainProcess() { return says("systemctl show -P MainPID quillon"); }
};

TEST_F(Installed, ByAptFromThePackages) {
    ASSERT_TRUE(does("mount /dev/vdb /packages && mount /dev/vdc /var/lib/quillon"));
    ASSERT_TRUE(
        does("apt-get install -y -qq --no-install-recommends /packages/quillon*.deb "
             "</dev/null >/tmp/apt 2>&1 || { cat /tmp/apt; false; }",
             400));
    EXPECT_EQ(says("systemctl is-active quillon"), "inactive")
        << "it started on a machine that is no board";
    EXPECT_EQ(says("systemctl is-enabled quillon quillon-health.timer quillon-fence | xargs"),
              "enabled enabled disabled");
    EXPECT_TRUE(
        does("cd /lib/systemd/system && systemd-analyze verify --man=no quillon*.service "
             "quillon*.timer 2>&1 | grep quillon; [ ${PIPESTATUS[1]} = 1 ]"));
    EXPECT_TRUE(
        does("systemd-analyze security --offline=true --threshold=25 quillon.service "
             ">/dev/null"));
    EXPECT_EQ(says("stat -c '%U %a' /var/lib/quillon /dev/mem | xargs"), "root 755 root 640")
        << "the guest is not as the next tests take it";
}

TEST_F(Installed, DoctorSaysWhatIsMissing) {
    const auto bare = run("quillon-doctor");
    EXPECT_EQ(bare.status, 1);
    for (const char *words : {"/version/hardware_info: No such file", "/data/net.ini: No such file",
                              "no network interface eth0", "is not fit"})
        EXPECT_NE(bare.said.find(words), std::string::npos) << words << "\n" << bare.said;
}

// The board: files, network, and the simulated devices in place of those of /dev.
TEST_F(Installed, StartsAsUnitWithoutRoot) {
    ASSERT_TRUE(
        does("mkdir -p /data /version /run/b && chgrp dialout /run/b && chmod 770 /run/b && "
             "echo kEth0Ip=192.168.1.10 >/data/net.ini && "
             "echo '\"board\": \"QBRD10401m2_3000_R1\"' >/version/hardware_info"));
    // The consoles stand on a network of their own, so that the rules see eth0.
    ASSERT_TRUE(
        does("ip netns add consoles && ip link add eth0 type veth peer name wire0 netns "
             "consoles && ip addr add 192.168.1.10/24 dev eth0 && ip link set eth0 up && "
             "ip netns exec consoles sh -c 'ip link set lo up; ip link set wire0 up; for n in "
             "20 66; do ip addr add 192.168.1.$n/24 dev wire0; done'"));
    ASSERT_TRUE(
        does("systemd-run -q --unit=board quillon-board --devices /run/b --lines && "
             "for i in {1..100}; do [ -e /run/b/ttyAMA3 ] && break; sleep 0.2; done"));
    ASSERT_TRUE(
        does("mkdir -p /etc/systemd/system/quillon.service.d && printf "
             "'[Service]\\nBindPaths=/run/b/mem:/dev/mem\\nBindPaths=/run/b/ttyAMA2:/dev/"
             "ttyAMA2\\nDeviceAllow=char-pts rw\\n' >/etc/systemd/system/quillon.service.d/"
             "test.conf && systemctl daemon-reload"));
    // The chip is at 115200 from the factory, and the settings say so.
    ASSERT_TRUE(
        does("(umask 077; printf '[serial]\\nbuad_rate=115200\\n' >/var/lib/quillon/quillon.ini)"));
    ASSERT_TRUE(does("systemctl start quillon"));
    ASSERT_TRUE(listens()) << says("journalctl -u quillon --no-pager | tail -n 20");
    EXPECT_TRUE(types("hello"));

    const std::string status = "/proc/" + mainProcess() + "/status";
    // CAP_NET_BIND_SERVICE is 10, CAP_NET_ADMIN 12, CAP_SYS_RAWIO 17.
    EXPECT_EQ(says("grep -E '^Cap(Prm|Eff|Bnd|Amb)' " + status + " | sort -u -k 2 | cut -f 2"),
              "0000000000021400");
    EXPECT_EQ(says("grep -E '^(NoNewPrivs|Seccomp):' " + status + " | cut -f 2 | xargs"), "1 2");
    EXPECT_EQ(says("grep '^Uid' " + status + " | cut -f 2- | xargs -n 1 | sort -u"),
              says("id -u quillon"));
    EXPECT_NE(says("id -u quillon"), "0");
    EXPECT_EQ(says("stat -c '%U %a' /var/lib/quillon/quillon.ini"), "quillon 600");
    EXPECT_TRUE(becomes("quillon-guard status"));
    EXPECT_EQ(says("systemctl is-active quillon-guard"), "active");
    // Its pins were set through the memory that it was given.
    EXPECT_EQ(says("od -An -tx4 -j $((0x120F0100)) -N 4 /run/b/mem | xargs"), "00000001");
}

TEST_F(Installed, SurvivesWhatHappensToAService) {
    std::string before = mainProcess();
    EXPECT_TRUE(does("systemctl restart quillon"));
    ASSERT_TRUE(listens());
    EXPECT_NE(mainProcess(), before);
    EXPECT_TRUE(types("restarted"));

    before = mainProcess();
    EXPECT_TRUE(does("kill -SEGV " + before));
    EXPECT_TRUE(becomes("[ \"$(systemctl show -P MainPID quillon)\" != " + before +
                        " ] && systemctl is-active -q quillon"));
    ASSERT_TRUE(listens());
    EXPECT_TRUE(types("segv"));

    EXPECT_TRUE(
        does("journalctl --rotate && journalctl --vacuum-size=1M 2>/dev/null && systemctl "
             "restart systemd-journald"));
    EXPECT_TRUE(types("rotated"));

    EXPECT_TRUE(does("systemctl stop quillon"));
    EXPECT_EQ(says("systemctl is-active quillon quillon-guard | xargs"), "inactive inactive");
    EXPECT_TRUE(does("systemctl start quillon"));
    EXPECT_TRUE(listens());
}

TEST_F(Installed, KeepsItsSettingsOnAFullDisk) {
    ASSERT_TRUE(does("echo -n per_enable=1 >/dev/udp/127.0.0.1/41302"));
    ASSERT_TRUE(becomes("grep -q per_enable=1 /var/lib/quillon/quillon.ini.kept"));
    // To the last block, which root may use, too.
    run("cat /dev/zero >/var/lib/quillon/filler 2>/dev/null; sync");
    EXPECT_TRUE(
        does("for i in 1 2 3; do for m in rel abs; do echo -n chip=$m "
             ">/dev/udp/127.0.0.1/41302; sleep 0.2; done; done"));
    EXPECT_TRUE(does("systemctl kill -s KILL quillon"));
    EXPECT_TRUE(does("sleep 5; rm /var/lib/quillon/filler"));
    ASSERT_TRUE(listens());
    EXPECT_TRUE(becomes("grep -q per_enable=1 /var/lib/quillon/quillon.ini")) << "permissions went";
    EXPECT_TRUE(does("echo -n per_enable=0 >/dev/udp/127.0.0.1/41302"));
    EXPECT_TRUE(becomes("grep -q per_enable=0 /var/lib/quillon/quillon.ini.kept"));
    EXPECT_TRUE(types("room"));
}

TEST_F(Installed, HealthCheckRestartsOnlyADaemonThatHangs) {
    EXPECT_TRUE(does("systemctl start quillon-health"));
    const std::string healthy = mainProcess();
    // A stranger who applies again and again keeps it busy, but does not get it restarted.
    ASSERT_TRUE(
        does("echo -n per_enable=1 >/dev/udp/127.0.0.1/41302; sleep 0.5; echo -n "
             "'connect|192.168.1.20-ann|192.168.1.20|9' >/dev/udp/127.0.0.1/41302; sleep 0.5; "
             "for i in 1 2 3 4 5; do echo -n 'apply|192.168.1.66-eve|192.168.1.66|1' "
             ">/dev/udp/127.0.0.1/41302; done"));
    EXPECT_TRUE(does("quillon-health --patience 20"));
    EXPECT_EQ(mainProcess(), healthy);
    EXPECT_TRUE(does("systemctl restart quillon"));
    ASSERT_TRUE(listens());

    const std::string hung = mainProcess();
    EXPECT_TRUE(does("kill -STOP " + hung));
    const auto check = run("quillon-health --patience 3");
    EXPECT_EQ(check.status, 1) << check.said;
    // As the timer does it.
    EXPECT_FALSE(does("systemctl start quillon-health"));
    EXPECT_TRUE(becomes("[ \"$(systemctl show -P MainPID quillon)\" != " + hung +
                        " ] && systemctl is-active -q quillon"));
    ASSERT_TRUE(listens());
    EXPECT_TRUE(does("systemctl stop quillon && quillon-health | grep 'No program has UDP port'"));
    EXPECT_TRUE(does("systemctl start quillon"));
    ASSERT_TRUE(listens());
    EXPECT_TRUE(does("echo -n per_enable=0 >/dev/udp/127.0.0.1/41302"));
}

TEST_F(Installed, DoctorFindsABoardFit) {
    // In the mounts of the unit, where the simulated devices are in /dev; as the unit's user.
    const std::string unit = "nsenter -t " + mainProcess() + " -m quillon-doctor";
    const auto running = run(unit);
    EXPECT_NE(running.said.find("in use, as it should be"), std::string::npos) << running.said;
    ASSERT_TRUE(does("nsenter -t " + mainProcess() + " -m sleep 600 & sleep 0.5"));
    ASSERT_TRUE(does("systemctl stop quillon"));
    const auto stopped = run("nsenter -t $(pgrep -x sleep | tail -n 1) -m quillon-doctor");
    EXPECT_EQ(stopped.status, 0) << stopped.said;
    for (const char *words :
         {"looking as the user quillon", "with a CH9329", "eth0 has the address 192.168.1.10",
          "/dev/mem can be opened", "/dev/ttyAMA2 can be opened",
          "answers at 115200 bits per second; it is plugged into a computer", "is fit"})
        EXPECT_NE(stopped.said.find(words), std::string::npos) << words << "\n" << stopped.said;
    EXPECT_TRUE(does("systemctl start quillon"));
    ASSERT_TRUE(listens());
}

TEST_F(Installed, FenceLetsInWhoIsInItsList) {
    const std::string typed = "ip netns exec consoles quillon-console --to 192.168.1.10 --from ";
    EXPECT_TRUE(does(typed + "192.168.1.66 query"));
    ASSERT_TRUE(
        does("printf 'interface = \"eth0\"\\nconsoles = [\"192.168.1.20\"]\\noperators = "
             "[\"192.168.1.20\"]\\n' >/etc/quillon/fence.toml && quillon-fence check"));
    ASSERT_TRUE(does("quillon-fence apply"));
    EXPECT_TRUE(does(typed + "192.168.1.20 query"));
    EXPECT_FALSE(does(typed + "192.168.1.66 --timeout 500 query"));
    EXPECT_FALSE(does("quillon-fence apply")) << "two of them wait for a confirmation";
    EXPECT_TRUE(
        does("quillon-fence confirm && sleep 1 && quillon-fence status | grep "
             "'[1-9][0-9]*  turned away: the sender is not in the list'"));
    EXPECT_TRUE(does("quillon-fence off"));
    EXPECT_TRUE(does(typed + "192.168.1.66 query"));
    // Nobody confirms.
    ASSERT_TRUE(does("quillon-fence apply"));
    EXPECT_FALSE(does(typed + "192.168.1.66 --timeout 500 query"));
    EXPECT_TRUE(becomes("! quillon-fence status >/dev/null", 90));
    EXPECT_TRUE(does(typed + "192.168.1.66 query"));

    EXPECT_TRUE(does("systemctl enable --now quillon-fence && quillon-fence status"));
    EXPECT_TRUE(does(typed + "192.168.1.20 type fenced"));
    EXPECT_TRUE(becomes("journalctl -u board --no-pager | grep -q fenced"));
    EXPECT_TRUE(does("systemctl disable --now quillon-fence && ! quillon-fence status"));
}

// The commands of docs/security.md, as they stand there.
TEST_F(Installed, WireGuardAsTheDocumentsSay) {
    const std::string extract =
        "sed -n '/^<!-- wireguard begin -->/,/^<!-- wireguard end -->/s/^    //p' "
        "/packages/security.md >/tmp/wg.sh && [ -s /tmp/wg.sh ]";
    ASSERT_TRUE(does(extract));
    ASSERT_TRUE(does("cd /tmp && bash -e wg.sh </dev/null"));
    const std::string ask = "ip netns exec consoles quillon-console --timeout 1000 ";
    EXPECT_TRUE(does(ask + "--to 10.8.0.1 --from 10.8.0.2 query"));
    EXPECT_FALSE(does(ask + "--to 192.168.1.10 --from 192.168.1.20 query"))
        << "the fence lets in what did not come through the tunnel";
    EXPECT_TRUE(does("quillon-fence off; ip link del wg0"));
}

// Upgrade, removal, purge: as Debian's policy has them.
TEST_F(Installed, IsUpgradedRemovedAndPurged) {
    const std::string before = mainProcess();
    EXPECT_TRUE(does("echo -n chip=rel >/dev/udp/127.0.0.1/41302"));
    EXPECT_TRUE(becomes("grep -q chip_model=rel /var/lib/quillon/quillon.ini.kept"));
    // A changed list is the person's own, and stays.
    EXPECT_TRUE(does("echo '# mine' >>/etc/quillon/fence.toml"));
    ASSERT_TRUE(
        does("dpkg -i --force-confold /packages/quillon_*.deb </dev/null >/tmp/dpkg 2>&1 || "
             "{ cat /tmp/dpkg; false; }",
             300));
    EXPECT_TRUE(becomes("[ \"$(systemctl show -P MainPID quillon)\" != " + before + " ]"));
    ASSERT_TRUE(listens());
    EXPECT_TRUE(
        does("grep -q mine /etc/quillon/fence.toml && grep -q chip_model=rel "
             "/var/lib/quillon/quillon.ini"));
    EXPECT_TRUE(does("echo -n chip=abs >/dev/udp/127.0.0.1/41302"));
    EXPECT_TRUE(types("upgraded"));

    ASSERT_TRUE(does("apt-get remove -y -qq quillon </dev/null >/tmp/apt 2>&1", 300));
    EXPECT_TRUE(does("! pgrep -x quillon && ! pgrep -x quillon-guard"));
    EXPECT_TRUE(does("[ -s /var/lib/quillon/quillon.ini ] && [ -e /etc/quillon/fence.toml ]"));
    // The settings are on a mount of their own, which a purge empties and cannot remove.
    ASSERT_TRUE(
        does("apt-get purge -y -qq quillon </dev/null >/tmp/apt 2>&1; "
             "[ ! -e /var/lib/quillon/quillon.ini ] && [ ! -e /etc/quillon/fence.toml ]",
             300));
    ASSERT_TRUE(
        does("apt-get install -y -qq --no-install-recommends /packages/quillon_*.deb "
             "/packages/quillon-board_*.deb </dev/null >/tmp/apt 2>&1",
             400));
    ASSERT_TRUE(listens());
}

// Completion as a person's shell does it.
TEST_F(Installed, CompletesOptionsInBash) {
    const std::string complete =
        "bash -c 'source /usr/share/bash-completion/bash_completion; _completion_loader \"$1\"; "
        "COMP_WORDS=(\"$@\" \"\"); COMP_WORDS=(\"${COMP_WORDS[@]:0:$#}\"); COMP_CWORD=$(($# - 1)); "
        "\"_${1//-/_}\"; echo \"${COMPREPLY[@]}\"' x ";
    EXPECT_EQ(says(complete + "quillon-fence a"), "apply");
    EXPECT_EQ(says(complete + "quillon-fence apply --k"), "--keep");
    EXPECT_EQ(says(complete + "quillon-console mouse cl"), "click");
    EXPECT_EQ(says(complete + "quillon-console type --lay"), "--layout");
    EXPECT_EQ(says(complete + "quillon-board --comp"), "--computer --computer-files");
}

// Settings over power cuts: what is on the disk at a moment of a machine that goes on.
class PowerCuts : public Installed {
  protected:
    struct Found {
        std::string permissions, mode, user;
    };

    static std::string valueIn(const std::string &text, const std::string &key) {
        const std::size_t at = text.find("\n" + key + "=");
        if (at == std::string::npos) return "";
        const std::size_t begin = at + key.size() + 2;
        return text.substr(begin, text.find('\n', begin) - begin);
    }

    /// A person changes mode and user by turns; the guest tells each change that has got into a
    /// file.
    static void startChanging(const std::string &file) {
        ASSERT_TRUE(does("systemctl restart quillon"));
        ASSERT_TRUE(listens());
        ASSERT_TRUE(does("echo -n per_enable=1 >/dev/udp/127.0.0.1/41302; sleep 1"));
        const std::string loop =
            "n=0; while true; do n=$((n + 1)); if [ $((n % 2)) = 0 ]; then m=rel; [ $((n % 4)) = 0 "
            "] "
            "|| m=abs; w=chip=$m k=chip_model=$m; else u=192.168.1.20-u$n; "
            "w=\"connect|$u|192.168.1.20|5\" k=connect_name=$u; fi; echo -n \"$w\" "
            ">/dev/udp/127.0.0.1/41302; until grep -qsx \"$k\" " +
            file +
            "; do sleep 0.05; done; echo \"kept $n\" >/dev/ttyS0; sleep 0.$((RANDOM % 5))5; done";
        ASSERT_TRUE(does("cat >/tmp/changes <<'EOF'\n" + loop +
                         "\nEOF\nsystemd-run -q "
                         "--unit=changes bash /tmp/changes"));
    }

    static int changes() {
        const std::string log = readFile(folder + "/console.log");
        const std::size_t at = log.rfind("kept ");
        return at == std::string::npos ? 0 : atoi(log.c_str() + at + 5);
    }

    /// The settings after a cut now, and a start of the guard as before the daemon's.
    static Found afterACut(bool guarded, int &change) {
        const std::string disk = folder + "/cut.img", place = folder + "/cut";
        guest->copySettingsDisk(disk);
        change = changes();
        const std::string dump = "debugfs -R 'dump -p /NAME " + place + "/NAME' " + disk;
        const auto take = [&](const std::string &name) {
            std::string command = dump;
            for (std::size_t at; (at = command.find("NAME")) != std::string::npos;)
                command.replace(at, 4, name);
            return command + " >/dev/null 2>&1; ";
        };
        const std::string recover = "rm -rf " + place + " && mkdir " + place + " && e2fsck -fy " +
                                    disk + " >/dev/null 2>&1; " + take("quillon.ini") +
                                    take("quillon.ini.kept");
        EXPECT_EQ(system((recover + "true").c_str()), 0);
        if (guarded) {
            EXPECT_EQ(system((PROGRAM_DIR "/quillon-guard restore --folder " + place).c_str()), 0);
        }
        const std::string text = readFile(place + "/quillon.ini");
        return {valueIn(text, "per_enable"), valueIn(text, "chip_model"),
                valueIn(text, "connect_name")};
    }

    /// Whether it is what was last complete, or one change later, which may just have got there.
    static bool isFrom(const Found &found, int change) {
        const auto mode = [](int n) { return n / 2 % 2 == 0 ? "rel" : "abs"; };
        const auto user = [](int n) {
            return "192.168.1.20-u" + std::to_string(n % 2 == 0 ? n - 1 : n);
        };
        return found.permissions == "1" &&
               (found.mode == mode(change) || found.mode == mode(change + 1)) &&
               (found.user == user(change) || found.user == user(change + 1));
    }

    /// Neighbouring cuts less than 5 s apart share a commit of the file system's journal.
    static void pauseBetweenCuts() {
        static std::mt19937 random(1);
        std::this_thread::sleep_for(
            std::chrono::milliseconds(5000 + std::uniform_int_distribution(0, 1500)(random)));
    }
};

TEST_F(PowerCuts, LeaveTheLastCompleteSettings) {
    startChanging("/var/lib/quillon/quillon.ini.kept");
    constexpr int kCuts = 20;
    int good = 0, last = 0;
    for (int cut = 0; cut < kCuts; ++cut) {
        pauseBetweenCuts();
        int change = 0;
        const Found found = afterACut(true, change);
        EXPECT_GT(change, last) << "nothing was changed between two cuts";
        last = change;
        EXPECT_TRUE(isFrom(found, change))
            << "after change " << change << ": permissions " << found.permissions << ", mode "
            << found.mode << ", user " << found.user;
        good += isFrom(found, change);
    }
    printf("%d of %d cuts left the settings of %d changes\n", good, kCuts, last);
    EXPECT_TRUE(does("systemctl stop changes"));
}

// Else the test above would not see a guard that does nothing.
TEST_F(PowerCuts, TakeThemWithoutTheGuard) {
    ASSERT_TRUE(
        does("systemctl mask --now quillon-guard && systemctl stop quillon && rm "
             "/var/lib/quillon/quillon.ini.kept && printf '[Service]\\nExecStartPre=\\n' "
             ">/etc/systemd/system/quillon.service.d/bare.conf && systemctl daemon-reload"));
    startChanging("/var/lib/quillon/quillon.ini");
    bool lost = false;
    int cuts = 0;
    for (; cuts < 20 && !lost; ++cuts) {
        pauseBetweenCuts();
        int change = 0;
        const Found found = afterACut(false, change);
        lost = !isFrom(found, change);
    }
    EXPECT_TRUE(lost);
    printf("without the guard cut %d took the settings\n", cuts);
}

}  // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (argc != 2) {
        fprintf(stderr, "usage: guest_tests FOLDER; scripts/guest makes the folder\n");
        return 2;
    }
    folder = argv[1];
    signal(SIGPIPE, SIG_IGN);
    try {
        Guest machine(folder);
        guest = &machine;
        return RUN_ALL_TESTS();
    } catch (const std::exception &error) {
        fprintf(stderr, "guest_tests: %s\n", error.what());
        return 1;
    }
}
