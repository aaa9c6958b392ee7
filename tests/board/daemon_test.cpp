// The daemon that ships, on the simulated board.

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <random>
#include <sstream>

#include "protocol/input.h"
#include "tests/support/on_board.h"

namespace {

using namespace std::chrono_literals;
using test::OnBoard, test::kBoard, test::kConsole, test::kFast, test::kOther, test::kThird;

TEST_F(OnBoard, KeyFromAConsoleReachesTheComputer) {
    startListening("buad_rate=9600\n");
    EXPECT_TRUE(logs("---9600 ch9329 not echo---"));
    EXPECT_TRUE(logs("---ch9329 ini ok---"));
    type(kConsole, 'Q');
    EXPECT_TRUE(arrives("Q"));
    EXPECT_EQ(ask("query", 41302), "query|192.168.1.10|0||0");
    EXPECT_EQ(ask("link"), "vi_w=1920&vi_h=1080&kvm=abs");
    quillon::Endpoint(kBoard, 80, kConsole).send("a text that is longer than the next", 35);
    EXPECT_EQ(ask("numlock"), "off");
    EXPECT_EQ(board_->registers().get(0x120F0100), 1U);
    test::expectHeld(settings(),
                     {"[serial]\ncom_port=COM2\nbuad_rate=115200\n", "chip_vision=CH9329\n"});
    EXPECT_TRUE(logs("add mut:224.168.1.1"));
    const auto log = board_->daemon()->log();
    EXPECT_EQ(std::count(log.begin(), log.end(), "set timeout -->10s,0us"), 1)
        << "of consent alone";
    EXPECT_EQ(std::count(log.begin(), log.end(), "connect_ip7="), 1) << "settings are printed";
    std::istringstream stat(
        test::readFile("/proc/" + std::to_string(board_->daemon()->pid()) + "/stat"));
    std::vector<std::string> fields(std::istream_iterator<std::string>(stat), {});
    EXPECT_EQ(fields.at(6), "0") << "the serial port is no controlling terminal";
    EXPECT_TRUE(logs("standard input is not a terminal device")) << "it is /dev/null here";
}

TEST_F(OnBoard, RewritesAChipThatStores9600AndHasItsPortClosedUntilAPowerCut) {
    options_.chipBaud = options_.storedBaud = 9600;
    options_.powerCycle = false;
    const auto key = quillon::keyboardRecord({0, 0x04});
    for (const std::string &text : {std::string("capslock"), std::string(key.begin(), key.end())}) {
        startListening("buad_rate=9600\n");
        EXPECT_EQ(board_->chip().storedBaud(), 115200);
        EXPECT_EQ(board_->chip().baud(), 9600);
        EXPECT_TRUE(test::holds(settings(), "buad_rate=115200\n"));
        // A socket now has the port's descriptor number, and must not be written to.
        quillon::Endpoint(kBoard, 80, kConsole).send(text.data(), text.size());
        EXPECT_TRUE(logs(text == "capslock" ? "select error" : "version 1, rel_enable 0"));
        EXPECT_EQ(ask("query", 41302).substr(0, 6), "query|");
        std::this_thread::sleep_for(300ms);
        EXPECT_EQ(board_->daemon()->stop(SIGTERM, 15s), 255);
        const auto log = board_->daemon()->log();
        EXPECT_LT(std::count(log.begin(), log.end(), "select error"), 100);
        std::string steps;
        for (const std::string &line : log)
            if (line.rfind("---", 0) == 0 || line == "reboot" || line.rfind("thi is", 0) == 0)
                steps += line + "\n";
        EXPECT_EQ(steps,
                  "---9600 ch9329 echo 9600 baudrate---\n---115200 ch9329 not echo---\n"
                  "---9600 ch9329 echo 115200 baudrate---\nreboot\nthi is  ch9329 chip\n");
        board_.reset();
    }
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
    EXPECT_TRUE(
        board_->daemon()
            ->waitForLine("error data", 10s, *board_->daemon()->waitForLine("error data", 0s) + 1)
            .has_value());
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
    test::expectHeld(settings(), {"com_port=COM3\nbuad_rate=115200\n", "chip_vision=CH9350\n"});
    EXPECT_TRUE(logs("this is ch9350 chip"));
    quillon::Session session(kBoard, 80, kConsole, 3s);
    session.setMouseMode(true);
    const auto by = quillon::relativeRecord(-8, 3, quillon::kLeft, 0);
    session.data().send(by.data(), by.size());
    EXPECT_TRUE(becomes([](const auto &s) { return s.buttons == 1; }));
    session.setLockKeys({false, true});
    EXPECT_TRUE(becomes([](const auto &s) { return s.keys[0] == 0; }));
    board_->powerCycle();
    ASSERT_TRUE(board_->waitUntilListening(20s));
    const int x = board_->computer().state().x;
    const auto right = quillon::relativeRecord(8, 0, quillon::kNoButton, 0);
    session.data().send(right.data(), right.size());
    EXPECT_TRUE(becomes([&](const auto &s) { return s.x == x + 8; }))
        << "the mode is set again at a start";
}

TEST_F(OnBoard, RecordsDuringALinkTestAreNotSent) {
    options_.identifier = "QBRE10402n_100_R1";
    startListening(kFast);
    const std::string tasks = "/proc/" + std::to_string(board_->daemon()->pid()) + "/task";
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(tasks), {}), 2)
        << "main and data server: it has no video input";
    quillon::Endpoint operators(kBoard, 41302, kConsole);
    operators.send("[seq]\n\n\nusb_is_link_pc", 23);
    // The link test strokes Num Lock: from then on it certainly runs.
    ASSERT_TRUE(becomes([](const auto &s) { return s.reports > 0; }));
    type(kOther, 'x');
    EXPECT_TRUE(logs("192.168.1.21 data error: "));
    EXPECT_EQ(board_->computer().state().text, "");
}

