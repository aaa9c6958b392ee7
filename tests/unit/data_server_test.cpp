#include "main/data_server.h"

#include <atomic>
#include <thread>

#include "main/link_table.h"
#include "protocol/records.h"
#include "protocol/us_layout.h"
#include "state.h"
#include "tests/support/on_line.h"
#include "udpsocket/udpsocket.h"

namespace {

using namespace std::chrono_literals;
using test::holds;

constexpr char kConsole[] = "192.168.1.20", kStranger[] = "192.168.1.30";

class DataServer : public test::OnLine {
  protected:
    DataServer() {
        ports_.attach(3, framed_);
        version = true;
        socket_.CreateUDPServer(5000, 0, false, true);
        console_.CreateUDPServer(5001, 1, true, true);
        console_.SendTo("127.0.0.1", 5000, "x", 1);  // the sender that answers go to
        char first[4];
        socket_.RecvFrom(first, sizeof first);
    }

    void handleQuietly(const std::string &bytes, const char *sender) {
        char buffer[kConsoleBuffer] = {};
        bytes.copy(buffer, kConsoleDatagram);
        handleConsoleDatagram(server_, socket_, sender, buffer, static_cast<int>(bytes.size()));
    }

    void handle(const std::string &bytes, const char *sender = kConsole) {
        log_ = test::printedBy([&] { handleQuietly(bytes, sender); });
    }

    std::string answerTo(const std::string &request, const char *sender = kConsole) {
        handle(request, sender);
        char reply[256];
        const int n = console_.RecvFrom(reply, sizeof reply);
        return std::string(reply, static_cast<std::size_t>(std::max(n, 0)));
    }

    template <class Record>
    static std::string bytes(const Record &record) {
        return {record.begin(), record.end()};
    }

    static std::string key(char character) {
        return bytes(quillon::keyboardRecord(*quillon::strokeOf(character)));
    }

    // True when a key from sender reaches the computer. A dropped one leaves nothing in the log.
    bool reaches(char character, const char *sender, const std::string &tag = "") {
        const std::string before = computer_.state().text;
        handle(tag + key('\n'), sender);  // another key, so that the same key can follow
        handle(tag + key(character), sender);
        return !log_.empty() &&
               becomes([&](const auto &s) { return s.text.size() == before.size() + 2; });
    }

    static void link(std::initializer_list<const char *> outputs) {
        per = true;
        curLink_num = 0;
        for (const char *output : outputs) strcpy(curtInfo.curOutIp[curLink_num++], output);
    }

