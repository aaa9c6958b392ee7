#include "terminal/terminal_input.h"

#include <gtest/gtest.h>

#include "console/control/keys.h"

namespace {

using quillon::TerminalEvent, quillon::TerminalInput, quillon::Stroke;

std::string inWords(const TerminalEvent &event) {
    constexpr const char *kKinds[] = {"tap",   "press", "repeat", "release", "mouse",
                                      "paste", "focus", "keys",   "unknown"};
    std::string words = kKinds[event.kind];
    if (event.kind <= TerminalEvent::kRelease) {
        static const quillon::Typist us{{}};
        const auto strokes = quillon::strokesOf(event, us);
        words = strokes.empty() ? "no key" : words + " " + quillon::strokeName(strokes.back());
    }
    if (event.kind == TerminalEvent::kMouse)
        words += " " + std::to_string(event.column) + "," + std::to_string(event.row) + " " +
                 std::to_string(event.action) + " " + std::to_string(event.button);
    if (event.on) words += " on";
    return words + (event.text.empty() ? "" : " " + event.text);
}

std::string read(TerminalInput &input, const std::string &bytes) {
    std::string all;
    for (const TerminalEvent &event : input.take(bytes))
        all += (all.empty() ? "" : ", ") + inWords(event);
    return all;
}

TEST(TerminalInput, ReadsWhatTerminalsSend) {
    const std::pair<std::string, std::string> cases[] = {
        {"aZ~", "tap a, tap shift+z, tap shift+`"},
        {"\r\t\x7f\x03\x1d", "tap enter, tap tab, tap backspace, tap ctrl+c, tap ctrl+]"},
        {std::string(1, '\0'), "tap ctrl+space"},
        {"\x1bx\x1b\r", "tap alt+x, tap alt+enter"},
        {"\x1b[A\x1bOP\x1b[15~\x1b[1;5C\x1b[3;2~\x1b[Z\x1b[[B",
         "tap up, tap f1, tap f5, tap ctrl+right, tap shift+delete, tap shift+tab, tap f2"},
        {"\x1b[<0;1;2M\x1b[<35;10;5M\x1b[<2;10;5m\x1b[<65;1;1M",
         "mouse 0,1 1 1, mouse 9,4 0 4, mouse 9,4 2 3, mouse 0,0 3 -1"},
        {"\x1b[I\x1b[O", "focus on, focus"},
        {"\x1b[200~a\rb\r\nc\x1b[Ad\x1b[201~e", "paste a\nb\nc\x1b[Ad, tap e"},
        {"\xc3\xa9\xc1\x81", "no key, unknown \xc1\x81"},
        {"\x1b[M !!a\xc3\x1b[A\x1b[\x1b[B", "tap a, tap up, tap down"},
        {"\x1b[?62;22c\x1b[99999999999999;9~\x1b[1;1;1;1;1;1;1;1x", "unknown, unknown"},
    };
    for (const auto &[bytes, words] : cases) {
        TerminalInput input;
        EXPECT_EQ(read(input, bytes), words);
        EXPECT_FALSE(input.pending());
        TerminalInput slow;  // byte by byte
        std::string all;
        for (const char c : bytes) {
            const std::string some = read(slow, std::string(1, c));
            all += (all.empty() || some.empty() ? "" : ", ") + some;
        }
        EXPECT_EQ(all, words);
    }
}

TEST(TerminalInput, FunctionKeysHaveTheirNumbers) {
    // As xterm's page of control sequences lists them; 16, 22, 27 and 30 are not used.
    const int numbers[] = {11, 12, 13, 14, 15, 17, 18, 19, 20, 21, 23, 24, 25, 26, 28, 29, 31, 32};
    int key = 0;
    for (const int number : numbers) {
        TerminalInput input;
        EXPECT_EQ(read(input, "\x1b[" + std::to_string(number) + "~"),
                  "tap f" + std::to_string(++key));
    }
}

TEST(TerminalInput, KittyTellsPressesAndReleasesByPlaceOnTheKeyboard) {
    TerminalInput input;
    EXPECT_EQ(read(input, "\x1b[?15u"), "keys on");
    EXPECT_EQ(read(input, "\x1b[97u\x1b[97;1:2u\x1b[97;1:3u"), "press a, repeat a, release a");
    EXPECT_EQ(read(input, "\x1b[233::50;2u"), "press shift+2");  // a key of a French keyboard
    EXPECT_EQ(read(input, "\x1b[57442;5u\x1b[57400u\x1b[57414u"),
              "press ctrl+key 0xe0, press key 0x59, press key 0x58");
    EXPECT_EQ(read(input, "\x1b[A\x1b[1;1:3A\x1b[3;5:1~"),
              "press up, release up, press ctrl+delete");
    EXPECT_EQ(read(input, "\x1b[27u\x1b[1114111u"), "press escape, no key");
}

TEST(TerminalInput, LoneEscapeIsTheKeyAndGarbageEnds) {
    TerminalInput input;
    EXPECT_EQ(read(input, "\x1b"), "");
    EXPECT_TRUE(input.pending());
    ASSERT_EQ(input.flush().size(), 1U);
    EXPECT_EQ(read(input, "\x1b\x1b[A"), "tap escape, tap up");
    read(input, "\x1b[");
    EXPECT_EQ(inWords(input.flush().at(0)), "tap alt+[");
    EXPECT_EQ(read(input, "\x1b[200~half"), "");
    EXPECT_EQ(inWords(input.flush().at(0)), "paste half");
    EXPECT_EQ(read(input, "\x1b[?1u\x1b[99;5u"), "keys, tap ctrl+c");  // no release reports
    EXPECT_EQ(read(input, "\x1b[" + std::string(100, '1') + "a").find("unknown"), 0U);
    read(input, "\x1b[1");
    EXPECT_TRUE(input.flush().empty());
    EXPECT_EQ(read(input, "a"), "tap a");
}

}  // namespace
