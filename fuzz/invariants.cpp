#include "fuzz/invariants.h"

#include <cstring>
#include <string>

#include "fuzz/world.h"
#include "software_config.h"
#include "state.h"

using Config = SoftwareConfig;

void checkLinkTable() {
    world::require(curLink_num <= kMaxOutputs, "more than eight outputs");
    world::require(memchr(curtInfo.curName, 0, sizeof curtInfo.curName) != nullptr, "name's end");
    for (unsigned i = 0; i < kMaxOutputs; ++i) {
        world::require(curtInfo.link[i] == (i < curLink_num ? 1 : 0), "packed slots");
        world::require(memchr(curtInfo.curOutIp[i], 0, kAddressSize) != nullptr, "address's end");
    }
    const CURRENTINFO empty{};
    world::require(curLink_num != 0 || memcmp(&curtInfo, &empty, sizeof empty) == 0,
                   "an empty table holds nothing");
}

void checkSettings() {
    const auto config = Singleton<Config>::getInstance();
    config->SaveConfig();
    Config read;
    read.ReadConfig();
    for (int id = 0; id < Config::kSoftWareConfigIDMax; ++id) {
        const auto item = static_cast<Config::SoftWareConfigID>(id);
        // An empty value leaves the default.
        const std::string stored = config->GetConfig(item);
        world::require(stored.empty() || read.GetConfig(item) == stored, "a setting came back");
    }
}
