// The fence on the simulated board, whose consoles stand on a network of their own: what they send
// passes eth0.

#include <sys/mount.h>

#include <thread>

#include "protocol/ports.h"
#include "sim/host/network.h"
#include "tests/support/on_board.h"
#include <quillon/datagram_socket.h>

namespace {

using namespace std::string_literals;
using test::kBoard, test::kConsole, test::kOther, test::kThird, test::run;

constexpr std::uint16_t kRecords = 80;
const std::string kKeyA = "\x57\xAB\x01\0\0\x04\0\0\0\0\0"s,
                  kKeyUp = "\x57\xAB\x01\0\0\0\0\0\0\0\0"s,
                  kAbs = "\x57\xAB\x04\x01\0\x20\0\x20\0\0"s, kRel = "\x57\xAB\x02\0\x05\x05\0"s;

class Fence : public test::OnBoard {
  protected:
    Fence() {
        options_.consolesApart = true;
        // Tests run at the same time, and the PC has a /run for all of them.
        EXPECT_EQ(mount("tmpfs", "/run", "tmpfs", 0, nullptr), 0);
    }

    void raise(const std::string &list) {
        startListening(test::kFast);
        test::writeFile("/data/fence.toml", "interface = \"eth0\"\n" + list);
        const test::Outcome applied = run("quillon-fence apply --keep --file /data/fence.toml");
        ASSERT_EQ(applied.status, 0) << applied.said;
    }

    void send(const std::string &from, std::uint16_t port, const std::string &bytes) {
        board_->consoleNetwork()->run(
            [&] { quillon::Endpoint(kBoard, port, from).send(bytes.data(), bytes.size()); });
    }

    std::string askFrom(const std::string &from, std::uint16_t port, const std::string &request) {
        std::string answer;
        board_->consoleNetwork()->run([&] {
            answer = quillon::Endpoint(kBoard, port, from)
                         .ask(request, std::chrono::milliseconds(500))
                         .value_or("no answer");
        });
        return answer;
    }

    /// How many datagrams the fence has counted for a reason; waits 5 s for as many as wanted.
    static unsigned long counted(const std::string &reason, unsigned long wanted = 0) {
        unsigned long count = 0;
        test::comesTrue(
            [&] {
                const std::string all = run("nft list counter ip quillon_fence " + reason).said;
                const std::size_t at = all.find("packets ");
                count = at == std::string::npos ? 9999 : strtoul(all.c_str() + at + 8, nullptr, 10);
                return count >= wanted;
            },
            std::chrono::seconds(5));
        return count;
    }

