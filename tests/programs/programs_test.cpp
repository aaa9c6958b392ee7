// Tests of what several programs have in common.

#include "tests/support/support.h"

namespace {

using test::expectHeld, test::run;

TEST(Quillon, ReleaseBinaryIsHardened) {
#if !defined(NDEBUG) || defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "not a release build";
#endif
    expectHeld(run("readelf -hdlW --dyn-syms " PROGRAM_DIR "/quillon").said,
               {"Position-Independent Executable", "GNU_RELRO", "BIND_NOW", "__stack_chk_fail",
                "__printf_chk"});
}

TEST(Programs, TellTheOneVersion) {
    const std::string version =
        run("sed -n 's/^project(quillon VERSION \\([0-9.]*\\).*/\\1/p' " SOURCE_DIR
            "/CMakeLists.txt")
            .said;
    ASSERT_NE(version, "");
    for (const std::string program :
         {"quillon-board", "quillon-console", "quillon-doctor", "quillon-fence", "quillon-flash",
          "quillon-gateway", "quillon-guard", "quillon-health"})
        EXPECT_EQ(run(program + " --version").said, program + " " + version);
    EXPECT_EQ(
        test::readFile(SOURCE_DIR "/NEWS.md").find("## " + version.substr(0, version.size() - 1)),
        test::readFile(SOURCE_DIR "/NEWS.md").find("## "));
}

}  // namespace
