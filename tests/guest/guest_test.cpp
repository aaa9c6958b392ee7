// The packages on a Debian with systemd. The tests share one machine and build on each other, in
// the order in which they stand here.

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <random>
#include <thread>

#include "protocol/answers.h"
#include "tests/guest/guest.h"
#include "tests/support/support.h"

namespace {

using std::chrono::seconds;
using test::Guest;

std::string folder;
Guest *guest;

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

    static bool startsAgainAfter(const std::string &process) {
        return becomes("[ \"$(systemctl show -P MainPID quillon)\" != " + process +
                       " ] && systemctl is-active -q quillon");
    }

    /// All five sets of a process, when they are the same: a line for each that differs.
    static std::string capabilities(const std::string &process) {
        return says("grep -E '^Cap(Inh|Prm|Eff|Bnd|Amb)' /proc/" + process +
                    "/status | sort -u -k 2 | cut -f 2");
    }
    // CAP_NET_BIND_SERVICE is 10, CAP_NET_ADMIN 12, CAP_SYS_RAWIO 17.
    static constexpr char kAllThree[] = "0000000000021400";

    inline static const std::string kOperators = ">/dev/udp/127.0.0.1/41302";
    inline static const std::string kSettings = "/var/lib/quillon/quillon.ini";
    inline static const std::string kCopy = kSettings + ".kept";

    static std::string mainProcess() { return says("systemctl show -P MainPID quillon"); }
};

TEST_F(Installed, ByAptFromThePackages) {
    ASSERT_TRUE(does("mount /dev/vdb /packages && mount /dev/vdc /var/lib/quillon"));
    ASSERT_TRUE(does(R"(apt-get install -y -qq --no-install-recommends /packages/*.deb \
        </dev/null >/tmp/apt 2>&1 || { cat /tmp/apt; false; })",
                     400));
    EXPECT_EQ(says("systemctl is-active quillon"), "inactive")
        << "it started on a machine that is no board";
    EXPECT_EQ(says("systemctl is-enabled quillon quillon-health.timer quillon-fence | xargs"),
              "enabled enabled disabled");
    EXPECT_TRUE(does(R"(cd /lib/systemd/system && systemd-analyze verify --man=no \
        quillon*.service quillon*.timer >/tmp/verify 2>&1 && ! grep quillon /tmp/verify)"));
    EXPECT_TRUE(
        does("systemd-analyze security --offline=true --threshold=25 quillon.service "
             ">/dev/null"));
    // The rule counts from the first moment.
    EXPECT_EQ(says("stat -c '%G %a' /dev/mem"), "quillon 660");
    EXPECT_TRUE(does("[ -e /usr/include/quillon/quillon/session.h ]"));
}

TEST_F(Installed, DoctorSaysWhatIsMissing) {
    const auto bare = run("quillon-doctor");
    EXPECT_EQ(bare.status, 1);
    test::expectHeld(bare.said,
                     {"/version/hardware_info: No such file", "/data/net.ini: No such file",
                      "no network interface eth0", "is not fit"});
}

