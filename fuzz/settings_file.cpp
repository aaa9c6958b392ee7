// Any settings file, and the link table that is read from it.

#include "fuzz/invariants.h"
#include "fuzz/world.h"
#include "main/link_table.h"
#include "software_config.h"
#include "state.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *bytes, std::size_t size) {
    world::reset();
    FILE *file = fopen("./quillon.ini", "wb");
    fwrite(bytes, 1, size, file);
    fclose(file);
    const auto config = Singleton<SoftwareConfig>::getInstance();
    config->ReadConfig();
    iniCurrentInfo();
    world::require(curLink_num <= kMaxOutputs, "eight outputs");
    world::require(memchr(curtInfo.curName, 0, sizeof curtInfo.curName) != nullptr, "name's end");
    config->SaveConfig();
    SoftwareConfig again;
    again.ReadConfig();
    again.SaveConfig();
    return 0;
}
