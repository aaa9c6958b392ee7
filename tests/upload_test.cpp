#include "upload.h"

#include <gtest/gtest.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>
#include <utility>

#include "common/common.h"
#include "microcontroller.h"
#include "myserial.h"
#include "myupdata.h"
#include "serial_ports.h"
#include "state.h"
#include "support.h"

namespace {

using namespace std::chrono_literals;
using sim::Microcontroller;
using test::printedBy;

// A header, records of 16 bytes of which the last ends in the kind, and a termination.
std::string image(int kind, int records) {
    std::string text = "S00600004844521B\r\n";
    for (int i = 0; i < records; ++i) {
        std::string record = "14" + std::string(i % 2 == 0 ? "0000" : "1100");
        unsigned sum = 0x14 + (i % 2 == 0 ? 0 : 0x11) + static_cast<unsigned>(i);
        char byte[9];
        snprintf(byte, sizeof byte, "%02X", static_cast<unsigned>(i));
        record += byte;
        for (int j = 0; j < 16; ++j) {
            const unsigned value =
                static_cast<unsigned>(i == records - 1 && j == 15 ? kind : (i * 31 + j * 7) & 0xFF);
            sum += value;
            snprintf(byte, sizeof byte, "%02X", value);
            record += byte;
        }
        snprintf(byte, sizeof byte, "%02X", ~sum & 0xFF);
        text += "S2" + record + byte + "\n";
    }
    return text + "S804000000FB";
}

// What the records say, read in another way than the microcontroller's.
Microcontroller::Memory memoryOf(const std::string &text) {
    Microcontroller::Memory memory;
    for (std::size_t at = 0; (at = text.find("S214", at)) != std::string::npos; at += 4) {
        const auto address =
            static_cast<std::uint32_t>(std::stoul(text.substr(at + 4, 6), nullptr, 16));
        for (std::uint32_t i = 0; i < 16; ++i)
            memory[address + i] =
                static_cast<std::uint8_t>(std::stoul(text.substr(at + 10 + 2 * i, 2), nullptr, 16));
    }
    return memory;
}

class Upload : public testing::Test {
  protected:
    explicit Upload(unsigned boards = 10) : mcu_(boards, 115200), ports_(false) {
        ports_.attach(3, mcu_);
        test::complainedBy([] { MySerial::open_port(MySerial::KUART3); });
        MySerial::set_opt(115200, 8, 1, 'N', 0, 0);
        std::set<unsigned> absent;
        for (unsigned i = 0; i < boards; ++i)
            if (i != 1) absent.insert(i);
        mcu_.setAbsent(absent);
        c_netmsgid = CreateMessageQueue("/data");
    }
    ~Upload() override { DeleteMessageQueue(c_netmsgid); }

    // Uploads a file, with what the microcontroller says of its boards or another list; the reply.
    std::string upload(const std::string &name, const std::string &text,
                       const std::string &otherList = "") {
        test::writeFile(name, text);
        log_ = printedBy([&] {
            std::thread uploader([&] { done_ = uploadFile(name.c_str()); });
            std::string list;
            char piece[64];
            while (list.empty() || list.back() != ')')
                list.append(piece, static_cast<std::size_t>(
                                       std::max(MySerial::nread(piece, sizeof piece, 0), 0)));
            if (!otherList.empty()) list = otherList;
            initUploadANDloop(list.data());
            uploader.join();
        });
        return received();
    }

    // What the microcontroller was sent, once that are so many commands.
    std::vector<std::string> commandsOf(std::size_t count) const {
        for (int i = 0; i < 2000 && mcu_.commands().size() < count; ++i) usleep(1000);
        return mcu_.commands();
    }

    static std::string received() {
        msg_st message;
        const ssize_t size = msgrcv(c_netmsgid, &message, sizeof message.mtext, 3, IPC_NOWAIT);
        return size < 0 ? "nothing" : std::string(message.mtext, static_cast<std::size_t>(size));
    }

    bool logged(const std::string &text) const { return log_.find(text) != std::string::npos; }

