// The daemon that ships, on the simulated board.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>

#include "commands.h"
#include "discovery.h"
#include "input.h"
#include "on_board.h"

namespace {

using namespace std::chrono_literals;
using test::OnBoard, test::kBoard, test::kConsole, test::kFast, test::kOther, test::kThird;

TEST_F(OnBoard, KeyFromAConsoleReachesTheComputer) {
    startListening(kFast);
    type(kConsole, 'Q');
    EXPECT_TRUE(arrives("Q"));
    EXPECT_EQ(ask("query", 41302), "query|192.168.1.10|0||0");
    EXPECT_EQ(ask("link"), "vi_w=1920&vi_h=1080&kvm=abs");
    EXPECT_EQ(board_->registers().get(0x120F0100), 1U);
    EXPECT_NE(settings().find("[serial]\ncom_port=COM2\nbuad_rate=115200\n"), std::string::npos);
    EXPECT_NE(settings().find("chip_vision=CH9329\n"), std::string::npos);
    EXPECT_TRUE(logs("add mut:224.168.1.1"));
    const auto log = board_->daemon()->log();
    EXPECT_EQ(std::count(log.begin(), log.end(), "set timeout -->10s,0us"), 1) << "of consent alone";
    EXPECT_EQ(std::count(log.begin(), log.end(), "connect_ip7="), 1) << "settings are printed";
    std::istringstream stat(test::readFile("/proc/" + std::to_string(board_->daemon()->pid()) + "/stat"));
    std::vector<std::string> fields(std::istream_iterator<std::string>(stat), {});
    EXPECT_EQ(fields.at(6), "0") << "the serial port is no controlling terminal";
    EXPECT_TRUE(logs("standard input is not a terminal device")) << "it is /dev/null here";
}

TEST_F(OnBoard, OperatorsAreHeardOnTheirGroup) {
    startListening(kFast);
    ASSERT_TRUE(logs("add mut:224.168.1.1"));
    console::Endpoint("224.168.1.1", 41302, kConsole).send("query to all", 12);
    EXPECT_TRUE(logs("osd rcv command-->query to all"));
}

TEST_F(OnBoard, RestoredLinkDecidesWhoMaySend) {
    startListening(std::string(kFast) +
                   "per_enable=1\nconnect_name=192.168.1.20-ann\nconnect_per=5\n"
                   "connect_ip0=192.168.1.20\nconnect_ip1=192.168.1.21\n");
    EXPECT_EQ(ask("query", 41302), "query|192.168.1.10|1|192.168.1.20-ann|5");
    type(kThird, 'x');
    type(kConsole, 'a');
    type(kOther, 'b');
    type(kThird, 'c', "software=");
    EXPECT_TRUE(arrives("abc"));
}

TEST_F(OnBoard, LockKeysGoBothWays) {
    startListening(kFast);
    board_->computer().setLeds(sim::kNumLed);
    EXPECT_EQ(ask("a text that is longer than the next one"), "no answer");
    EXPECT_EQ(ask("numlock"), "on");
    EXPECT_EQ(ask("syncled"), "capslock=off&numlock=on");
    console::Endpoint(kBoard, 80, kConsole).send("out=on&num=off", 14);
    EXPECT_EQ(ask("syncled"), "capslock=on&numlock=off");
    EXPECT_EQ(board_->computer().state().leds, sim::kCapsLed);
}

TEST_F(OnBoard, NegotiatesFromTheConfiguredSpeed) {
    startListening("buad_rate=9600\n");
    EXPECT_TRUE(logs("---9600 ch9329 not echo---"));
    EXPECT_TRUE(logs("---ch9329 ini ok---"));
    EXPECT_NE(settings().find("buad_rate=115200\n"), std::string::npos);
    type(kConsole, 'k');
    EXPECT_TRUE(arrives("k"));
}

TEST_F(OnBoard, RewritesAChipThatStores9600AndAsksForAReboot) {
    options_.chipBaud = options_.storedBaud = 9600;
    options_.powerCycle = false;
    startListening("buad_rate=9600\n");
    const auto log = board_->daemon()->log();
    std::vector<std::string> steps;
    for (const std::string &line : log)
        if (line.rfind("---", 0) == 0 || line == "reboot" || line.rfind("thi is", 0) == 0)
            steps.push_back(line);
    EXPECT_EQ(steps,
              (std::vector<std::string>{
                  "---9600 ch9329 echo 9600 baudrate---", "---115200 ch9329 not echo---",
                  "---9600 ch9329 echo 115200 baudrate---", "reboot", "thi is  ch9329 chip"}));
    EXPECT_EQ(board_->chip().storedBaud(), 115200);
    EXPECT_EQ(board_->chip().baud(), 9600);
    EXPECT_NE(settings().find("buad_rate=115200\n"), std::string::npos);
    // The port is closed; its number went to a socket, which must not be written to.
    EXPECT_EQ(ask("query", 41302).substr(0, 6), "query|");
    type(kConsole, 'x');
    EXPECT_EQ(ask("query", 41302).substr(0, 6), "query|");

    board_->powerCycle();
    ASSERT_TRUE(board_->waitUntilListening(20s));
    EXPECT_TRUE(logs("---ch9329 ini ok---"));
    type(kConsole, 'k');
    EXPECT_TRUE(arrives("k"));
}

TEST_F(OnBoard, BoardPowerCyclesItselfAfterReboot) {
    options_.chipBaud = 9600;  // and stores 115200
    startListening("buad_rate=9600\n");
    EXPECT_EQ(board_->chip().baud(), 115200);
    type(kConsole, 'k');
    EXPECT_TRUE(arrives("k"));
}

TEST_F(OnBoard, SilentChipIsAskedForEver) {
    options_.chip = sim::BoardOptions::kNone;
    start(kFast);
    EXPECT_TRUE(logs("---115200 ch9329 not echo---"));
    EXPECT_TRUE(logs("---9600 ch9329 not echo---"));
    EXPECT_FALSE(board_->listening());
    EXPECT_THROW(ask("query", 41302), std::runtime_error);
}

TEST_F(OnBoard, ChipThatStoresAnotherSpeedIsAskedForEver) {
    options_.storedBaud = 57600;
    start(kFast);
    ASSERT_TRUE(logs("error data"));
    EXPECT_TRUE(board_->daemon()
                    ->waitForLine("error data", 10s,
                                  *board_->daemon()->waitForLine("error data", 0s) + 1)
                    .has_value());
}

TEST_F(OnBoard, LateAndSplitAnswersDoNotStopTheKeys) {
    startListening(kFast);
    board_->chip().splitAnswers(3, 10ms);
    board_->chip().answerLate(5ms);
    for (const char c : {'a', 'b', 'c'}) type(kConsole, c);
    EXPECT_TRUE(arrives("abc"));
    board_->chip().silence(true);
    type(kConsole, 'd');
    EXPECT_TRUE(arrives("abcd"));
    EXPECT_EQ(ask("capslock"), "off");
    EXPECT_TRUE(logs("read error"));
}

TEST_F(OnBoard, SignalsEndItWithItsStatusAlsoSeveralAtOnce) {
    startListening(kFast);
    for (int i = 0; i < 3; ++i)
        for (const int sig : {SIGHUP, SIGINT, SIGTERM}) kill(board_->daemon()->pid(), sig);
    const auto begin = sim::Clock::now();
    EXPECT_EQ(board_->daemon()->stop(SIGTERM, 15s), 255);
    EXPECT_GE(sim::Clock::now() - begin, 1900ms) << "the video watch has 2 s to end";
    EXPECT_TRUE(logs("program exit--->0xf"));
    startListening(kFast);
    EXPECT_EQ(board_->daemon()->stop(SIGSEGV, 15s), 255);
    EXPECT_TRUE(logs("program exit--->0xb"));
}

TEST_F(OnBoard, TerminalOnStandardInputIsNoError) {
    const int terminal = open("/quillon-board/pts/ptmx", O_RDWR | O_CLOEXEC);
    ASSERT_GE(terminal, 0);
    options_.input = terminal;
    startListening(kFast);
    for (const std::string &line : board_->daemon()->log())
        EXPECT_EQ(line.find("not a terminal"), std::string::npos);
}

TEST_F(OnBoard, IdleBoardOpensNothing) {
    options_.identifier = "QBRD10401m2_3020_R1";
    start(kFast);
    EXPECT_TRUE(logs("get hdVersion:QBRD10401m2_3020_R1"));
    EXPECT_FALSE(board_->waitUntilListening(300ms));
    EXPECT_FALSE(board_->daemonStatus());
    EXPECT_EQ(board_->registers().get(0x120F0100), 0U);
}

TEST_F(OnBoard, RawChipWorksInBothMouseModes) {
    options_.identifier = "QBR_OTHER";
    options_.chip = sim::BoardOptions::kCh9350;
    options_.chatter = true;
    startListening("buad_rate=9600\ncom_port=COM0\n");
    EXPECT_NE(settings().find("com_port=COM3\nbuad_rate=115200\n"), std::string::npos);
    EXPECT_NE(settings().find("chip_vision=CH9350\n"), std::string::npos);
    EXPECT_TRUE(logs("this is ch9350 chip"));
    console::Session session(kBoard, 80, kConsole, 3s);
    type(kConsole, 'R');
    EXPECT_TRUE(arrives("R"));
    const auto to = console::absoluteRecord(960, 540, console::kNoButton, 0);
    session.data().send(to.data(), to.size());
    EXPECT_TRUE(board_->computer().waitFor([](const auto &s) { return s.absoluteX == 2044; }, 3s));
    session.setMouseMode(true);
    const auto by = console::relativeRecord(-8, 3, console::kLeft, 0);
    session.data().send(by.data(), by.size());
    EXPECT_TRUE(board_->computer().waitFor([](const auto &s) { return s.buttons == 1; }, 3s));
    EXPECT_NE(settings().find("chip_model=rel\n"), std::string::npos);
    session.setLockKeys({false, true});
    EXPECT_TRUE(board_->computer().waitFor([](const auto &s) { return s.keys[0] == 0; }, 5s));
    board_->powerCycle();
    ASSERT_TRUE(board_->waitUntilListening(20s));
    const int x = board_->computer().state().x;
    const auto right = console::relativeRecord(8, 0, console::kNoButton, 0);
    session.data().send(right.data(), right.size());
    EXPECT_TRUE(board_->computer().waitFor([&](const auto &s) { return s.x == x + 8; }, 5s))
        << "the mode is set again at a start";
}

struct Row {
    const char *identifier, *port, *chip;
    int threads;  ///< main, data server, and the video watch where there is one
};

// In the test's name.
void PrintTo(const Row &row, std::ostream *out) {
    *out << "board " << row.identifier;
}

class EveryBoard : public OnBoard, public testing::WithParamInterface<Row> {};

TEST_P(EveryBoard, StartsItsChipOnItsPort) {
    const Row row = GetParam();
    options_.identifier = row.identifier;
    const bool raw = std::string(row.chip) == "CH9350";
    if (raw) options_.chip = sim::BoardOptions::kCh9350;
    startListening(std::string(kFast) + "com_port=COM0\n");
    EXPECT_NE(settings().find(std::string("com_port=") + row.port), std::string::npos);
    EXPECT_NE(settings().find(std::string("chip_vision=") + row.chip), std::string::npos);
    const std::string tasks = "/proc/" + std::to_string(board_->daemon()->pid()) + "/task";
    const auto threads = std::distance(std::filesystem::directory_iterator(tasks), {});
    EXPECT_EQ(threads, row.threads);
    type(kConsole, 'k');
    EXPECT_TRUE(arrives("k"));
}

INSTANTIATE_TEST_SUITE_P(All, EveryBoard,
                         testing::Values(Row{"QBRD10401m2_3000_R1", "COM2", "CH9329", 3},
                                         Row{"QBRE10401m2_3000_R1", "COM2", "CH9329", 3},
                                         Row{"QBRD10401m2_3010_R1", "COM2", "CH9329", 3},
                                         Row{"QBRD10402m_3100_R1_more", "COM2", "CH9329", 3},
                                         Row{"QBRE10402n_100_R1", "COM1", "CH9329", 2},
                                         Row{"QBRD10402m_500_R1", "COM1", "CH9329", 3},
                                         Row{"QBRD10403n_5000_R1", "COM1", "CH9329", 3},
                                         Row{"QBRF1040pm_300_R1", "COM0", "CH9329", 3},
                                         Row{"QBRD1040pn_100_R1", "COM0", "CH9329", 3},
                                         Row{"", "COM3", "CH9350", 3}));

TEST_F(OnBoard, OperatorsAskAndSwitch) {
    startListening(kFast);
    console::Session session(kBoard, 80, kConsole, 3s), other(kBoard, 80, kOther, 3s);
    EXPECT_TRUE(session.usbLinked());
    board_->hidChip().unplug();
    EXPECT_FALSE(other.usbLinked());
    board_->hidChip().plug();
    session.setPermissions(true);
    EXPECT_EQ(other.settings()["per_enable"], "1");
    EXPECT_EQ(other.settingsViaGroup(), session.settings());
    session.setUsbPower(true);
    EXPECT_EQ(board_->registers().get(0x120F0170), 1U);
    session.setMouseMode(true);
    EXPECT_TRUE(other.link().relative);
    const auto found = console::discover(kThird, 300ms).found();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].address, kBoard);
}

