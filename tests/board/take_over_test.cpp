// Who holds control of the endpoint: the daemon that ships, over the network, and the console's
// commands for control.

#include "tests/support/console_ears.h"

#include "protocol/link_messages.h"
#include "terminal/printable.h"
#include "tests/support/on_board.h"
#include <quillon/link_control.h>

namespace {

using namespace std::chrono_literals;
using test::kBoard, test::kConsole, test::kFast, test::kOther, test::kThird;

class Control : public test::OnBoard {
  protected:
    // Two outputs of ann are linked, and get heartbeats.
    void startHeldByAnn() {
        startListening(std::string(kFast) +
                       "per_enable=1\nconnect_name=192.168.1.20-ann\nconnect_per=5\n"
                       "connect_ip0=192.168.1.20\nconnect_ip1=192.168.1.21\n");
    }
};

TEST_F(Control, OperatorsAreServedOneAfterTheOther) {
    startHeldByAnn();
    test::ConsoleEars ears;
    ears.answer("reply|a|b|1");
    quillon::Endpoint cid(kBoard, 41302, kThird), bob(kBoard, 41302, kOther);
    cid.send("apply|192.168.1.30-cid|192.168.1.30|5", 37);
    bob.send("connect|192.168.1.21-bob|192.168.1.21|5", 39);
    const std::string asked = "apply|192.168.1.10|192.168.1.30-cid";
    const std::string bobHasIt = "connect|192.168.1.10|1|192.168.1.21-bob|5";
    const std::vector<std::string> expected{
        "41303>192.168.1.20 " + asked,
        "41303>192.168.1.21 " + asked,
        "41302>192.168.1.30 reply|192.168.1.10|1",
        "41304>all disconnect|192.168.1.10|0|192.168.1.20-ann|5",
        "41304>all connect|192.168.1.10|1|192.168.1.30-cid|5",
        "41304>192.168.1.30 " + bobHasIt,
        "41304>192.168.1.21 " + bobHasIt};
    EXPECT_EQ(ears.take(7), expected);
}

TEST_F(Control, LinkedConsoleMaySendUntilItIsTakenOver) {
    startHeldByAnn();
    quillon::Session session(kBoard, 80, kConsole, 2s);
    type(kThird, 'x');
    type(kConsole, 'a');
    type(kOther, 'b');
    type(kThird, 's', "software=");
    // Two threads serve records and commands, so the records must arrive before the apply.
    EXPECT_TRUE(arrives("abs"));
    EXPECT_EQ(session.holderAfter("apply|192.168.1.30-cid|192.168.1.30|6", 15s).level, 6);
    type(kConsole, 'x');
    type(kThird, 'c');
    EXPECT_TRUE(arrives("absc"));
    EXPECT_FALSE(session.holderAfter("disconnect|192.168.1.30-cid", 15s).linked);
}

std::string saidOnTwoConsoles(const std::string &commands) {
    return test::run(
               "quillon-board --console 192.168.1.20 --console 192.168.1.21 -- bash -c '"
               "board=\"quillon-console --to 192.168.1.10\" "
               "ann=\"$board --from 192.168.1.20\" bob=\"$board --from 192.168.1.21\"; "
               "heard() { until grep -qs \"$1\" \"$2\"; do sleep 0.02; done; }; " +
               commands + "'")
        .said;
}

void expectInOrder(const std::string &said, std::initializer_list<const char *> texts) {
    std::size_t at = 0;
    for (const char *text : texts) {
        at = said.find(text, at);
        ASSERT_NE(at, std::string::npos) << text << "\nin\n" << said;
        ++at;
    }
}

TEST(QuillonConsole, TakesControlAndSaysWhyNot) {
    expectInOrder(
        saidOnTwoConsoles("$ann connect --name ann --level 3; $ann permissions on; "
                          "$ann connect --name ann --level 3; "
                          "$ann connect --name ann --level 3 --output 192.168.1.22; "
                          "$bob connect --name bob --level 2; $bob disconnect --name 192.168.1.2; "
                          "$bob apply --name bob --level 4 --json; "
                          "$bob disconnect --name bob --level 4; $bob disconnect --name bob; "
                          "$ann apply --name a=b --level 3; echo status $?; "
                          "$ann apply --name ann; echo status $?"),
        {"permissions are off", "result    linked\n", "output 192.168.1.22 is linked\n",
         "192.168.1.20-ann holds control, level 3\n", "192.168.1.20-ann holds control, level 3\n",
         "{\"result\":\"taken over from 192.168.1.20-ann\",",
         "\"linked\":true,\"user\":\"192.168.1.21-bob\",\"level\":4}\n",
         "192.168.1.21-bob no longer holds control\n", "nobody holds control\n",
         "\"192.168.1.20-a=b\" holds", "status 2\n", "--level is required", "status 2\n"});
}

TEST(QuillonConsole, WatchRefusesGrantsAndPassesRepliesOn) {
    expectInOrder(
        saidOnTwoConsoles(
            "$ann permissions on; $ann connect --name ann --level 3 >/dev/null; "
            "$ann watch --refuse >/data/a 2>&1 & a=$!; $bob watch --json >/data/b 2>&1 & b=$!; "
            "heard watching /data/a; heard watching /data/b; "
            "$ann watch; $bob apply --name bob --level 3; kill -INT $a; wait $a; echo $?; "
            "$ann watch --grant >/data/g 2>&1 & a=$!; heard watching /data/g; "
            "$bob apply --name bob --level 3; heard \"bob holds control\" /data/g; kill $a $b; "
            "wait; "
            "cat /data/a /data/g; grep -c reply /data/b"),
        {"cannot listen at 192.168.1.20:2333", "refused by 192.168.1.20-ann\n", "0\n",
         "granted by 192.168.1.20-ann\n", "192.168.1.21-bob asks for control\n", "refused\n",
         "192.168.1.21-bob asks for control\n", "granted\n",
         "192.168.1.20-ann no longer holds control, level 3\n",
         "192.168.1.21-bob holds control, level 3\n", "2\n"});
}

TEST(QuillonConsole, WatchAsksOnATerminal) {
    expectInOrder(
        saidOnTwoConsoles(
            "$ann permissions on; $ann connect --name ann --level 3 >/dev/null; "
            "(heard left.out /data/a; echo y; heard bob.holds /data/a; printf \"\\003\") | "
            "script -qefc \"$ann watch\" /dev/null >/data/a & "
            "heard watching /data/a; "
            "$bob apply --name bob --level 3; wait; cat /data/a"),
        {"granted by 192.168.1.20-ann\n",
         "Question 1: give control of 192.168.1.10 to 192.168.1.21-bob?", "granted"});
}

}  // namespace
