#include "tests/support/support.h"

namespace {

using test::run;

TEST(Trace, IsReadByThePacketToolsWithTheDissector) {
    EXPECT_EQ(run("quillon-board --trace /data/trace.pcapng -- sh -c '"
                  "quillon-console --to 192.168.1.10 key ctrl+c; "
                  "quillon-console --to 192.168.1.10 query'")
                  .status,
              0);
    const std::string tshark = "tshark -r /data/trace.pcapng -X lua_script:" SOURCE_DIR
                               "/packaging/wireshark/quillon.lua ";
    const test::Outcome all = run(tshark);
    EXPECT_EQ(all.status, 0) << all.said;
    test::expectHeld(all.said,
                     {"QUILLON 53 keyboard: ctrl c", "HIDCHIP 14 keyboard: ctrl c",
                      "HIDCHIP 7 acknowledged: keyboard", "QUILLON 47 query", "held by nobody"});
    for (const char *sign : {"Lua Error", "Malformed", "malformed"})
        EXPECT_FALSE(test::holds(all, sign)) << all.said;
    test::expectHeld(run(tshark + "-Y 'hidchip.usage == 6 && frame.packet_flags_direction == 2' "
                                  "-T fields -e hidchip.modifiers -e hidchip.checksum.status")
                         .said,
                     {"1"});
}

}  // namespace
