// Who controls the endpoint: the daemon that ships, through the network, and the console's
// commands for it.

#include <unistd.h>

#include "commands.h"
#include "console_ears.h"
#include "link_control.h"
#include "link_messages.h"
#include "link_model.h"
#include "network.h"
#include "on_board.h"
#include "printable.h"

namespace {

using namespace std::chrono_literals;
using test::kBoard, test::kConsole, test::kFast, test::kOther;

using Heard = std::vector<std::string>;

class Control : public test::OnBoard {
  protected:
    Control() {
        options_.consoles.clear();
        for (int i = 20; i < 29; ++i) options_.consoles.push_back("192.168.1." + std::to_string(i));
    }

    // Permissions on, but no heartbeats: those are only there when they are on at start.
    void startWithoutHeartbeats() {
        startListening(kFast);
        console::Session(kBoard, 80, kConsole, 3s).setPermissions(true);
        ears_.emplace();
    }

    // The same for a holder whose consoles are pinged.
    void startHeldByAnn() {
        startListening(std::string(kFast) +
                       "per_enable=1\nconnect_name=192.168.1.20-ann\nconnect_per=5\n"
                       "connect_ip0=192.168.1.20\nconnect_ip1=192.168.1.21\n");
        ears_.emplace();
    }

    // Who controls it once the daemon is done with a command.
    std::string after(const std::string &command) {
        const auto holder = console::Session(kBoard, 80, kConsole, 2s).holderAfter(command, 15s);
        return holder.user + "|" + std::to_string(holder.level) + (holder.linked ? "" : " free");
    }

    std::optional<test::ConsoleEars> ears_;
};

TEST_F(Control, HundredsOfCommandsByChanceGiveWhatTheModelGives) {
    startWithoutHeartbeats();
    test::LinkModel model;
    std::mt19937 random(7);
    for (int i = 0; i < 250 && !HasFailure(); ++i) {
        const auto step = test::randomStep(model, random, {-1, 0, 0, 1, 3});
        ears_->answer(step.answer);
        const std::string now = after(step.command);
        EXPECT_EQ(ears_->take(step.heard.size()), step.heard) << step.command;
        EXPECT_EQ(now, model.holder + "|" + std::to_string(model.level) +
                           (model.outputs.empty() ? " free" : ""));
        if (i % 100 != 99) continue;
        EXPECT_NE(settings().find(model.settings()), std::string::npos) << settings();
        board_->powerCycle();
        ASSERT_TRUE(board_->waitUntilListening(20s));
        model.restart();
    }
}

TEST_F(Control, LateConsentDoesNotCountForTheNextApplicant) {
    startWithoutHeartbeats();
    after("connect|192.168.1.20-ann|192.168.1.20|5");
    EXPECT_EQ(after("apply|192.168.1.21-bob|192.168.1.21|5"), "192.168.1.20-ann|5");
    EXPECT_EQ(ears_->take(3).back(), "41302>192.168.1.21 reply|192.168.1.10|2");
    console::Endpoint(kBoard, 41303, kConsole).send("reply|a|b|1", 11);
    ears_->answer("reply|a|b|0");
    EXPECT_EQ(after("apply|192.168.1.22-cid|192.168.1.22|5"), "192.168.1.20-ann|5");
    EXPECT_EQ(ears_->take(2).back(), "41302>192.168.1.22 reply|192.168.1.10|0");
}

TEST_F(Control, OperatorsAreServedOneAfterTheOther) {
    startHeldByAnn();
    ears_->answer("reply|a|b|1");
    console::Endpoint cid(kBoard, 41302, "192.168.1.22"), bob(kBoard, 41302, kOther);
    cid.send("apply|192.168.1.22-cid|192.168.1.22|5", 37);
    bob.send("connect|192.168.1.21-bob|192.168.1.21|5", 39);
    const std::string asked = "apply|192.168.1.10|192.168.1.22-cid";
    const std::string bobHasIt = "connect|192.168.1.10|1|192.168.1.21-bob|5";
    EXPECT_EQ(ears_->take(7),
              (Heard{"41303>192.168.1.20 " + asked, "41303>192.168.1.21 " + asked,
                     "41302>192.168.1.22 reply|192.168.1.10|1",
                     "41304>all disconnect|192.168.1.10|0|192.168.1.20-ann|5",
                     "41304>all connect|192.168.1.10|1|192.168.1.22-cid|5",
                     "41304>192.168.1.22 " + bobHasIt, "41304>192.168.1.21 " + bobHasIt}));
}

TEST_F(Control, LinkedConsoleMaySendUntilItIsTakenOver) {
    startHeldByAnn();
    type(kConsole, 'a');
    // Records and commands are served by two threads: only what has arrived came before the apply.
    EXPECT_TRUE(arrives("a"));
    EXPECT_EQ(after("apply|192.168.1.22-cid|192.168.1.22|6"), "192.168.1.22-cid|6");
    type(kConsole, 'x');
    type("192.168.1.22", 'c');
    EXPECT_TRUE(arrives("ac"));
    EXPECT_EQ(after("disconnect|192.168.1.22-cid"), "|0 free");
}

TEST_F(Control, SilentHolderLosesToAnyLevelAndHisNextLinkCountsAgain) {
    startHeldBySilentAnn();
    ears_.emplace();
    EXPECT_EQ(after("apply|192.168.1.21-bob|192.168.1.21|1"), "192.168.1.21-bob|1");
    EXPECT_EQ(ears_->take(2).front(), "41304>all disconnect|192.168.1.10|0|192.168.1.20-ann|0");
    EXPECT_EQ(after("connect|192.168.1.20-ann|192.168.1.20|5"), "192.168.1.20-ann|5");
    EXPECT_EQ(after("connect|192.168.1.21-bob|192.168.1.21|4"), "192.168.1.20-ann|5");
}

TEST(LinkMessages, AreReadWholeOrNotAtAll) {
    using console::LinkMessage;
    const auto held = console::parseLinkMessage(std::string("connect|a|1|u|-5\0\0\0", 19));
    ASSERT_TRUE(held);
    EXPECT_EQ(held->endpoint + held->user + std::to_string(held->level), "au-5");
    const auto reply = console::parseLinkMessage("reply|a|2");
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->code, LinkMessage::kNotAnswered);
    const auto asked = console::parseLinkMessage("apply|a|u");
    ASSERT_TRUE(asked);
    EXPECT_EQ(console::consentAnswer("c", *asked, true), "reply|c|u|1");
    for (const char *text : {"", "connect", "connect|a|1|u", "apply|a|u|more", "connected|a|1|u|5"})
        EXPECT_FALSE(console::parseLinkMessage(text)) << text;
    EXPECT_EQ(console::printable("a\x1b[2J\xff"), "a?[2J?");
}

