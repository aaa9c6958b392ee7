#include "main/link_table.h"

#include <sched.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "common/common.h"
#include "software_config.h"

namespace {

using Config = SoftwareConfig;

constexpr char kNobody[] = "0";
constexpr char kNoOutput[] = "0.0.0.0";
constexpr std::size_t kShortestAddress = 7;

Config::SoftWareConfigID outputId(unsigned slot) {
    return static_cast<Config::SoftWareConfigID>(Config::kConnectIp0 + slot);
}

bool isOutput(const std::string &address) {
    return address.size() >= kShortestAddress && address.rfind(kNoOutput, 0) != 0;
}

void loadLinks(Config &config, const std::string &name) {
    copyText(curtInfo.curName, sizeof curtInfo.curName, name.c_str());
    curtInfo.curOutPre = str2int(config.GetConfig(Config::kConnectPer));
    for (unsigned slot = 0; slot < kMaxOutputs; ++slot) {
        const std::string address = config.GetConfig(outputId(slot));
        if (!isOutput(address)) break;
        copyText(curtInfo.curOutIp[slot], kAddressSize, address.c_str());
        printf("get ini file output ip-->%s\n", address.c_str());
        curtInfo.link[slot] = 1;
        curLink_num = slot + 1;
    }
}

LinkedSlots copySlots() {
    LinkedSlots slots;
    slots.count = std::min(sharedLoad(curLink_num), kMaxOutputs);
    for (unsigned slot = 0; slot < kMaxOutputs; ++slot) {
        slots.linked[slot] = sharedLoad(curtInfo.link[slot]) != 0;
        for (unsigned i = 0; i < kAddressSize; ++i)
            slots.address[slot][i] = sharedLoad(curtInfo.curOutIp[slot][i]);
        slots.address[slot][kAddressSize - 1] = '\0';
    }
    return slots;
}

}  // namespace

// The counter is odd from before the first change until after the last one. A reader that finds the
// same even value before and after its copy has a consistent table.
TableChange::TableChange() {
    sharedStore(linkTableChanges, linkTableChanges + 1);
    __atomic_thread_fence(__ATOMIC_RELEASE);
}

TableChange::~TableChange() {
    __atomic_store_n(&linkTableChanges, linkTableChanges + 1, __ATOMIC_RELEASE);
}

void TableChange::setHolder(const char *name, int level) {
    copyText(curtInfo.curName, sizeof curtInfo.curName, name);
    sharedStore(curtInfo.curOutPre, level);
}

void TableChange::setOutput(unsigned slot, const char *address) {
    char text[kAddressSize];
    copyText(text, sizeof text, address);
    for (unsigned i = 0; i < kAddressSize; ++i) sharedStore(curtInfo.curOutIp[slot][i], text[i]);
}

void TableChange::setCount(unsigned count) {
    for (unsigned slot = 0; slot < kMaxOutputs; ++slot)
        sharedStore(curtInfo.link[slot], slot < count ? 1 : 0);
    sharedStore(curLink_num, count);
}

void TableChange::clear() {
    setHolder("", 0);
    sharedStore(curtInfo.heartPre, 0);
    for (unsigned slot = 0; slot < kMaxOutputs; ++slot) setOutput(slot, "");
    setCount(0);
}

LinkedSlots linkedSlots() {
    for (;; sched_yield()) {
        const unsigned before = __atomic_load_n(&linkTableChanges, __ATOMIC_ACQUIRE);
        if (before % 2 != 0) continue;
        const LinkedSlots slots = copySlots();
        __atomic_thread_fence(__ATOMIC_ACQUIRE);
        if (sharedLoad(linkTableChanges) == before) return slots;
    }
}

bool saveLinkInfo(unsigned index, bool withNameAndPer) {
    if (index >= kMaxOutputs) {
        logAt("saveLinkInfo", kNoLine, "output link number over max:8,connect error");
        return false;
    }
    const auto config = Singleton<Config>::getInstance();
    if (withNameAndPer) {
        config->SetConfig(Config::kConnectName, curtInfo.curName);
        config->SetConfig(Config::kConnectPer, std::to_string(sharedLoad(curtInfo.curOutPre)));
    }
    config->SetConfig(outputId(index), curtInfo.curOutIp[index]);
    config->SaveConfig();
    return true;
}

bool disconnectSaveInfo() {
    const auto config = Singleton<Config>::getInstance();
    config->SetConfig(Config::kConnectName, kNobody);
    config->SetConfig(Config::kConnectPer, "0");
    for (unsigned slot = 0; slot < kMaxOutputs; ++slot)
        config->SetConfig(outputId(slot), kNoOutput);
    config->SaveConfig();
    return true;
}

bool iniCurrentInfo() {
    const auto config = Singleton<Config>::getInstance();
    curtInfo = {};
    curLink_num = 0;
    const std::string name = config->GetConfig(Config::kConnectName);
    if (name == kNobody)
        puts("---no user---");
    else
        loadLinks(*config, name);

    const std::string mode = config->GetConfig(Config::kChipModel);
    printf("this chip set %.63s\n", mode.c_str());
    if (mode.rfind("rel", 0) == 0) rel_enable = true;
    if (mode.rfind("abs", 0) == 0) rel_enable = false;
    return true;
}
