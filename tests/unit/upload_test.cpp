#include "upload.h"

#include <poll.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <thread>
#include <utility>

#include "common/common.h"
#include "myserial.h"
#include "myupdata.h"
#include "sim/chips/microcontroller.h"
#include "state.h"
#include "tests/support/support.h"

namespace {

using namespace std::chrono_literals;
using sim::Microcontroller;
using test::printedBy;

std::string hex(unsigned byte) {
    char text[4];
    snprintf(text, sizeof text, "%02X", byte & 0xFF);
    return text;
}

// A header, records of 16 bytes, the last of which ends with the kind, and a termination; memory
// gets the bytes of the records.
std::string image(unsigned kind, unsigned records, Microcontroller::Memory *memory = nullptr) {
    std::string text = "S00600004844521B\r\n";
    for (unsigned i = 0; i < records; ++i) {
        const unsigned address = (i % 2 == 0 ? 0 : 0x110000) + i;
        unsigned sum = 0x14 + (address >> 16) + i;
        text += "S214" + hex(address >> 16) + "00" + hex(i);
        for (unsigned j = 0; j < 16; ++j) {
            const unsigned value = i == records - 1 && j == 15 ? kind : (i * 31 + j * 7) & 0xFF;
            sum += value;
            text += hex(value);
            if (memory != nullptr) (*memory)[address + j] = static_cast<std::uint8_t>(value);
        }
        text += hex(~sum) + "\n";
    }
    return text + "S804000000FB";
}

class Upload : public testing::Test {
  protected:
    using Prepare = std::function<void(Microcontroller &)>;

    Upload() { c_netmsgid = CreateMessageQueue("/data"); }
    ~Upload() override { DeleteMessageQueue(c_netmsgid); }

    // A new microcontroller on a new line, of whose boards only board 1 is present.
    void wire(unsigned boards = 10) {
        ports_.reset();
        mcu_.emplace(boards, 115200);
        std::set<unsigned> absent;
        for (unsigned i = 0; i < boards; ++i)
            if (i != 1) absent.insert(i);
        mcu_->setAbsent(absent);
        ports_.emplace(false);
        ports_->attach(3, *mcu_);
        test::complainedBy([] { MySerial::open_port(MySerial::KUART3); });
        MySerial::set_opt(115200, 8, 1, 'N', 0, 0);
    }

    // Uploads a file through a new line, with the microcontroller's list of boards or another list,
    // and returns the reply. Tries again when the machine was too busy to give the answer to an
    // erase command within 60 ms.
    std::string upload(const std::string &name, const std::string &text, unsigned boards = 10,
                       const Prepare &prepare = nullptr, const std::string &otherList = "") {
        std::string reply;
        for (int tries = 0; tries < 5; ++tries) {
            wire(boards);
            if (prepare) prepare(*mcu_);
            test::writeFile(name, text);
            log_ = printedBy([&] { uploadOver(name, otherList); });
            reply = received();
            if (!logged("earse .mot of muc failed!") || mcu_->describe().empty()) break;
        }
        return reply;
    }

    void uploadOver(const std::string &name, const std::string &otherList) {
        std::thread uploader([&] { done_ = uploadFile(name.c_str()); });
        std::string list;
        char piece[64];
        while (list.empty() || list.back() != ')')
            list.append(piece, static_cast<std::size_t>(
                                   std::max(MySerial::nread(piece, sizeof piece, 0), 0)));
        if (!otherList.empty()) list = otherList;
        initUploadANDloop(list.data());
        uploader.join();
    }

    // The commands that the microcontroller received, after waiting for count of them.
    std::vector<std::string> commandsOf(std::size_t count) const {
        test::comesTrue([&] { return mcu_->commands().size() >= count; }, 5s);
        return mcu_->commands();
    }

    static std::string received() {
        msg_st message;
        const ssize_t size = msgrcv(c_netmsgid, &message, sizeof message.mtext, 3, IPC_NOWAIT);
        return size < 0 ? "nothing" : std::string(message.mtext, static_cast<std::size_t>(size));
    }

    bool logged(const std::string &text) const { return test::holds(log_, text); }

