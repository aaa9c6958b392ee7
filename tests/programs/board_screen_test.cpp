// The live board in a real terminal.

#include "tests/support/support.h"
#include "tests/support/tmux.h"

namespace {

using test::run, test::Tmux;

TEST(BoardScreen, ShowsTheBoardAndTakesKeys) {
    Tmux terminal("stty sane; quillon-board; echo left $?; cat");
    ASSERT_TRUE(terminal.shows("192.168.1.10:80  CH9329  line at 115200")) << terminal.screen();
    EXPECT_TRUE(terminal.shows("permissions are off"));
    const std::string console = "quillon-board enter -- quillon-console --to 192.168.1.10 ";
    EXPECT_EQ(run(console + "type 'on the screen'").said, "");
    EXPECT_TRUE(terminal.shows("on the screen"));
    EXPECT_TRUE(terminal.shows("< keyboard done"));
    EXPECT_EQ(run(console + "permissions on").status, 0);
    EXPECT_EQ(run(console + "apply --name ann --level 5").status, 0);
    EXPECT_TRUE(terminal.shows("held by 192.168.1.10-ann, level 5 | outputs 192.168.1.10"));
    terminal.press("u");
    EXPECT_TRUE(terminal.shows("usb not attached"));
    terminal.send(":video 10\r");
    EXPECT_TRUE(terminal.shows("video takes a size"));
    terminal.resize(100, 30);
    EXPECT_TRUE(terminal.shows("q quit"));
    EXPECT_GT(terminal.screen().find("q quit"), 100U);
    terminal.press("q");
    EXPECT_TRUE(terminal.shows("left 0")) << terminal.screen();
}

}  // namespace