TEST_F(OnBoard, LostOutputTakesTheLevelUntilItAnswers) {
    make(std::string(kFast) +
         "per_enable=1\nconnect_name=192.168.1.20-ann\nconnect_per=5\nconnect_ip0=192.168.1.20\n");
    board_->consoles().setAnswering(kConsole, false);
    board_->start();
    ASSERT_TRUE(logs("not get out 192.168.1.20 heartbeat"));
    const auto lost = sim::Clock::now();
    EXPECT_TRUE(logs("set timeout -->3s,0us"));
    EXPECT_EQ(ask("query", 41302), "query|192.168.1.10|1|192.168.1.20-ann|0");
    board_->consoles().setAnswering(kConsole, true);
    EXPECT_TRUE(board_->daemon()->waitForLine("heartBeat rcv ackheart", 40s).has_value());
    EXPECT_GT(sim::Clock::now() - lost, 25s);
    EXPECT_EQ(ask("query", 41302), "query|192.168.1.10|1|192.168.1.20-ann|5");
}

TEST_F(OnBoard, PictureIsFollowed) {
    startListening(kFast);
    const auto pictureIs = [&](const std::string &size) {
        return test::comesTrue([&] { return ask("link").rfind(size, 0) == 0; }, 15s);
    };
    board_->video().setSize(1280, 720);
    EXPECT_TRUE(pictureIs("vi_w=1280&vi_h=720&"));
    board_->video().setSize(0, 0);
    EXPECT_TRUE(logs("---vi no signal---"));
    EXPECT_TRUE(pictureIs("vi_w=480&vi_h=270&"));
}

TEST_F(OnBoard, DatagramsOfAnySizeAndKindLeaveItAlive) {
    options_.identifier = "QBRF1040pm_300_R1";
    startListening(std::string(kFast) + "com_port=COM0\n");
    std::mt19937 random(1);
    for (const unsigned port : {80U, 41302U, 41303U, 41304U}) {
        quillon::Endpoint endpoint(kBoard, static_cast<std::uint16_t>(port), kConsole);
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
    // A setting that one of these switched on must not hide the rest.
    ASSERT_EQ(ask("query", 41302).substr(0, 6), "query|");
    quillon::Session(kBoard, 80, kConsole, 3s).setPermissions(false);
    EXPECT_EQ(ask("link").substr(0, 5), "vi_w=");
    type(kConsole, 'k');
    EXPECT_TRUE(arrives("k"));
    EXPECT_FALSE(board_->daemonStatus());
}

}  // namespace
