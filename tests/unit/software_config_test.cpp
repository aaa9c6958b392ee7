#include "software_config.h"

#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/support.h"

namespace {

using Config = SoftwareConfig;
using test::printedBy;

constexpr char kFile[] = "./quillon.ini";

constexpr char kDefaults[] =
    "[serial]\ncom_port=COM3\nbuad_rate=9600\ndata_bits=8\nparity=N\nstop_bits=1\nvtime=10\n"
    "vmin=1\nudpserver_port=80\nper_enable=0\nusb_power=0\nkvm_is_link_pc=\nip=128.0.111.55\n"
    "delay=20\nchip_vision=CH9329\nchip_model=abs\nconnect_name=\nconnect_per=0\nconnect_ip0=\n"
    "connect_ip1=\nconnect_ip2=\nconnect_ip3=\nconnect_ip4=\nconnect_ip5=\nconnect_ip6=\n"
    "connect_ip7=\n";

std::string valueOf(const std::string &file, const std::string &key) {
    test::writeFile("lookup.ini", file);
    std::string value = "unchanged";
    const bool found = read_ini("lookup.ini").find_value(key, value);
    return (found ? "found " : "missing ") + value;
}

std::vector<std::string> linesOf(const std::string &file) {
    test::writeFile("lines.txt", file);
    std::vector<std::string> lines;
    line_read("lines.txt").read_all(lines);
    return lines;
}

TEST(LineRead, KnowsEveryLineEnd) {
    using Lines = std::vector<std::string>;
    EXPECT_EQ(linesOf("a=1"), (Lines{"a=1"}));
    EXPECT_EQ(linesOf("a=1\r\nb=2\r"), (Lines{"a=1", "b=2"}));
    EXPECT_EQ(linesOf("\na\n\nb\n"), (Lines{"", "a", "", "b"}));
    EXPECT_EQ(linesOf("a\rb\n"), (Lines{"a\rb"}));
    EXPECT_EQ(linesOf(""), Lines{});
    EXPECT_EQ(linesOf(std::string("a\0b\n", 4)), (Lines{std::string("a\0b", 3)}));
}

TEST(LineRead, SurvivesWhatIsNoTextFile) {
    std::vector<std::string> lines;
    EXPECT_FALSE(line_read("no such file").read_all(lines));
    mkdir("folder", 0755);
    EXPECT_FALSE(line_read("folder").read_all(lines));
    EXPECT_TRUE(lines.empty());
}

TEST(ReadIni, FirstLineThatHoldsTheKeyDecides) {
    EXPECT_EQ(valueOf(";k=1\n#k=1\n!k=1\nk=2\nk=3\n", "k="), "found 2");
    EXPECT_EQ(valueOf("xk=3\nk=2\n", "k="), "found 3");
    EXPECT_EQ(valueOf("k= 2 = x \n", "k="), "found  2 = x ");
    EXPECT_EQ(valueOf("k=\nk=2\n", "k="), "found unchanged");
    EXPECT_EQ(valueOf("K=2\n", "k="), "missing unchanged");
}

TEST(SoftwareConfig, FreshStartHasTheDefaultsAndWritesNothing) {
    Config config;
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(config.ReadConfig()); }),
              "[ReadConfig]-41: read_config:./quillon.ini\n");
    EXPECT_EQ(config.GetConfig(Config::kSoftWareConfigIDMax), kDefaults);
    EXPECT_NE(access(kFile, F_OK), 0);
    EXPECT_EQ(printedBy([&] { config.PrintConfig(); }), kDefaults);
}

TEST(SoftwareConfig, SavesAllAndReadsItBack) {
    Config config;
    for (int id = 0; id < Config::kSoftWareConfigIDMax; ++id)
        EXPECT_TRUE(config.SetConfig(static_cast<Config::SoftWareConfigID>(id),
                                     "value" + std::to_string(id)));
    EXPECT_EQ(printedBy([&] { EXPECT_TRUE(config.SaveConfig()); }),
              "[SaveConfig]-110: save ./quillon.ini succeed\n");
    const std::string saved = test::readFile(kFile);
    EXPECT_EQ(saved, config.GetConfig(Config::kSoftWareConfigIDMax));

    Config other;
    other.ReadConfig();
    EXPECT_EQ(other.GetConfig(Config::kSoftWareConfigIDMax), saved);
    other.SaveConfig();
    EXPECT_EQ(test::readFile(kFile), saved);
}

TEST(SoftwareConfig, RefusesIdsThatAreNoItems) {
    Config config;
    EXPECT_FALSE(config.SetConfig(Config::kSoftWareConfigIDMax, "x"));
    for (const int number : {26, 31, -1}) {
        const auto id = static_cast<Config::SoftWareConfigID>(number);
        EXPECT_FALSE(config.SetConfig(id, "x")) << number;
        EXPECT_EQ(config.GetConfig(id), "");
    }
    EXPECT_EQ(config.GetConfig(Config::kSoftWareConfigIDMax), kDefaults);
}

TEST(SoftwareConfig, SaysWhenItCannotSave) {
    mkdir(kFile, 0755);
    Config config;
    EXPECT_EQ(printedBy([&] { EXPECT_FALSE(config.SaveConfig()); }),
              "[SaveConfig]-115: save ./quillon.ini failed\n");
}

}  // namespace
