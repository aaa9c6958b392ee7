// What consoles send, and what they read.

#include <gtest/gtest.h>

#include "protocol/answers.h"
#include "protocol/input.h"
#include "protocol/requests.h"
#include "protocol/us_layout.h"
#include <quillon/discovery.h>
#include <quillon/questions.h>

namespace {

using namespace quillon;
using namespace std::chrono_literals;
using namespace std::string_literals;

TEST(Answers, SayWhoMaySendAndOnWhichOutputs) {
    Settings settings{{"per_enable", "1"}};
    EXPECT_EQ(maySend(settings, "10.0.0.1"), MaySend::kByChance);
    for (int slot = 0; slot < 8; ++slot)
        settings["connect_ip" + std::to_string(slot)] = "10.0.0." + std::to_string(slot + 20);
    settings["connect_ip1"] = "10.0.1.21";
    EXPECT_EQ(maySend(settings, "10.0.0.27"), MaySend::kYes);
    EXPECT_EQ(maySend(settings, "10.0.0.270"), MaySend::kYes) << "what begins with it, too";
    EXPECT_EQ(maySend(settings, "10.0.0.28"), MaySend::kNo);
    const Holder ann{"192.168.1.10", "ann", true, 5};
    EXPECT_EQ(whoWords(ann, settings, "bob"),
              "held by ann, level 5 | outputs 10.0.0.20 10.0.1.21 10.0.0.22 .23 .24 .25 .26 .27");
    EXPECT_EQ(whoWords(ann, Settings{{"per_enable", "1"}, {"connect_ip0", "no_address"}}, "ann"),
              "held by ann (you), level 5 | outputs no_address");
    EXPECT_EQ(whoWords({}, {}, "ann"), "it is not known yet who holds control");
}

TEST(Discovery, AnAnswerCountsForWhoSentItOnce) {
    Discovery discovery;
    discovery.take({"query|192.168.1.10|1|bob|5", "192.168.1.66", 41302});
    discovery.take({"query|kEth0Ip|0||0", "192.168.1.10", 41302});
    discovery.take({"query|192.168.1.10|1|mallory|5", "192.168.1.10", 41302});
    discovery.take({"garbage", "192.168.1.67", 41302});
    ASSERT_EQ(discovery.found().size(), 2U);
    EXPECT_EQ(discovery.found()[0].address, "192.168.1.66");
    EXPECT_FALSE(discovery.found()[1].holder.linked);
    EXPECT_EQ(discovery.surplus(), 2U);
}

TEST(Mouse, LargeTurnsAreCutIntoSteps) {
    EXPECT_EQ(wheelAt(1, 2, -200).size(), 3U);
    EXPECT_EQ(wheelAt(1, 2, -200)[1], (Datagram{0x57, 0xAB, 4, 1, 0, 1, 0, 2, 0, 0x81}));
}

std::optional<Stroke> combo(const std::string &text) {
    std::string error;
    const auto stroke = parseCombo(text, error);
    EXPECT_EQ(stroke.has_value(), error.empty()) << text;
    return stroke;
}

TEST(Combo, ReadsModifiersAndOneKey) {
    EXPECT_EQ(combo("ctrl+alt+delete"), (Stroke{0x05, 0x4C}));
    EXPECT_EQ(combo("f24"), (Stroke{0, 0x73}));
    EXPECT_EQ(combo("AltGr+/"), (Stroke{0x40, 0x38}));
    EXPECT_EQ(combo("win"), (Stroke{0x08, 0}));
    for (const char *wrong : {"", "+", "ctrl+", "a+b", "f0", "f25", "f5x", "ctrl+foo", "A+", "!"})
        EXPECT_FALSE(combo(wrong)) << wrong;
    for (std::uint8_t usage = 1; usage < 0x74; ++usage)
        if (const std::string name = keyName(usage); name.rfind("key 0x", 0) != 0) {
            EXPECT_EQ(combo(name), (Stroke{0, usage})) << name;
        }
}

TEST(LinkMessages, AreReadWholeOrNotAtAll) {
    const auto held = parseLinkMessage(std::string("connect|a|1|u|-5\0\0\0", 19)).value();
    EXPECT_EQ(held.endpoint + held.user + std::to_string(held.level), "au-5");
    EXPECT_EQ(parseLinkMessage("reply|a|2").value().code, LinkMessage::kNotAnswered);
    EXPECT_EQ(consentAnswer("c", parseLinkMessage("apply|a|u").value(), true), "reply|c|u|1");
    for (const char *text : {"", "connect", "connect|a|1|u", "apply|a|u|more", "connected|a|1|u|5"})
        EXPECT_FALSE(parseLinkMessage(text)) << text;
}

TEST(Questions, AFloodLeavesRoomForOthers) {
    Questions questions("192.168.1.10");
    const auto now = std::chrono::steady_clock::now();
    const auto ask = [&](const std::string &user, const std::string &sender) {
        return questions.add(*parseLinkMessage("apply|192.168.1.10|" + user), {"", sender, 1}, now);
    };
    for (int i = 0; i < 100; ++i) ask("mallory" + std::to_string(i), "192.168.1.66");
    EXPECT_EQ(questions.surplus(), 96U);
    for (int i = 0; i < 50; ++i) ask("eve", "192.168.2." + std::to_string(i));
    EXPECT_EQ(questions.size(), 16U);
    EXPECT_NE(ask("bob", "192.168.1.10"), nullptr);
    EXPECT_EQ(questions.front().message.user, "bob");
    EXPECT_EQ(ask("bob", "192.168.1.10"), nullptr);
    EXPECT_TRUE(questions.remove(questions.front().number));
    EXPECT_FALSE(questions.takeLate(now + 10s));
    for (int i = 0; i < 16; ++i) EXPECT_TRUE(questions.takeLate(now + 11s));
    EXPECT_TRUE(questions.empty());
    EXPECT_EQ(questions.surplus(), 0U);
}

TEST(Requests, NamesAreMadeConventionalAndHeldAgainstTheRules) {
    EXPECT_EQ(conventionalName("ann-marie", "1.2.3.4"), "1.2.3.4-ann-marie");
    EXPECT_EQ(conventionalName("5.6.7.8-ann", "1.2.3.4"), "5.6.7.8-ann");
    EXPECT_EQ(objection({std::string(31, 'n'), "255.255.255.255", 5}), "");
    for (const auto &name : {std::string(32, 'n'), "a b"s, "a|b"s, "a=b"s, "\x1b"s})
        EXPECT_NE(objection({name, "", 5}), "") << name;
    for (const char *output : {"1.2.3.4=5", "1111111111111111"})
        EXPECT_NE(objection({"a", output, 5}), "") << output;
}

TEST(TypeStrokes, ShiftGoesDownAndUpInStatesOfItsOwn) {
    std::vector<Stroke> states;
    std::string error;
    EXPECT_TRUE(typeStrokes("aB!c", states, error)) << error;
    EXPECT_EQ(
        states,
        (std::vector<Stroke>{
            {0, 4}, {0, 0}, {2, 0}, {2, 5}, {2, 0}, {2, 0x1E}, {2, 0}, {0, 0}, {0, 6}, {0, 0}}));
}

}  // namespace