    UDPSocket socket_, console_;
    ConsoleServer server_;
    std::string log_;
};

TEST_F(DataServer, RecordReachesTheComputerAndTheLog) {
    handle(key('a'));
    EXPECT_TRUE(becomes([](const auto &s) { return s.text == "a"; }));
    EXPECT_EQ(log_, "0x57 0xab 0x1 0x0 0x0 0x4 0x0 0x0 0x0 0x0 0x0 \nversion 1, rel_enable 0\n");
}

TEST_F(DataServer, WithPermissionsOnlyLinkedOutputsControl) {
    link({"192.168.1.21", kConsole});
    EXPECT_TRUE(reaches('a', kConsole));
    EXPECT_FALSE(reaches('b', kStranger));
    EXPECT_TRUE(reaches('c', "192.168.1.200")) << "an output is a prefix of its senders";
    EXPECT_TRUE(reaches('d', kStranger, "software="));
    link({kConsole, ""});
    EXPECT_TRUE(reaches('e', kStranger)) << "an empty one of all";
}

TEST_F(DataServer, EmptyTableKeepsTheLastDecision) {
    link({});
    EXPECT_FALSE(reaches('a', kConsole)) << "nobody is authorized at first";
    link({kConsole});
    EXPECT_TRUE(reaches('b', kConsole));
    link({});
    EXPECT_TRUE(reaches('c', kStranger));
}

TEST_F(DataServer, NoMomentOfAChangeAdmitsAStranger) {
    // Links no output, then one, then two, again and again; without one the last decision stays.
    per = true;
    std::atomic<bool> ending{false};
    std::thread changes([&] {
        for (unsigned i = 0; !ending; ++i) {
            for (int pause = 0; pause < 1000; ++pause) sharedLoad(per);  // lets the reader read
            TableChange change;
            change.clear();
            for (unsigned slot = 0; slot < i % 3; ++slot) change.setOutput(slot, kConsole);
            change.setCount(i % 3);
        }
    });
    for (int i = 0; i < 200000 && !server_.authorized; ++i)
        handleQuietly("\x57\xAB\x01", kStranger);
    ending = true;
    changes.join();
    EXPECT_FALSE(server_.authorized);
}

TEST_F(DataServer, SoftwareRecordsAreUnwrappedAtTwoLengthsOnly) {
    link({kConsole});
    handle("software=" + bytes(quillon::absoluteRecord(960, 540, quillon::kNoButton, 0)),
           kStranger);
    EXPECT_TRUE(becomes([](const auto &s) { return s.absoluteX == 2048; }));
    // 25 bytes keep their length, which no record has.
    handle("software=" + key('a') + "12345", kStranger);
    EXPECT_TRUE(holds(log_, "error data\n")) << log_;
    EXPECT_EQ(computer_.state().text, "");
    // The longest datagram loses its tag and nothing else.
    handle("software=" + std::string(247, 'z'), kStranger);
    EXPECT_TRUE(holds(log_, " data error: " + std::string(247, 'z') + "0x7a "));
}

TEST_F(DataServer, RelativeModeChoosesByLength) {
    rel_enable = true;
    handle(bytes(quillon::relativeRecord(5, 7, quillon::kLeft, 0)));
    EXPECT_TRUE(becomes([](const auto &s) { return s.x == 5 && s.buttons == 1; }));
    handle(bytes(quillon::absoluteRecord(0, 1079, quillon::kNoButton, 0)));
    EXPECT_TRUE(becomes([](const auto &s) { return s.absoluteY == 4092; }));
    rel_enable = false;
    handle(bytes(quillon::relativeRecord(5, 7, quillon::kLeft, 0)));
    EXPECT_TRUE(holds(log_, "error data\n"));
}

TEST_F(DataServer, AnswersLockKeys) {
    EXPECT_EQ(answerTo("capslock"), "off");
    EXPECT_TRUE(holds(log_, "capslock OFF\nsend ok\n"));
    computer_.setLeds(sim::kCapsLed);
    EXPECT_EQ(answerTo("capslock"), "on");
    EXPECT_EQ(log_.substr(log_.size() - 12), "capslock ON\n");
    EXPECT_EQ(answerTo("numlock"), "off");
    EXPECT_TRUE(holds(log_, "numlock OFF\nsend ok\n"));
    EXPECT_EQ(answerTo("syncled and more"), "capslock=on&numlock=off");
    framed_.answerLate(85ms);
    std::string caps;
    for (int i = 0; i < 5 && caps != "on"; ++i) caps = answerTo("capslock");
    EXPECT_EQ(caps, "on") << "it has 120 ms";
    EXPECT_EQ(answerTo("capslock2"), "");
    EXPECT_TRUE(holds(log_, "data error: capslock2"));
}

TEST_F(DataServer, OutSetsTheLockKeysOfTheComputer) {
    handle("out=on");
    EXPECT_EQ(computer_.state().leds, sim::kCapsLed) << "what is not named stays off";
    computer_.setLeds(0);
    const auto begin = sim::Clock::now();
    handle("out=on&num=on");
    EXPECT_GE(sim::Clock::now() - begin, 190ms + 4 * 20ms) << "a pause each";
    EXPECT_EQ(computer_.state().leds, sim::kCapsLed | sim::kNumLed);
    handle("out=off&num=keep");
    EXPECT_EQ(computer_.state().leds, sim::kNumLed);
    handle("out");
    EXPECT_EQ(computer_.state().leds, sim::kNumLed);
    EXPECT_EQ(computer_.state().keys[0], 0) << "a key is left down";
}

TEST_F(DataServer, OutIsForThoseWhoMayControlAndLinkForAll) {
    link({kConsole});
    handle("out=on&num=on", kStranger);
    EXPECT_TRUE(holds(log_, "192.168.1.30 data error: out=on&num=on0x6f "));
    EXPECT_EQ(computer_.state().leds, 0);
    handle("software=out=on&num=off", kStranger);
    EXPECT_EQ(computer_.state().leds, sim::kCapsLed);
    rel_enable = true;
    vi_w = 480;
    vi_h = 4294967295;
    EXPECT_EQ(answerTo("linkage", kStranger), "vi_w=480&vi_h=-1&kvm=rel");
}

TEST_F(DataServer, RawChipGetsRecordsAndAnswersLockKeys) {
    ports_.attach(3, raw());
    version = false;
    handle(key('r'));
    EXPECT_TRUE(holds(log_, "version 0, rel_enable 0\n"));
    const std::string to = bytes(quillon::absoluteRecord(960, 540, quillon::kNoButton, 0));
    handle(to);
    EXPECT_TRUE(becomes([](const auto &s) { return s.absoluteX == 2044; }));
    EXPECT_EQ(computer_.state().text, "r");
    computer_.setLeds(sim::kCapsLed);
    EXPECT_EQ(answerTo("capslock"), "on");
    EXPECT_EQ(answerTo("numlock"), "off");
    EXPECT_EQ(log_.find("send ok"), std::string::npos);
    EXPECT_EQ(answerTo("syncled"), "capslock=on&numlock=off");
    handle("out=off&num=on");
    EXPECT_TRUE(holds(log_, "serial write 57 ab 80 40\n0x2\n")) << log_;
    EXPECT_TRUE(becomes([](const auto &s) { return s.leds == sim::kNumLed; }));
    EXPECT_EQ(computer_.state().keys[0], 0x53) << "on this chip the key stays down";

    rel_enable = true;
    const unsigned before = computer_.state().reports;
    handle(to);
    handle(key('s'));
    EXPECT_TRUE(becomes([](const auto &s) { return s.text == "rs"; }));
    EXPECT_EQ(computer_.state().reports, before + 1) << "the position was dropped";
}

TEST_F(DataServer, ErrorLinesPrintWhatCame) {
    handle("a\tb\x1b[1m");
    EXPECT_EQ(log_.rfind("192.168.1.20 data error: a\tb\x1b[1m0x61 0x9 0x62 0x1b ", 0), 0U);
    handle(std::string(256, '\xFF'));
    EXPECT_TRUE(holds(log_, "0xff ---0x57 0xab\n"));
    handle(std::string(1, 0x57));
    EXPECT_EQ(log_, "192.168.1.20 data error: W0x57 ---0x57 0xab\n");
}

}  // namespace
