#include "main/link_table.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "common/common.h"
#include "software_config.h"
#include "state.h"

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

}  // namespace

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