TEST_F(OnBoard, RecordsDuringALinkTestAreNotSent) {
    startListening(kFast);
    console::Endpoint operators(kBoard, 41302, kConsole);
    operators.send("[seq]\n\n\nusb_is_link_pc", 23);
    // The test strokes Num Lock: only then is it sure to run.
    ASSERT_TRUE(board_->computer().waitFor([](const auto &s) { return s.reports > 0; }, 5s));
    type(kOther, 'x');
    EXPECT_TRUE(logs("192.168.1.21 data error: "));
    EXPECT_EQ(board_->computer().state().text, "");
}

TEST_F(OnBoard, LostOutputTakesTheLevelUntilItAnswers) {
    startHeldBySilentAnn();
    const auto lost = sim::Clock::now();
    EXPECT_TRUE(logs("set timeout -->3s,0us"));
    EXPECT_EQ(ask("query", 41302), "query|192.168.1.10|1|192.168.1.20-ann|0");
    board_->consoles().setAnswering(kConsole, true);
    EXPECT_TRUE(board_->daemon()->waitForLine("heartBeat rcv ackheart", 40s).has_value());
    EXPECT_GT(sim::Clock::now() - lost, 25s);
    EXPECT_EQ(ask("query", 41302), "query|192.168.1.10|1|192.168.1.20-ann|5");
}

