// What "cmake --install" installs, and that other projects can build with it.

#include "tests/support/support.h"

namespace {

using test::expectHeld, test::Outcome, test::run;

TEST(Install, HasAllThatADeveloperNeeds) {
    const Outcome installed = run("cmake --install " PROGRAM_DIR " --prefix /installed");
    ASSERT_EQ(installed.status, 0) << installed.said;
    expectHeld(run("cd /installed && find . -type f").said,
               {"./sbin/quillon\n", "./sbin/quillon-flash\n", "./sbin/quillon-guard\n",
                "./sbin/quillon-fence\n", "./share/man/man8/quillon-fence.8\n",
                "./share/man/man5/quillon.ini.5\n",
                "./share/bash-completion/completions/quillon-console\n", "./bin/quillon-board\n",
                "./bin/quillon-console\n", "./lib/quillon/libquillon_uart.so\n",
                "./share/quillon/wireshark/quillon.lua\n"});

    const std::string flags = *SANITIZERS == '\0' ? "" : "-fsanitize=" SANITIZERS;
    // No header needs anything that is not installed.
    const Outcome headers =
        run("cd /installed/include/quillon && "
            "for header in */*.h; do echo \"#include <$header>\"; done | tac >/all.cpp && "
            "g++ -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I. /all.cpp");
    EXPECT_EQ(headers.status, 0) << headers.said;

    const Outcome built = run("cmake -G Ninja -S " SOURCE_DIR
                              "/docs/example -B /example "
                              "-DCMAKE_PREFIX_PATH=/installed -DCMAKE_CXX_FLAGS=" +
                              flags + " && cmake --build /example");
    ASSERT_EQ(built.status, 0) << built.said;
    EXPECT_EQ(run("/installed/bin/quillon-board -- /example/hello 192.168.1.10 Hi!").said,
              "the picture has 1920 x 1080 pixels\ntyped     Hi!\n");
    EXPECT_TRUE(test::holds(test::readFile(SOURCE_DIR "/docs/library.md"),
                            test::readFile(SOURCE_DIR "/docs/example/hello.cpp")))
        << "the page shows another example";
    EXPECT_EQ(run("/example/hello 127.0.0.1 Hi").said, "hello: nobody listens at 127.0.0.1:80\n");
}

}  // namespace