TEST(LinkControl, NamesAreMadeConventionalAndHeldAgainstTheRules) {
    EXPECT_EQ(console::conventionalName("ann", "1.2.3.4"), "1.2.3.4-ann");
    EXPECT_EQ(console::conventionalName("ann-marie", "1.2.3.4"), "1.2.3.4-ann-marie");
    EXPECT_EQ(console::conventionalName("5.6.7.8-ann", "1.2.3.4"), "5.6.7.8-ann");
    EXPECT_EQ(console::objection({std::string(31, 'n'), "255.255.255.255", 5}), "");
    for (const auto &[name, output] :
         {std::pair<std::string, std::string>{std::string(32, 'n'), ""},
          {"a b", ""},
          {"a|b", ""},
          {"a=b", ""},
          {"\x1b", ""},
          {"a", "1.2.3.4=5"},
          {"a", std::string(16, '1')}})
        EXPECT_NE(console::objection({name, output, 5}), "") << name << output;
}

constexpr char kTwoConsoles[] = PROGRAM_DIR
    "/quillon-board --console 192.168.1.20 --console 192.168.1.21 -- bash -c '"
    "board=\"" PROGRAM_DIR
    "/quillon-console --to 192.168.1.10\" "
    "ann=\"$board --from 192.168.1.20\" bob=\"$board --from 192.168.1.21\"; "
    "heard() { until grep -qs \"$1\" \"$2\"; do sleep 0.02; done; }; ";

test::Outcome runOnTwoConsoles(const std::string &commands) {
    return test::run(kTwoConsoles + commands + "'");
}

