// Any answers of consoles to questions for consent and to heartbeats.

#include "fuzz/world.h"
#include "main/arbitration.h"
#include "main/heartbeat.h"
#include "state.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    FuzzedDataProvider input(bytes, size);
    world::reset();
    strcpy(curtInfo.curName, "192.168.1.20-ann");
    strcpy(curtInfo.curOutIp[0], "192.168.1.20");
    curtInfo.link[0] = 1;
    curLink_num = 1;
    curtInfo.curOutPre = 5;
    const bool heartbeat = input.ConsumeBool();
    world::datagrams = world::chunks(input);
    if (heartbeat) {
        heartbeatPass(world::socket());
        world::require(curtInfo.curOutPre == 5 || curtInfo.heartPre == 5, "the level is kept");
        return 0;
    }
    // Datagrams that come before the question are discarded; these come after it.
    const auto answers = std::move(world::datagrams);
    world::datagrams.clear();
    world::onSleep = [&] { world::datagrams = answers; };
    const int result = applyUser("192.168.1.21-bob");
    world::require(result >= -1 && result <= 2, "a result of applyUser");
    return 0;
}
