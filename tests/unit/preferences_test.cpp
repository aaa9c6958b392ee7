#include "console/preferences.h"

#include "tests/support/support.h"

namespace {

using namespace quillon;

TEST(Preferences, AreReadForAnEndpointAndTheRest) {
    test::writeFile("/data/console.toml",
                    "[default]\nlayout = \"fr\"\nvariant = \"bepo\"\nname = \"ann\"\n"
                    "[endpoint.\"192.168.1.10\"]\nlayout = \"de\"\nlevel = 3\n");
    const Preferences own = readPreferences("/data/console.toml", "192.168.1.10");
    EXPECT_EQ(own.layout + "," + own.variant + "," + own.user, "de,,ann");
    EXPECT_EQ(own.level, 3);
    const Preferences other = readPreferences("/data/console.toml", "192.168.1.11");
    EXPECT_EQ(other.layout + other.variant, "frbepo");
    EXPECT_EQ(readPreferences("/data/none", "a").layout, "");

    // The command line, then the environment, then the file.
    EXPECT_EQ(layoutOf({}, nullptr, other).layout, "fr");
    EXPECT_EQ(layoutOf({}, "de(nodeadkeys)", other).variant, "nodeadkeys");
    Preferences typed;
    typed.layout = "es";
    EXPECT_EQ(layoutOf(typed, "de(nodeadkeys)", other).layout, "es");
    EXPECT_EQ(layoutOf(typed, "de(nodeadkeys)", other).variant, "");
    EXPECT_EQ(layoutOf({}, nullptr, {}).layout, "us");
}

TEST(Preferences, MistakesAreNamedWithTheirLine) {
    const std::pair<const char *, const char *> wrong[] = {
        {"[default]\nlayout = 3\n", "line 2: layout is not a text"},
        {"[default]\n\nlayuot = \"de\"\n", "line 3: unknown key \"layuot\""},
        {"[defaults]\n", "line 1: unknown table"},
        {"[default]\nlevel = \"3\"\n", "line 2: level is not a whole number"},
        {"[default\n", "line 1: "}};
    for (const auto &[text, message] : wrong) {
        test::writeFile("/data/console.toml", text);
        EXPECT_TRUE(test::holds(
            test::complaintOf([] { readPreferences("/data/console.toml", "a"); }), message))
            << text;
    }
}

}  // namespace