void expectInOrder(const test::Outcome &outcome, std::initializer_list<const char *> texts) {
    std::size_t at = 0;
    for (const char *text : texts) {
        const std::size_t found = outcome.said.find(text, at);
        ASSERT_NE(found, std::string::npos) << text << "\nin\n" << outcome.said;
        at = found + 1;
    }
}

TEST(QuillonConsole, TakesControlAndSaysWhyNot) {
    expectInOrder(
        runOnTwoConsoles("$ann connect --name ann --level 3; $ann permissions on; "
                         "$ann connect --name ann --level 3; "
                         "$ann connect --name ann --level 3 --output 192.168.1.22; "
                         "$bob connect --name bob --level 2; $bob disconnect --name 192.168.1.2; "
                         "$bob apply --name bob --level 4 --json; "
                         "$bob disconnect --name bob --level 4; $bob disconnect --name bob; "
                         "$ann apply --name a=b --level 3; echo status $?; "
                         "$ann apply --name ann; echo status $?"),
        {"permissions are off", "result    linked\n", "output 192.168.1.22 is linked\n",
         "192.168.1.20-ann controls it, level 3\n", "192.168.1.20-ann controls it, level 3\n",
         "{\"result\":\"taken over from 192.168.1.20-ann\",",
         "\"linked\":true,\"user\":\"192.168.1.21-bob\",\"level\":4}\n",
         "192.168.1.21-bob is disconnected\n", "nobody controls it\n", "\"192.168.1.20-a=b\" holds",
         "status 2\n", "--level is required", "status 2\n"});
}

TEST(QuillonConsole, WatchRefusesGrantsAndPassesRepliesOn) {
    expectInOrder(
        runOnTwoConsoles(
            "$ann permissions on; $ann connect --name ann --level 3 >/dev/null; "
            "$ann watch --refuse >/data/a 2>&1 & a=$!; $bob watch --json >/data/b 2>&1 & b=$!; "
            "heard watching /data/a; heard watching /data/b; "
            "$ann watch; $bob apply --name bob --level 3; kill -INT $a; wait $a; echo $?; "
            "$ann watch --grant >/data/g 2>&1 & a=$!; heard watching /data/g; "
            "$bob apply --name bob --level 3; heard \"bob controls it\" /data/g; kill $a $b; wait; "
            "cat /data/a /data/g; grep -c reply /data/b"),
        {"cannot listen at 192.168.1.20:2333", "refused by 192.168.1.20-ann\n", "0\n",
         "granted by 192.168.1.20-ann\n", "192.168.1.21-bob asks for control\n", "refused\n",
         "192.168.1.21-bob asks for control\n", "granted\n",
         "192.168.1.20-ann no longer controls it, level 3\n",
         "192.168.1.21-bob controls it, level 3\n", "2\n"});
}

TEST(QuillonConsole, WatchAsksOnATerminal) {
    expectInOrder(
        runOnTwoConsoles(
            "$ann permissions on; $ann connect --name ann --level 3 >/dev/null; "
            "(heard left.out /data/a; echo y; heard bob.controls /data/a; printf \"\\003\") | "
            "script -qefc \"$ann watch\" /dev/null >/data/a & "
            "heard watching /data/a; "
            "$bob apply --name bob --level 3; wait; cat /data/a"),
        {"granted by 192.168.1.20-ann\n", "Question 1: give control of 192.168.1.10 to 192.168.1.21-bob?",
         "granted"});
}

TEST(QuillonConsole, WatchAnswersHeartbeats) {
    // At an address where nobody else would.
    const auto outcome = runOnTwoConsoles(
        "ip addr add 192.168.1.29/24 dev eth0; "
        "$board --from 192.168.1.29 watch --refuse 2>/data/w & heard watching /data/w; "
        "exec 3<>/dev/udp/192.168.1.29/41237; printf no >&3; printf heart >&3; "
        "read -r -N 8 -t 5 answer <&3; read -r -N 8 -t 0.2 more <&3; echo $answer$more; "
        "kill %1; wait");
    EXPECT_TRUE(test::holds(outcome, "ackheart\n")) << outcome.said;
    EXPECT_FALSE(test::holds(outcome, "ackheartack")) << "it answered what is no heartbeat";
}

}  // namespace
