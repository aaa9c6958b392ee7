#include "main/link_table.h"

#include <gtest/gtest.h>

#include <cstring>

#include "software_config.h"
#include "state.h"
#include "support.h"

namespace {

using Config = SoftwareConfig;
using test::printedBy;

Config &config() {
    return *Singleton<Config>::getInstance();
}

std::string load(const std::string &settings) {
    test::writeFile("./quillon.ini", settings);
    config().ReadConfig();
    return printedBy([] { EXPECT_TRUE(iniCurrentInfo()); });
}

TEST(LinkTable, NobodyIsLinkedWhateverTheOutputsSay) {
    curLink_num = 5;
    curtInfo.curOutPre = 7;
    EXPECT_EQ(load("connect_name=0\nconnect_ip0=192.168.1.20\n"),
              "---no user---\nthis chip set abs\n");
    EXPECT_EQ(curLink_num, 0U);
    const CURRENTINFO empty{};
    EXPECT_EQ(memcmp(&curtInfo, &empty, sizeof empty), 0);
}

TEST(LinkTable, StoredOutputsAreAPackedList) {
    EXPECT_EQ(load("connect_name=192.168.1.20-ann\nconnect_per=-3\nconnect_ip0=192.168.1.20\n"
                   "connect_ip1=192.168.1.21\nconnect_ip2=1.2.34\nconnect_ip3=192.168.1.23\n"
                   "chip_model=relative\n"),
              "get ini file output ip-->192.168.1.20\nget ini file output ip-->192.168.1.21\n"
              "this chip set relative\n");
    EXPECT_STREQ(curtInfo.curName, "192.168.1.20-ann");
    EXPECT_EQ(curtInfo.curOutPre, -3);
    EXPECT_EQ(curLink_num, 2U);
    EXPECT_STREQ(curtInfo.curOutIp[1], "192.168.1.21");
    EXPECT_EQ(curtInfo.link[1], 1);
    EXPECT_EQ(curtInfo.link[2], 0);
    EXPECT_TRUE(rel_enable);
}

TEST(LinkTable, OverlongTextsAreCutToTheirFields) {
    load("connect_name=" + std::string(60, 'n') + "\nconnect_ip0=" + std::string(40, '9') + "\n");
    EXPECT_EQ(std::string(curtInfo.curName), std::string(31, 'n'));
    EXPECT_EQ(std::string(curtInfo.curOutIp[0]), std::string(15, '9'));
    EXPECT_STREQ(curtInfo.curOutIp[1], "");
}

TEST(LinkTable, SavesOneSlotAndSurvivesARestart) {
    load("connect_name=0\n");
    strcpy(curtInfo.curName, "192.168.1.20-ann");
    curtInfo.curOutPre = 12;
    strcpy(curtInfo.curOutIp[7], "192.168.1.27");
    strcpy(curtInfo.curOutIp[0], "192.168.1.20");
    EXPECT_TRUE(saveLinkInfo(0, true));
    curtInfo.curOutPre = 99;
    EXPECT_TRUE(saveLinkInfo(7, false));
    EXPECT_EQ(curLink_num, 0U) << "the counter is the caller's";
    const std::string saved = test::readFile("./quillon.ini");
    EXPECT_NE(saved.find("connect_name=192.168.1.20-ann\nconnect_per=12\n"
                         "connect_ip0=192.168.1.20\n"),
              std::string::npos);
    EXPECT_NE(saved.find("connect_ip7=192.168.1.27\n"), std::string::npos);
    iniCurrentInfo();
    EXPECT_EQ(curLink_num, 1U);
    EXPECT_EQ(curtInfo.curOutPre, 12);
}

TEST(LinkTable, NinthOutputIsRefused) {
    EXPECT_EQ(printedBy([] { EXPECT_FALSE(saveLinkInfo(8, true)); }),
              "[saveLinkInfo]-0: output link number over max:8,connect error\n");
    EXPECT_EQ(test::readFile("./quillon.ini"), "");
}

TEST(LinkTable, DisconnectStoresTheEmptyTable) {
    load("connect_name=n\nconnect_per=3\nconnect_ip0=192.168.1.20\n");
    EXPECT_TRUE(disconnectSaveInfo());
    const std::string saved = test::readFile("./quillon.ini");
    std::string expected = "connect_name=0\nconnect_per=0\n";
    for (int i = 0; i < 8; ++i) expected += "connect_ip" + std::to_string(i) + "=0.0.0.0\n";
    EXPECT_NE(saved.find(expected), std::string::npos) << saved;
    EXPECT_EQ(curLink_num, 1U);
}

}  // namespace