// The board: files, network, and the simulated devices in place of those of /dev.
TEST_F(Installed, StartsAsUnitWithoutRoot) {
    ASSERT_TRUE(
        does(R"(mkdir -p /data /version /run/b && chgrp dialout /run/b && chmod 770 /run/b &&
        echo kEth0Ip=192.168.1.10 >/data/net.ini &&
        echo '"board": "QBRD10401m2_3000_R1"' >/version/hardware_info)"));
    // The consoles stand on a network of their own, so that the rules see eth0.
    ASSERT_TRUE(does(R"(ip netns add consoles &&
        ip link add eth0 type veth peer name wire0 netns consoles &&
        ip addr add 192.168.1.10/24 dev eth0 && ip link set eth0 up &&
        ip netns exec consoles sh -c 'ip link set lo up; ip link set wire0 up
            for n in 20 21 66; do ip addr add 192.168.1.$n/24 dev wire0; done')"));
    ASSERT_TRUE(does("systemd-run -q --unit=board quillon-board --devices /run/b --lines"));
    ASSERT_TRUE(becomes("[ -e /run/b/ttyAMA3 ]"));
    ASSERT_TRUE(does(R"(mkdir -p /etc/systemd/system/quillon.service.d &&
        cat >/etc/systemd/system/quillon.service.d/test.conf <<'EOF' && systemctl daemon-reload
[Service]
BindPaths=/run/b/mem:/dev/mem
BindPaths=/run/b/ttyAMA2:/dev/ttyAMA2
DeviceAllow=char-pts rw
EOF
)"));
    // The chip is at 115200 from the factory, and the settings say so.
    ASSERT_TRUE(does(
        R"((umask 077; printf '[serial]\nbuad_rate=115200\n' >/var/lib/quillon/quillon.ini))"));
    ASSERT_TRUE(does("systemctl start quillon"));
    ASSERT_TRUE(listens()) << says("journalctl -u quillon --no-pager | tail -n 20");
    EXPECT_TRUE(types("hello"));
    // The gateway's package brings its page, its font and its libraries.
    EXPECT_TRUE(does("systemd-run -q --unit=gateway quillon-gateway --to 192.168.1.10"));
    EXPECT_TRUE(becomes("journalctl -u gateway --no-pager | grep -q 'once: http'"));
    EXPECT_TRUE(does("systemctl stop gateway"));

    const std::string status = "/proc/" + mainProcess() + "/status";
    EXPECT_EQ(capabilities(mainProcess()), kAllThree);
    EXPECT_EQ(says("grep -E '^(NoNewPrivs|Seccomp):' " + status + " | cut -f 2 | xargs"), "1 2");
    EXPECT_EQ(says("grep '^Uid' " + status + " | cut -f 2- | xargs -n 1 | sort -u"),
              says("id -u quillon"));
    EXPECT_NE(says("id -u quillon"), "0");
    EXPECT_EQ(says("grep '^Groups' " + status + " | cut -f 2 | xargs -n 1 | sort -u | xargs"),
              says(R"(for g in quillon dialout; do getent group $g; done |
                  cut -d : -f 3 | sort -u | xargs)"));
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
    EXPECT_TRUE(startsAgainAfter(before));
    ASSERT_TRUE(listens());
    EXPECT_TRUE(types("segv"));

    EXPECT_TRUE(does(R"(journalctl --rotate && journalctl --vacuum-size=1M 2>/dev/null &&
        systemctl restart systemd-journald)"));
    EXPECT_TRUE(types("rotated"));

    EXPECT_TRUE(does("systemctl stop quillon"));
    EXPECT_EQ(says("systemctl is-active quillon quillon-guard | xargs"), "inactive inactive");
    EXPECT_TRUE(does("systemctl start quillon"));
    EXPECT_TRUE(listens());
}

TEST_F(Installed, KeepsItsSettingsOnAFullDisk) {
    ASSERT_TRUE(does("echo -n per_enable=1 " + kOperators));
    ASSERT_TRUE(becomes("grep -q per_enable=1 " + kCopy));
    // To the last block, which root may use, too; and the journal's disk.
    run("cat /dev/zero >/var/lib/quillon/filler 2>/dev/null; sync");
    EXPECT_TRUE(does("fallocate -l $(($(df --output=avail -B1 / | tail -n 1) - 4096)) /filler"));
    EXPECT_TRUE(
        does("for m in rel abs rel abs; do echo -n chip=$m " + kOperators + "; sleep 0.2; done"));
    EXPECT_TRUE(does("systemctl kill -s KILL quillon"));
    EXPECT_TRUE(does("sleep 5; rm /var/lib/quillon/filler /filler"));
    ASSERT_TRUE(listens());
    EXPECT_TRUE(becomes("grep -q per_enable=1 " + kSettings)) << "permissions went";
    EXPECT_TRUE(does("echo -n per_enable=0 " + kOperators));
    EXPECT_TRUE(becomes("grep -q per_enable=0 " + kCopy));
    EXPECT_TRUE(types("room"));
}

TEST_F(Installed, HealthCheckRestartsOnlyADaemonThatHangs) {
    EXPECT_TRUE(does("systemctl start quillon-health"));
    const std::string healthy = mainProcess();
    // A stranger who fills its queue with what takes 10 s each does not get it restarted.
    ASSERT_TRUE(
        does("echo -n per_enable=1 " + kOperators +
             "; sleep 0.5; echo -n 'connect|192.168.1.20-ann|192.168.1.20|9' " + kOperators +
             "; sleep 0.5; for i in {1..400}; do echo -n 'apply|192.168.1.66-eve|192.168.1.66|1' " +
             kOperators + "; done"));
    EXPECT_TRUE(does("quillon-health"));
    EXPECT_EQ(mainProcess(), healthy);
    EXPECT_TRUE(does("systemctl restart quillon"));
    ASSERT_TRUE(listens());

    const std::string hung = mainProcess();
    EXPECT_TRUE(does("kill -STOP " + hung));
    const auto check = run("quillon-health --patience 3");
    EXPECT_EQ(check.status, 10) << check.said;
    // A check that fails in another way restarts nothing.
    EXPECT_TRUE(does(R"(cd /run/systemd/system &&
        sed 's/quillon-health$/quillon-health --wrong/' /lib/systemd/system/quillon-health.service \
            >broken.service && systemctl start broken && sleep 2)"));
    EXPECT_EQ(mainProcess(), hung);
    // The timer, only sooner.
    EXPECT_TRUE(does(R"(cd /run/systemd/system && mkdir -p quillon-health.timer.d &&
        printf '[Timer]\nOnActiveSec=\nOnActiveSec=1\n' >quillon-health.timer.d/soon.conf &&
        systemctl daemon-reload && systemctl restart quillon-health.timer)"));
    EXPECT_TRUE(startsAgainAfter(hung));
    ASSERT_TRUE(listens());
    EXPECT_TRUE(does("systemctl stop quillon && quillon-health | grep 'No program has UDP port'"));
    EXPECT_TRUE(does("systemctl start quillon"));
    ASSERT_TRUE(listens());
    EXPECT_TRUE(does("echo -n per_enable=0 " + kOperators));
}

TEST_F(Installed, DoctorFindsABoardFit) {
    // In the mounts of the unit, where the simulated devices are in /dev; as the unit's user.
    const auto running = run("nsenter -t " + mainProcess() + " -m quillon-doctor");
    EXPECT_EQ(running.status, 0) << running.said;
    test::expectHeld(running.said, {"in use, as it should be"});
    // A process that keeps the mounts while the daemon is stopped.
    ASSERT_TRUE(does("systemd-run -q --unit=mounts nsenter -t " + mainProcess() + " -m sleep 600"));
    ASSERT_TRUE(does("systemctl stop quillon"));
    const auto stopped = run("nsenter -t $(systemctl show -P MainPID mounts) -m quillon-doctor");
    EXPECT_EQ(stopped.status, 0) << stopped.said;
    test::expectHeld(stopped.said, {"looking as the user quillon", "/dev/ttyAMA2 can be opened",
                                    "answers at 115200 bits per second", "is fit"});
    EXPECT_TRUE(does("systemctl stop mounts; systemctl start quillon"));
    ASSERT_TRUE(listens());
}

TEST_F(Installed, FenceLetsInWhoIsInItsList) {
    const std::string ask =
        "ip netns exec consoles quillon-console --timeout 500 --to 192.168.1.10 "
        "query --from 192.168.1.";
    EXPECT_TRUE(does(ask + "66"));
    ASSERT_TRUE(does(R"(cat >/etc/quillon/fence.toml <<'EOF' && quillon-fence check
interface = "eth0"
consoles = ["192.168.1.20"]
operators = ["192.168.1.20"]
EOF
)"));
    ASSERT_TRUE(does("quillon-fence apply"));
    EXPECT_TRUE(does(ask + "20"));
    EXPECT_FALSE(does(ask + "66"));
    EXPECT_FALSE(does("quillon-fence apply")) << "two of them wait for a confirmation";
    EXPECT_TRUE(does(R"(quillon-fence confirm && sleep 1 &&
        quillon-fence status | grep '[1-9][0-9]*  turned away: the sender is not in the list')"));
    // Nobody confirms: the former rules come back, and not none.
    ASSERT_TRUE(
        does("sed s/192.168.1.20/192.168.1.66/ /etc/quillon/fence.toml >/tmp/other.toml && "
             "quillon-fence apply --file /tmp/other.toml"));
    EXPECT_FALSE(does(ask + "20"));
    EXPECT_TRUE(does(ask + "66"));
    EXPECT_TRUE(becomes(ask + "20", 90));
    EXPECT_FALSE(does(ask + "66"));
    EXPECT_TRUE(does("quillon-fence status | grep -qx 'The fence stands.'"));
    EXPECT_TRUE(does("quillon-fence off && " + ask + "66"));

    EXPECT_TRUE(does("systemctl enable --now quillon-fence && quillon-fence status"));
    EXPECT_TRUE(
        does("ip netns exec consoles quillon-console --to 192.168.1.10 --from 192.168.1.20 "
             "type fenced"));
    EXPECT_TRUE(becomes("journalctl -u board --no-pager | grep -q fenced"));
    // Debian's own rules begin with a flush.
    EXPECT_TRUE(does("systemctl restart nftables"));
    EXPECT_TRUE(becomes("quillon-fence status"));
    EXPECT_TRUE(does("systemctl disable --now quillon-fence && ! quillon-fence status"));
}

// The commands of docs/security.md, as they stand there.
TEST_F(Installed, WireGuardAsTheDocumentsSay) {
    ASSERT_TRUE(does(R"(cd /tmp && [ -e /packages/security.md ] && sed -n \
        '/^<!-- wireguard begin -->/,/^<!-- wireguard end -->/s/^    //p' /packages/security.md >wg.sh)"));
    ASSERT_TRUE(does("[ -s wg.sh ] && bash -e wg.sh </dev/null"));
    const std::string ask = "ip netns exec consoles quillon-console --timeout 1000 query ";
    EXPECT_TRUE(does(ask + "--to 10.8.0.1 --from 10.8.0.2"));
    EXPECT_FALSE(does(ask + "--to 192.168.1.10 --from 192.168.1.20"))
        << "the fence lets in what did not come through the tunnel";
    // The tunnel's address, forged on the way that needs no key.
    EXPECT_FALSE(does(ask + "--to 192.168.1.10 --from 10.8.0.2"));
    EXPECT_TRUE(does("quillon-fence status | grep ' [2-9]  turned away: not on the interface'"));
    EXPECT_TRUE(does("cd; quillon-fence off; ip link del wg0"));
}

TEST_F(Installed, DropInTakesTheMemoryAway) {
    // The simulated memory is a file, which no rule about devices keeps away: it is left out.
    ASSERT_TRUE(does(R"(cd /etc/systemd/system/quillon.service.d && cp test.conf /tmp/ &&
        sed -i '/dev.mem/d' test.conf && cp /usr/share/quillon/without-dev-mem.conf . &&
        systemctl daemon-reload && systemctl restart quillon)"));
    ASSERT_TRUE(listens());
    EXPECT_TRUE(types("nomem"));
    EXPECT_EQ(capabilities(mainProcess()), "0000000000001400");
    EXPECT_TRUE(becomes("journalctl -u quillon --no-pager | grep -q 'open dev/mem error'"));
    EXPECT_TRUE(does(R"(rm without-dev-mem.conf && mv /tmp/test.conf . && cd &&
        systemctl daemon-reload && systemctl restart quillon)"));
    ASSERT_TRUE(listens());
}

// In mounts of its own, with the simulated devices in /dev.
TEST_F(Installed, RunsWithoutSystemd) {
    const std::string settings = "/data/quillon/quillon.ini";
    ASSERT_TRUE(does(R"(systemctl stop quillon && touch /dev/ttyAMA2 && mkdir -p /data/quillon &&
        printf '[serial]\nbuad_rate=115200\n' >/data/quillon/quillon.ini)"));
    ASSERT_TRUE(does(R"(systemd-run -q --unit=script unshare -m sh -c '
        mount --bind /run/b/mem /dev/mem && mount --bind /run/b/ttyAMA2 /dev/ttyAMA2 &&
        exec /usr/share/quillon/start-without-systemd /data/quillon')"));
    ASSERT_TRUE(listens());
    EXPECT_TRUE(types("script"));
    const std::string daemon = says("pgrep -x quillon");
    EXPECT_EQ(capabilities(daemon), kAllThree);
    EXPECT_EQ(says("stat -c %U /proc/" + daemon + " " + settings + " | xargs"), "quillon quillon");
    EXPECT_TRUE(does("echo -n per_enable=1 " + kOperators));
    EXPECT_TRUE(becomes("grep -q per_enable=1 " + settings + ".kept"));
    // As a power cut leaves it; the daemon's user must be able to read what comes back.
    EXPECT_TRUE(does(": >" + settings + "; kill -KILL " + daemon));
    EXPECT_TRUE(becomes("[ \"$(pgrep -x quillon || echo " + daemon + ")\" != " + daemon + " ]"));
    ASSERT_TRUE(listens());
    EXPECT_TRUE(does("grep -q per_enable=1 " + settings));
    EXPECT_TRUE(does(R"(cp /usr/share/quillon/logrotate.conf /etc/logrotate.d/quillon &&
        [ -s /var/log/quillon.log ] && logrotate -f /etc/logrotate.d/quillon &&
        [ -s /var/log/quillon.log.1.gz ])"));
    EXPECT_TRUE(does("echo -n per_enable=0 " + kOperators));
    EXPECT_TRUE(becomes("grep -q per_enable=0 /var/log/quillon.log"));
    EXPECT_TRUE(does("systemctl stop script && ! pgrep -x 'quillon|quillon-guard'"));
    EXPECT_TRUE(does("rm /dev/ttyAMA2 && systemctl start quillon"));
    ASSERT_TRUE(listens());
}

// Upgrade, removal, purge: as Debian's policy has them.
TEST_F(Installed, IsUpgradedRemovedAndPurged) {
    const std::string before = mainProcess();
    EXPECT_TRUE(does("echo -n chip=rel " + kOperators));
    EXPECT_TRUE(becomes("grep -q chip_model=rel " + kCopy));
    // A changed list is the person's own, and stays.
    EXPECT_TRUE(does("echo '# mine' >>/etc/quillon/fence.toml"));
    ASSERT_TRUE(does(R"(cd /tmp && dpkg-deb -R /packages/quillon_*.deb next &&
        sed -i 's/^Version: .*/Version: 99/' next/DEBIAN/control &&
        dpkg-deb -Zgzip -z1 -b next next.deb >/dev/null &&
        dpkg -i --force-depends --force-confold next.deb </dev/null >dpkg.log 2>&1 ||
        { cat dpkg.log; false; })",
                     300));
    EXPECT_TRUE(startsAgainAfter(before));
    ASSERT_TRUE(listens());
    EXPECT_TRUE(
        does("grep -q mine /etc/quillon/fence.toml && grep -q chip_model=rel " + kSettings));
    EXPECT_TRUE(does("echo -n chip=abs " + kOperators));
    EXPECT_TRUE(types("upgraded"));

    ASSERT_TRUE(does(R"(cd && apt-get remove -y -qq quillon quillon-board </dev/null \
        >/tmp/apt 2>&1 || { cat /tmp/apt; false; })",
                     300));
    EXPECT_TRUE(does("! pgrep -x 'quillon|quillon-guard'"));
    EXPECT_TRUE(does("[ -s " + kSettings + " ] && [ -e /etc/quillon/fence.toml ]"));
    // The folder is a file system of its own, which a purge empties and cannot remove.
    ASSERT_TRUE(does(R"(apt-get purge -y -qq quillon </dev/null >/tmp/apt 2>&1 ||
        { cat /tmp/apt; false; })",
                     300));
    EXPECT_TRUE(does("[ ! -e " + kSettings + " ] && [ ! -e /etc/quillon/fence.toml ]"));
    ASSERT_TRUE(does(R"(apt-get install -y -qq --no-install-recommends /packages/quillon_*.deb \
        /packages/quillon-board_*.deb </dev/null >/tmp/apt 2>&1 || { cat /tmp/apt; false; })",
                     400));
    ASSERT_TRUE(listens());
}

// Settings over power cuts: what is on the disk at a moment of a machine that goes on.
class PowerCuts : public Installed {
  protected:
    /// Changes mode and holder by turns; the guest tells each change that has got into a file.
    static void startChanging(const std::string &file) {
        ASSERT_TRUE(does("systemctl restart quillon"));
        ASSERT_TRUE(listens());
        // Levels begin at 1, so nobody stronger may hold control.
        ASSERT_TRUE(does("echo -n per_enable=1 " + kOperators +
                         "; sleep 1; echo -n 'disconnect|192.168.1.20-u|1' " + kOperators +
                         "; sleep 1"));
        ++run_;
        ASSERT_TRUE(does(R"(cat >/tmp/changes <<'EOF'
n=0
while true; do
    n=$((n + 1))
    case $((n % 4)) in
    0) word=chip=rel line=chip_model=rel ;;
    2) word=chip=abs line=chip_model=abs ;;
    *)
        word="connect|192.168.1.20-u$n|192.168.1.$((20 + n / 2 % 2))|$n"
        line=connect_name=192.168.1.20-u$n
        ;;
    esac
    echo -n "$word" >/dev/udp/127.0.0.1/41302
    until grep -qsx "$line" "$1"; do sleep 0.05; done
    echo "run $2 kept $n" >/dev/ttyS0
    sleep 0.$((RANDOM % 5))5
done
EOF
systemd-run -q --unit=changes bash /tmp/changes )" +
                         file + " " + std::to_string(run_)));
    }

    static int changes() {
        const std::string log = test::readFile(folder + "/console.log");
        const std::string words = "run " + std::to_string(run_) + " kept ";
        const std::size_t at = log.rfind(words);
        return at == std::string::npos ? 0 : atoi(log.c_str() + at + words.size());
    }

    /// The settings after a cut now, and a start of the guard as before the daemon's.
    static quillon::Settings afterACut(bool guarded, int &change) {
        const std::string disk = folder + "/cut.img", place = folder + "/cut";
        guest->copySettingsDisk(disk);
        change = changes();
        const auto take = [&](const std::string &name) {
            return "debugfs -R 'dump -p /" + name + " " + place + "/" + name + "' " + disk +
                   " >/dev/null 2>&1; ";
        };
        const std::string recover = "rm -rf " + place + " && mkdir " + place + " && e2fsck -fy " +
                                    disk + " >/dev/null 2>&1; " + take("quillon.ini") +
                                    take("quillon.ini.kept") + "true";
        EXPECT_EQ(test::run(recover).status, 0);
        if (guarded) {
            const auto restored = test::run(PROGRAM_DIR "/quillon-guard restore --folder " + place);
            EXPECT_EQ(restored.status, 0) << restored.said;
        }
        return quillon::parseSettings(test::readFile(place + "/quillon.ini"));
    }

    /// Whether it is what was last complete, or one change later, which may just have got there.
    static bool isFrom(const quillon::Settings &found, int change) {
        const auto after = [](int n) {
            const int link = n % 2 == 0 ? n - 1 : n;  // the last change of the holder
            return quillon::Settings{
                {"per_enable", "1"},
                {"chip_model", n / 2 % 2 == 0 ? "rel" : "abs"},
                {"connect_name", "192.168.1.20-u" + std::to_string(link)},
                {"connect_ip0", "192.168.1." + std::to_string(20 + link / 2 % 2)},
                {"connect_per", std::to_string(link)}};
        };
        const auto last = after(change), next = after(change + 1);
        return std::all_of(last.begin(), last.end(), [&](const auto &item) {
            const auto at = found.find(item.first);
            return at != found.end() &&
                   (at->second == item.second || at->second == next.at(item.first));
        });
    }

    inline static int run_ = 0;  ///< of changes: one for each test

    /// Neighbouring cuts less than 5 s apart share a commit of the file system's journal.
    static void pauseBetweenCuts() {
        static std::mt19937 random(1);
        std::this_thread::sleep_for(
            std::chrono::milliseconds(5000 + std::uniform_int_distribution(0, 1500)(random)));
    }
};

TEST_F(PowerCuts, LeaveTheLastCompleteSettings) {
    startChanging(kCopy);
    constexpr int kCuts = 20;
    int good = 0, last = 0;
    for (int cut = 0; cut < kCuts; ++cut) {
        pauseBetweenCuts();
        int change = 0;
        const auto found = afterACut(true, change);
        EXPECT_GT(change, last) << "nothing was changed between two cuts";
        last = change;
        EXPECT_TRUE(isFrom(found, change)) << "after change " << change << "\n"
                                           << test::readFile(folder + "/cut/quillon.ini");
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
    startChanging(kSettings);
    bool lost = false;
    int cuts = 0, last = 0;
    for (; cuts < 20 && !lost; ++cuts) {
        pauseBetweenCuts();
        int change = 0;
        const auto found = afterACut(false, change);
        ASSERT_GT(change, last) << "nothing was changed between two cuts";
        last = change;
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