    std::optional<Microcontroller> mcu_;
    std::optional<sim::SerialPorts> ports_;
    std::string log_;
    bool done_ = false;
};

TEST_F(Upload, SpeaksTheCommandsOfEveryKindAndLeavesTheImageInMemory) {
    struct Kind {
        unsigned byte, boards, board;
        const char *name, *request, *erase, *record;
        bool resets;
    };
    for (const Kind &kind :
         {Kind{0, 10, 1, "plain.mot", "(GETIA)", "(ERI1)", "(UDI1|140000", true},
          Kind{1, 20, 1, "./a.Mot", "(GETOA)", "(ERO1)", "(UDO1|140000", true},
          Kind{2, 10, 0, "two words.mot", "(GETM)", "(ERL)", "(UDL|140000", false},
          Kind{3, 10, 0, "a;touch touched;.mot", "(GETM)", "(ERB)", "(UDB0|14", true},
          Kind{4, 20, 0, "it's.mot.bin", "(GETM)", "(ERB)", "(UDB0|14", true},
          Kind{3, 20, 1, "-r.mot", "(GETM)", "(ER21)", "(UD21|140000", false},
          Kind{4, 10, 1, "$(touch touched).mot", "(GETM)", "(ER41)", "(UD41|1", false}}) {
        SCOPED_TRACE(kind.name);
        Microcontroller::Memory memory;
        const std::string reply = upload(kind.name, image(kind.byte, 3, &memory), kind.boards);
        EXPECT_TRUE(done_);
        const std::string ok = std::to_string(kind.board) + ":OK;";
        EXPECT_TRUE(test::holds(reply, ok)) << reply;
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
        EXPECT_EQ(mcu_->memory(kind.board), memory);
        EXPECT_NE(access(kind.name, F_OK), 0) << "the uploaded file goes";
        EXPECT_NE(access("touched", F_OK), 0) << "its name reached a shell";
    }
}

TEST_F(Upload, LateAnswerOfOneBoardIsNoneForTheNext) {
    wire();
    test::writeFile("a.mot", image(1, 1));
    MyUpdata file("a.mot");
    ASSERT_TRUE(file.FileCheckOut());
    MySerial::nwrite("(ERO1)", 6);
    pollfd answered{MySerial::fd_, POLLIN, 0};
    ASSERT_EQ(poll(&answered, 1, 5000), 1);
    mcu_->setMood(Microcontroller::kRefuses);
    log_ = printedBy([&] { EXPECT_FALSE(file.UploadMotFile(1)); });
    EXPECT_TRUE(logged("earse .mot of muc failed!")) << log_;
}

TEST_F(Upload, AnswersInPiecesAreJoinedAndRefusalsEndTheBoard) {
    EXPECT_EQ(upload("a.mot", image(1, 2), 10, [](auto &mcu) { mcu.splitAnswers(1, 100ms); })
                  .substr(6, 5),
              "1:OK;");
    EXPECT_EQ(upload("a.mot", image(1, 3), 10,
                     [](auto &mcu) { mcu.setMood(Microcontroller::kRefuses, 2); })
                  .substr(6, 9),
              "1:Failed;");
    EXPECT_TRUE(logged("[UploadMotFile]-122: upload .mot file failed!\n"));
    EXPECT_EQ(commandsOf(5).back(), "[reset]");
    // Board 0 is in the list, but is not present.
    EXPECT_EQ(
        upload("a.mot", image(1, 1), 10, nullptr, "(OK,NA,NA,NA,NA,NA,NA,NA,NA,NA)").substr(0, 9),
        "0:Failed;");
    EXPECT_TRUE(logged("[UploadMotFile]-129: earse .mot of muc failed!\n"));
}

TEST_F(Upload, DeviceWithoutEndOrWordFailsTheBoard) {
    for (const auto mood : {Microcontroller::kBabbles, Microcontroller::kSilent}) {
        auto begin = sim::Clock::now();
        const auto prepare = [&](Microcontroller &mcu) {
            begin = sim::Clock::now();
            mcu.setMood(mood, 2);
        };
        EXPECT_EQ(upload("a.mot", image(1, 3), 10, prepare).substr(6, 9), "1:Failed;");
        EXPECT_EQ(sim::Clock::now() - begin > 10s, mood == Microcontroller::kSilent);
        EXPECT_TRUE(logged("[UploadMotFile]-93: earse .mot of muc secceed!\n"));
        EXPECT_TRUE(logged("[UploadMotFile]-122: upload .mot file failed!\n"));
    }
}

TEST_F(Upload, ListsOfOtherLengthsAreRefused) {
    for (const std::size_t length : {30U, 32U}) {
        EXPECT_EQ(upload("a.mot", image(1, 1), 10, nullptr, std::string(length, 'x')),
                  "upload error");
        EXPECT_TRUE(logged("[initUploadANDloop]-212: init upload failed!\n"));
    }
    EXPECT_FALSE(done_);
    EXPECT_EQ(test::readFile("a.mot"), image(1, 1)) << "only a completed run removes it";
    char list[] = "(OK,OK)";
    EXPECT_EQ(printedBy([&] { EXPECT_FALSE(initUploadANDloop(list)); }), "");
    mcu_->setMood(Microcontroller::kSilent);
    const auto begin = sim::Clock::now();
    printedBy([] { EXPECT_FALSE(uploadFile("a.mot")); });
    EXPECT_GE(sim::Clock::now() - begin, 2400ms);
    EXPECT_EQ(received(), "timeout");
    EXPECT_EQ(l_isupdata, 0);
}

TEST_F(Upload, FilesThatAreNoneAreRefused) {
    wire();
    // The private host's own one comes before the PC's in PATH.
    ASSERT_EQ(test::run("command -v reboot").said, "/quillon-board/bin/reboot\n");
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
    EXPECT_EQ(access("/data/restarted", F_OK), 0);
    EXPECT_EQ(received(), "file error");
    const int id = std::exchange(c_netmsgid, -1);
    test::complainedBy([&] { log_ = printedBy([] { uploadFile("none.mot"); }); });
    c_netmsgid = id;
    EXPECT_TRUE(logged("[uploadFile]-336: send net msg failed!\n"));
    EXPECT_TRUE(mcu_->commands().empty());
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