    static constexpr char kList[] =
        "consoles = [\"192.168.1.20\", \"192.168.1.21\"]\noperators = [\"192.168.1.20\"]\n"
        "software = [\"192.168.1.21\"]\n";
};

TEST_F(Fence, StrangersReachNothing) {
    startListening(test::kFast);
    EXPECT_NE(askFrom(kThird, kRecords, "link"), "no answer") << "the consoles' network is cut off";
    raise(kList);
    const std::pair<std::uint16_t, std::string> sent[] = {
        {kRecords, kKeyA},
        {kRecords, "software=" + kKeyA},
        {kRecords, "link"},
        {quillon::kOperatorPort, "query"},
        {quillon::kOperatorPort, "per_enable=1"},
        {quillon::kConsentPort, "reply|192.168.1.30|eve|1"},
        {quillon::kHeartbeatPort, "ackheart"}};
    for (const auto &[port, bytes] : sent) send(kThird, port, bytes);
    send(kThird, quillon::kAnnouncePort, "query");
    // Another console may type and not command.
    send(kOther, quillon::kOperatorPort, "per_enable=1");
    EXPECT_EQ(askFrom(kConsole, quillon::kOperatorPort, "query"), "query|192.168.1.10|0||0");
    EXPECT_EQ(counted("stranger", std::size(sent) + 1), std::size(sent) + 1);
    EXPECT_EQ(counted("closed_port", 1U), 1U);
    EXPECT_TRUE(test::holds(settings(), "per_enable=0"));
    for (const std::string &line : board_->daemon()->log())
        EXPECT_EQ(line.find("0x57 0xab 0x1 0x0 0x0 0x4"), std::string::npos);

    EXPECT_EQ(run("quillon-fence off").status, 0);
    EXPECT_NE(askFrom(kThird, kRecords, "link"), "no answer");
}

TEST_F(Fence, LetsInWhatTheProtocolHas) {
    raise(kList);
    const auto count = [&](const char *reason, const std::string &from, std::uint16_t port,
                           const std::vector<std::string> &all) {
        const unsigned long wanted = counted(reason) + all.size();
        for (const std::string &bytes : all) send(from, port, bytes);
        EXPECT_EQ(counted(reason, wanted), wanted) << reason;
    };
    count("records", kConsole, kRecords, {kKeyA, kKeyUp, kAbs, kRel});
    EXPECT_TRUE(arrives("a"));
    count("questions", kConsole, kRecords,
          {"link", "syncled", "capslock", "numlock", "out=on&num=off", "out=off&num=off"});
    count("software_records", kOther, kRecords, {"software=" + kKeyA, "software=" + kAbs});
    count("commands", kConsole, quillon::kOperatorPort,
          {"query", "getKvmInfo", "getKvmInfo:192.168.1.10", "chip=rel", "chip=abs", "per_enable=1",
           "connect|192.168.1.20-ann|192.168.1.20|3", "apply|192.168.1.20-ann|192.168.1.20|3",
           "disconnect|192.168.1.20-ann|3",
           "[seq]\n[controlled]=192.168.1.10\n[answer]=0.0.0.0000000:0\nusb_is_link_pc"});
    count("answers", kConsole, quillon::kConsentPort, {"reply|192.168.1.20|192.168.1.20-eve|0"});
    count("answers", kConsole, quillon::kHeartbeatPort, {"ackheart"});
    EXPECT_EQ(counted("closed_port"), 0U);

    // A console that is not in software, with the word at every place where a record has room;
    // commands of the CH9350; and what comes in fragments.
    count("odd_record", kConsole, kRecords,
          {"software=" + kKeyA, "xxx software=" + kKeyA.substr(0, 7),
           "\x57\xAB"
           "software="s,
           "link software=" + kKeyA, kKeyA + "\0"s, kKeyA.substr(0, 10), "\x57\xAB\x40\x02"s,
           "\x57\xAB\x80\x40"s, "\x57\xAB\x40\x02\0\0\0"s, "linkx", "", std::string(1400, 'a'),
           std::string(9000, 'a')});
    count("odd_command", kConsole, quillon::kOperatorPort,
          {"query ", "queryx", "chip=relx", "per_enable=12", "connect", "xconnect|a|b|1",
           "connect|" + std::string(80, 'a'), ""});
    count("odd_answer", kConsole, quillon::kConsentPort, {"reply"});
    count("odd_answer", kConsole, quillon::kHeartbeatPort, {"ackheart "});
    for (const char *reason : {"closed_port", "stranger", "too_fast"})
        EXPECT_EQ(counted(reason), 0U) << reason;
    test::expectHeld(
        run("quillon-fence status").said,
        {"The fence stands.", "13  turned away: neither a record nor a known question"});
}

// The list's machines are behind one interface; the same addresses behind another are forged.
TEST_F(Fence, OtherInterfacesAreShut) {
    startListening(test::kFast);
    test::writeFile("/data/fence.toml", std::string("interface = \"wg0\"\n") + kList);
    ASSERT_EQ(run("quillon-fence apply --keep --file /data/fence.toml").status, 0);
    EXPECT_EQ(askFrom(kConsole, kRecords, "link"), "no answer");
    EXPECT_EQ(askFrom(kConsole, quillon::kOperatorPort, "query"), "no answer");
    EXPECT_GE(counted("other_interface", 2), 2U);
}

// A person far away must still be able to log in, and other services to work.
TEST_F(Fence, IsForThePortsOfTheDaemonAlone) {
    raise("");
    const test::Background ssh(
        "python3 -c 'import socket\nlistener = socket.create_server((\"192.168.1.10\", 22))\n"
        "while True: listener.accept()'");
    const quillon::DatagramSocket dns("", 53, "");
    board_->consoleNetwork()->run([] {
        const auto connects = [] {
            return run("timeout 1 bash -c '</dev/tcp/192.168.1.10/22'").status == 0;
        };
        EXPECT_TRUE(test::comesTrue(connects, std::chrono::seconds(10))) << "port 22 is shut";
    });
    EXPECT_EQ(sim::udpBytesWaiting(53), 0U);
    send(kThird, 53, "name?");
    EXPECT_TRUE(
        test::comesTrue([] { return sim::udpBytesWaiting(53) != 0; }, std::chrono::seconds(5)));
    // And the daemon still hears the machine that it runs on.
    EXPECT_EQ(quillon::Endpoint(kBoard, quillon::kOperatorPort, kBoard)
                  .ask("query", std::chrono::seconds(3)),
              "query|192.168.1.10|0||0");
}

TEST_F(Fence, SlowsDownWhoSendsTooMuchAndNobodyElse) {
    raise(kList);
    // As fast as a console sends at most, for a second; a late machine sends them closer together.
    board_->consoleNetwork()->run([&] {
        quillon::Endpoint console(kBoard, kRecords, kConsole);
        for (int i = 0; i < 125; ++i) {
            console.send(kKeyUp.data(), kKeyUp.size());
            std::this_thread::sleep_for(std::chrono::milliseconds(8));
        }
    });
    EXPECT_EQ(counted("too_fast", 0U), 0U);
    // Without a pause, a part gets through; who is not that fast is not slowed down.
    board_->consoleNetwork()->run([&] {
        quillon::Endpoint flood(kBoard, kRecords, kConsole);
        for (int i = 0; i < 2000; ++i) flood.send(kKeyUp.data(), kKeyUp.size());
    });
    const unsigned long dropped = counted("too_fast", 500);
    EXPECT_GE(dropped, 500U);
    EXPECT_GE(counted("records"), 250U);
    board_->consoleNetwork()->run([&] { type(kOther, 'b'); });
    EXPECT_TRUE(arrives("b"));
    for (int i = 0; i < 40; ++i)
        send(kConsole, quillon::kOperatorPort, "apply|192.168.1.20-ann|192.168.1.20|3");
    EXPECT_GE(counted("too_fast", dropped + 25), dropped + 25);
    EXPECT_LE(counted("commands"), 15U);
    // Another kind of datagram, and another console, are not slowed down by that.
    EXPECT_EQ(askFrom(kConsole, quillon::kOperatorPort, "query"), "query|192.168.1.10|0||0");
    EXPECT_NE(askFrom(kOther, kRecords, "link"), "no answer");
}

TEST_F(Fence, AWrongListChangesNothingAndARightOneWaitsForAConfirmation) {
    raise(kList);
    test::writeFile("/data/fence.toml", "interface = \"eth0\"\nconsoles = [\"nobody\"]\n");
    const test::Outcome wrong = run("quillon-fence apply --file /data/fence.toml");
    EXPECT_EQ(wrong.status, 1);
    EXPECT_EQ(
        wrong.said,
        "quillon-fence: /data/fence.toml, line 2: \"nobody\" is not an IPv4 address or network\n");
    EXPECT_NE(askFrom(kConsole, kRecords, "link"), "no answer");
    EXPECT_EQ(askFrom(kThird, kRecords, "link"), "no answer");
    const std::string again = "quillon-fence apply --file /data/good.toml";
    test::writeFile("/data/good.toml", "interface = \"eth0\"\n");
    EXPECT_TRUE(test::holds(run("quillon-fence confirm").said, "nothing waits for a confirmation"));
    EXPECT_EQ(run(again).status, 0);
    EXPECT_EQ(askFrom(kConsole, kRecords, "link"), "no answer");
    EXPECT_TRUE(test::holds(run(again).said, "the last apply waits for quillon-fence confirm"));
    EXPECT_TRUE(
        test::holds(run("quillon-fence status").said, "and waits for quillon-fence confirm"));
    EXPECT_EQ(run("quillon-fence confirm").status, 0);
}

}  // namespace
