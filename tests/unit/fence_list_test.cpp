// The list of who may reach the daemon.

#include "service/fence/fence_list.h"

#include "service/fence/rules.h"
#include "tests/support/support.h"

namespace {

std::string complaintAbout(const std::string &text) {
    return test::complaintOf([&] { service::parseFenceList(text, "list"); });
}

TEST(FenceList, ErrorsNameFileLineAndReason) {
    const std::string good = "interface = \"eth0\"\n";
    EXPECT_EQ(complaintAbout(good), "");
    for (const auto &[text, complaint] :
         {std::pair{"consoles = []", "list: the key interface is missing"},
          {"interface = 3", "list, line 1: interface is the name of a network interface"},
          {"interface = \"eth0; drop\"", "list, line 1: interface is the name"},
          {"interface = \"eth0\"\nconsole = []", "list, line 2: unknown key \"console\""},
          {"interface = \"eth0\"\nconsoles = \"192.168.1.20\"", "list, line 2: consoles is a list"},
          {"consoles = [\n\"192.168.1.20\",\n\"192.168.1.300\"]",
           "list, line 3: \"192.168.1.300\""},
          {"operators = [\"192.168.1.1 accept\"]", "is not an IPv4 address or network"},
          {"software = [7]", "list, line 1: an address is a text in quotes"},
          {"consoles = [\"192.168.1.20/24\"]", "the bits behind the first 24"},
          {"consoles = [\"0.0.0.0/0\"]", "the length of a network is 1 to 32"},
          {"consoles = [\"10.0.0.0/+8\"]", "the length of a network is 1 to 32"},
          {"consoles = [\"10.0.0.0/18\", \"10.1.0.0/17\"]", "the networks have 49152 addresses"},
          {"record_port = 41302", "record_port is one of the daemon's other ports"},
          {"record_port = 70000", "record_port is a number from 1 to 65535"},
          {"# für alle\ninterface = \"eth0\"\nfür = 1", "list, line 3: only a line of comment"},
          {"interface = \"eth0", "list, line 1: "}})
        EXPECT_NE(complaintAbout(text).find(complaint), std::string::npos) << text << "\n"
                                                                           << complaintAbout(text);
    std::string many = good + "consoles = [";
    for (int i = 0; i < 257; ++i) many += "\"10.0." + std::to_string(i / 250) + ".7\",";
    EXPECT_NE(complaintAbout(many + "]").find("more than 256 addresses"), std::string::npos);
}

TEST(FenceList, SaysWhatMayNotBeMeant) {
    const auto list = service::parseFenceList(
        "interface = \"nowhere0\"\nconsoles = [\"10.0.0.0/20\"]\nsoftware = [\"10.0.0.9\"]",
        "list");
    std::string all;
    for (const std::string &odd : service::oddities(list)) all += odd + "\n";
    test::expectHeld(all,
                     {"no interface nowhere0", "operators is empty", "10.0.0.0/20 is a network",
                      "10.0.0.9 may type also while permissions are on"});
}

}  // namespace