    // The answer to an erasure has 60 ms, also on a busy machine.
    [[maybe_unused]] const int priority_ = nice(-10);
    Microcontroller mcu_;
    sim::SerialPorts ports_;
    std::string log_;
    bool done_ = false;
};

constexpr char kBoardOne[] = "0:N/A;1:OK;2:N/A;3:N/A;4:N/A;5:N/A;6:N/A;7:N/A;8:N/A;9:N/A;";

struct Kind {
    int byte;
    unsigned boards, board;
    const char *name, *request, *erase, *record;
    bool resets;
};

// In the test's name.
void PrintTo(const Kind &kind, std::ostream *out) {
    *out << kind.erase << " of " << kind.boards;
}

class EveryKind : public Upload, public testing::WithParamInterface<Kind> {
  protected:
    EveryKind() : Upload(GetParam().boards) {}
};

TEST_P(EveryKind, SpeaksItsCommandsAndLeavesTheImageInMemory) {
    const Kind kind = GetParam();
    const std::string text = image(kind.byte, 3), reply = upload(kind.name, text);
    EXPECT_TRUE(done_);
    const std::string ok = std::to_string(kind.board) + ":OK;";
    EXPECT_NE(reply.find(ok), std::string::npos) << reply;
    EXPECT_EQ(reply == ok, kind.board == 0) << "a single board";
    EXPECT_TRUE(logged("[uploadFile]-322: upload reply: " + reply + "\n"));
    EXPECT_TRUE(logged("[initUploadANDloop]-215: l_broadnum: " + std::to_string(kind.boards) +
                       "\nl_broadstate[0]:0\nl_broadstate[1]:1\n"));
    EXPECT_TRUE(logged(std::string("[UploadMotFile]-84: earse: ") + kind.erase));
    EXPECT_TRUE(logged("[UploadMotFile]-107: (1): 14000000"));
    const auto commands = commandsOf(kind.resets ? 6 : 5);
    ASSERT_EQ(commands.size(), kind.resets ? 6U : 5U);
    EXPECT_EQ(commands[0], kind.request);
    EXPECT_EQ(commands[1], kind.erase);
    EXPECT_EQ(commands[2].rfind(kind.record, 0), 0U) << commands[2];
    EXPECT_EQ(commands.back() == "[reset]", kind.resets);
    EXPECT_EQ(mcu_.memory(kind.board), memoryOf(text));
    struct stat info {};
    EXPECT_NE(stat(kind.name, &info), 0) << "the uploaded file goes";
    EXPECT_NE(stat("touched", &info), 0) << "its name reached a shell";
}

INSTANTIATE_TEST_SUITE_P(
    All, EveryKind,
    testing::Values(Kind{0, 10, 1, "plain.mot", "(GETIA)", "(ERI1)", "(UDI1|140000", true},
                    Kind{1, 20, 1, "./a.Mot", "(GETOA)", "(ERO1)", "(UDO1|140000", true},
                    Kind{2, 10, 0, "two words.mot", "(GETM)", "(ERL)", "(UDL|140000", false},
                    Kind{3, 10, 0, "a;touch touched;.mot", "(GETM)", "(ERB)", "(UDB0|14", true},
                    Kind{4, 20, 0, "it's.mot.bin", "(GETM)", "(ERB)", "(UDB0|14", true},
                    Kind{3, 20, 1, "-r.mot", "(GETM)", "(ER21)", "(UD21|140000", false},
                    Kind{4, 10, 1, "$(touch touched).mot", "(GETM)", "(ER41)", "(UD41|1", false}));

TEST_F(Upload, AnswersInPiecesAreJoinedAndRefusalsEndTheBoard) {
    mcu_.splitAnswers(1, 100ms);
    EXPECT_EQ(upload("a.mot", image(1, 2)).substr(6, 5), "1:OK;");
    mcu_.setMood(Microcontroller::kRefuses, 2);
    EXPECT_EQ(upload("a.mot", image(1, 3)).substr(6, 9), "1:Failed;");
    EXPECT_TRUE(logged("[UploadMotFile]-122: upload .mot file failed!\n"));
    EXPECT_EQ(commandsOf(10).back(), "[reset]");
    mcu_.setMood(Microcontroller::kWell);
    // Said to be there, and is not.
    EXPECT_EQ(upload("a.mot", image(1, 1), "(OK,NA,NA,NA,NA,NA,NA,NA,NA,NA)").substr(0, 9),
              "0:Failed;");
    EXPECT_TRUE(logged("[UploadMotFile]-129: earse .mot of muc failed!\n"));
}

TEST_F(Upload, DeviceWithoutEndOrWordFailsTheBoard) {
    for (const auto mood : {Microcontroller::kBabbles, Microcontroller::kSilent}) {
        mcu_.setMood(mood, 2);
        const auto begin = sim::Clock::now();
        EXPECT_EQ(upload("a.mot", image(1, 3)).substr(6, 9), "1:Failed;");
        EXPECT_EQ(sim::Clock::now() - begin > 10s, mood == Microcontroller::kSilent);
        EXPECT_TRUE(logged("[UploadMotFile]-93: earse .mot of muc secceed!\n"));
        EXPECT_TRUE(logged("[UploadMotFile]-122: upload .mot file failed!\n"));
        mcu_.setMood(Microcontroller::kWell);
        usleep(100000);
        char rest[8192];
        while (MySerial::nread(rest, sizeof rest, 0) > 0) continue;
    }
}

TEST_F(Upload, ListsOfOtherLengthsAreRefused) {
    for (const int length : {30, 32}) {
        EXPECT_EQ(upload("a.mot", image(1, 1), std::string(static_cast<std::size_t>(length), 'x')),
                  "upload error");
        EXPECT_TRUE(logged("[initUploadANDloop]-212: init upload failed!\n"));
    }
    EXPECT_FALSE(done_);
    EXPECT_EQ(test::readFile("a.mot"), image(1, 1)) << "only a completed run removes it";
    char list[] = "(OK,OK)";
    EXPECT_EQ(printedBy([&] { EXPECT_FALSE(initUploadANDloop(list)); }), "");
    mcu_.setMood(Microcontroller::kSilent);
    const auto begin = sim::Clock::now();
    printedBy([] { EXPECT_FALSE(uploadFile("a.mot")); });
    EXPECT_GE(sim::Clock::now() - begin, 2400ms);
    EXPECT_EQ(received(), "timeout");
    EXPECT_EQ(l_isupdata, 0);
}

TEST_F(Upload, FilesThatAreNoneAreRefused) {
    // The private host's own, which is first in PATH.
    ASSERT_TRUE(test::holds(test::run("command -v reboot"), "/quillon-board/bin/reboot\n"));
    test::writeFile("/quillon-board/bin/reboot", "#!/bin/sh\ntouch /data/restarted\n");
    const std::vector<std::string> texts{"S2",           "S214\nxx",  "x2y",     "S20912\n",
                                         image(0x12, 1), image(5, 1), "S1130000"};
    for (const std::string &text : texts)
        EXPECT_EQ(printedBy([&] {
                      test::writeFile("a.mot", text);
                      EXPECT_FALSE(uploadFile("a.mot"));
                  }),
                  "")
            << text;
    const auto checked = [](const char *name) {
        return printedBy([&] { EXPECT_FALSE(MyUpdata(name).FileCheckOut()); });
    };
    EXPECT_EQ(checked("none.mot"), "[FileCheckOut]-14: The input file is empty or non-existent\n");
    EXPECT_EQ(checked("a.MOT"),
              "[FileCheckOut]-64: The input file is not in the .mot or .bin or .rar format\n");
    EXPECT_EQ(checked("a.bin").rfind("[FileCheckOut]-56: The .bin file is not supported for", 0),
              0U);
    EXPECT_EQ(checked("a.rar"), "");
    struct stat info {};
    EXPECT_EQ(stat("/data/restarted", &info), 0);
    EXPECT_EQ(received(), "file error");
    const int id = std::exchange(c_netmsgid, -1);
    test::complainedBy([&] { log_ = printedBy([] { uploadFile("none.mot"); }); });
    c_netmsgid = id;
    EXPECT_TRUE(logged("[uploadFile]-336: send net msg failed!\n"));
    EXPECT_TRUE(mcu_.commands().empty());
}

TEST(MessageQueues, FailInTheirWaysAndCutLongTexts) {
    EXPECT_EQ(printedBy([] { EXPECT_EQ(CreateMessageQueue("/nowhere"), 0); }),
              "[CreateMessageQueue]-23: ftok create error: 2");
    const int id = CreateMessageQueue("/data");
    ASSERT_GE(id, 0);
    EXPECT_EQ(CreateMessageQueue("/data"), id);
    EXPECT_EQ(msgget(ftok("/data", 'a'), 0), id) << "where the management process looks for it";
    EXPECT_TRUE(sendMessage(std::string(3000, 'm').c_str(), id, 3));
    msg_st message;
    EXPECT_EQ(msgrcv(id, &message, sizeof message.mtext, 3, IPC_NOWAIT), 1024);
    EXPECT_TRUE(DeleteMessageQueue(id));
    EXPECT_EQ(printedBy([&] { EXPECT_FALSE(DeleteMessageQueue(id)); }),
              "[DeleteMessageQueue]-56: msgctl(IPC_RMID) failed\n");
    EXPECT_EQ(test::complainedBy([&] { EXPECT_FALSE(sendMessage("x", id, 3)); }).rfind("msgsnd", 0),
              0U);
}

}  // namespace