TEST_F(OnBoard, PictureIsFollowedAfterThreeReadings) {
    options_.settings = kFast;
    board_ = std::make_unique<sim::Board>(options_);
    board_->video().setSize(1280, 720);
    board_->start();
    ASSERT_TRUE(board_->waitUntilListening(20s));
    const auto pictureIs = [&](const std::string &size) {
        for (int i = 0; i < 150; ++i) {
            if (ask("link").rfind(size, 0) == 0) return true;
            usleep(100000);
        }
        return false;
    };
    EXPECT_TRUE(pictureIs("vi_w=1280&vi_h=720&"));
    board_->video().setSize(0, 0);
    EXPECT_TRUE(logs("---vi no signal---"));
    EXPECT_TRUE(pictureIs("vi_w=480&vi_h=270&"));
    board_->video().setSize(800, 600);
    EXPECT_TRUE(pictureIs("vi_w=800&vi_h=600&"));
}

TEST_F(OnBoard, DatagramsOfAnySizeAndKindLeaveItAlive) {
    startListening(kFast);
    std::mt19937 random(1);
    for (const unsigned port : {80U, 41302U, 41303U, 41304U}) {
        console::Endpoint endpoint(kBoard, static_cast<std::uint16_t>(port), kConsole);
        for (const std::size_t size : {0U, 1U, 63U, 64U, 65U, 256U, 1400U}) {
            std::string bytes(size, 'q');
            endpoint.send(bytes.data(), size);
            for (const char *head :
                 {"", "per_enable=", "kUsbPower=", "[seq]\n", "software=", "out="}) {
                for (char &byte : bytes) byte = static_cast<char>(random());
                bytes.replace(0, std::min(size, strlen(head)), head, std::min(size, strlen(head)));
                endpoint.send(bytes.data(), size);
            }
        }
    }
    // What one of these left on must not hide the rest.
    ASSERT_EQ(ask("query", 41302).substr(0, 6), "query|");
    console::Session(kBoard, 80, kConsole, 3s).setPermissions(false);
    EXPECT_EQ(ask("link").substr(0, 5), "vi_w=");
    type(kConsole, 'k');
    EXPECT_TRUE(arrives("k"));
    EXPECT_FALSE(board_->daemonStatus());
}

}  // namespace
