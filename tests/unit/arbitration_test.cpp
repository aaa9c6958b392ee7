#include "main/arbitration.h"

#include <algorithm>
#include <array>
#include <random>

#include "main/link_table.h"
#include "main/operator_loop.h"
#include "sim/host/network.h"
#include "software_config.h"
#include "state.h"
#include "tests/support/console_ears.h"
#include "tests/support/support.h"
#include "udpsocket/udpsocket.h"

namespace {

constexpr char kAnn[] = "192.168.1.20-ann";

// Datagrams to the consoles, as ConsoleEars returns them.
using Heard = std::vector<std::string>;

// A command, the holder's answer if asked (none: no answer), and the datagrams to consoles.
struct LinkStep {
    std::string command;
    std::optional<std::string> answer;
    Heard heard;
};

// The rules of who holds control of an endpoint, written a second time and in another way, to
// compare with the daemon.
struct LinkModel {
    static constexpr char kEndpoint[] = "192.168.1.10";
    // Answers of the holder. All other replies grant control.
    static constexpr char kNoReply[] = "what?", kRefusal[] = "reply|a|0|0";

    std::string holder;
    int level = 0;
    std::vector<std::string> outputs;
    // The same, as the settings file keeps it.
    std::string savedName;
    int savedLevel = 0;
    std::array<std::string, 8> savedOutputs;

    // Each command returns the datagrams to the consoles, with the questions for consent.

    Heard connect(const std::string &name, const std::string &ip, int wanted) {
        if (!outputs.empty() && name == holder) {
            if (std::count(outputs.begin(), outputs.end(), ip) == 0) addOutput(ip);
            return {};
        }
        if (!outputs.empty() && level > wanted) {
            const std::string text = about("connect", '1', holder, level);
            return {"41304>" + addressOf(name) + text + "+" + std::to_string(65 - text.size())};
        }
        const std::string text = about("connect", '1', name, wanted);
        Heard heard;
        if (!outputs.empty()) {
            heard.push_back("41304>" + addressOf(holder) + text);
            outputs.pop_back();
        }
        heard.push_back("41304>" + addressOf(name) + text);
        link(name, ip, wanted);
        return heard;
    }

    Heard apply(const std::string &name, const std::string &ip, int wanted,
                const std::optional<std::string> &answer) {
        if (!outputs.empty() && name == holder) {
            addOutput(ip);
            return {};
        }
        Heard heard;
        if (asks(name, wanted)) {
            const std::string me = kEndpoint;
            for (const std::string &output : outputs)
                heard.push_back("41303>" + output + " apply|" + me + "|" + name);
            if (answer == kNoReply) return heard;
            const char *code = !answer ? "2" : answer == kRefusal ? "0" : "1";
            heard.push_back("41302>" + ip + " reply|" + me + "|" + code);
            if (*code != '1') return heard;
        }
        if (!outputs.empty())
            heard.push_back("41304>all" + about("disconnect", '0', holder, level));
        outputs.clear();
        link(name, ip, wanted);
        heard.push_back("41304>all" + about("connect", '1', name, wanted));
        return heard;
    }

    Heard disconnect(const std::string &name) {
        if (holder.rfind(name, 0) != 0) return {};
        const Heard heard{"41304>all" + about("disconnect", '0', holder, level)};
        holder.clear();
        level = savedLevel = 0;
        outputs.clear();
        savedName = "0";
        savedOutputs.fill("0.0.0.0");
        return heard;
    }

    // True when "apply" would ask the holder.
    bool asks(const std::string &name, int wanted) const {
        return !outputs.empty() && name != holder && level >= wanted;
    }

    // As a new process, which reads the table from the settings.
    void restart() {
        outputs.clear();
        holder = savedName == "0" ? "" : savedName;
        level = savedLevel;
        for (const std::string &output : savedOutputs) {
            if (holder.empty() || output == "0.0.0.0" || output.size() < 7) break;
            outputs.push_back(output);
        }
    }

    // Carries out a random command. Users and outputs are at 192.168.1.20 to 28. Of the commands
    // that ask the holder one in 25 is used, because they take long; the reply is one of answers.
    LinkStep randomStep(std::mt19937 &random,
                        const std::vector<std::optional<std::string>> &answers) {
        constexpr const char *kNames[] = {"192.168.1.20-ann", "192.168.1.20-anna",
                                          "192.168.1.21-bob", "192.168.1.22-cid",
                                          "192.168.1.23-a-very-long-user-n"};
        const std::string name = kNames[random() % 5];
        const std::string ip = "192.168.1." + std::to_string(20 + random() % 9);
        const int wanted = static_cast<int>(random() % 7) - 2;
        const std::string fields = "|" + name + "|" + ip + "|" + std::to_string(wanted);
        const auto kind = random() % 18;
        if (kind == 0) {
            const std::string part = name.substr(0, random() % (name.size() + 1));
            // Without a name, the level would be read as the name.
            return {"disconnect" + (part.empty() ? "" : "|" + part + "|0"), {}, disconnect(part)};
        }
        if (kind < 9 || (asks(name, wanted) && random() % 25 != 0))
            return {"connect" + fields, {}, connect(name, ip, wanted)};
        const auto &answer = answers[random() % answers.size()];
        return {"apply" + fields, answer, apply(name, ip, wanted, answer)};
    }

    // Name, level and the eight slots, joined by bars.
    std::string table() const {
        std::string all = holder + "|" + std::to_string(level);
        for (std::size_t i = 0; i < 8; ++i) all += "|" + (i < outputs.size() ? outputs[i] : "");
        return all;
    }

    // The lines of the settings file that keep the table.
    std::string settings() const {
        std::string lines =
            "connect_name=" + savedName + "\nconnect_per=" + std::to_string(savedLevel) + "\n";
        for (std::size_t i = 0; i < 8; ++i)
            lines += "connect_ip" + std::to_string(i) + "=" + savedOutputs[i] + "\n";
        return lines;
    }

  private:
    static std::string about(const char *word, char linked, const std::string &name, int points) {
        return std::string(" ") + word + "|" + kEndpoint + "|" + linked + "|" + name + "|" +
               std::to_string(points);
    }

    static std::string addressOf(const std::string &name) { return name.substr(0, name.find('-')); }

    void addOutput(const std::string &ip) {
        if (outputs.size() == 8) return;
        outputs.push_back(ip);
        savedOutputs[outputs.size() - 1] = ip;
    }

    void link(const std::string &name, const std::string &ip, int wanted) {
        holder = savedName = name;
        level = savedLevel = wanted;
        addOutput(ip);
    }
};

class Arbitration : public testing::Test {
  protected:
    Arbitration() {
        std::vector<std::string> addresses;
        for (int i = 10; i < 30; ++i) addresses.push_back("192.168.1." + std::to_string(i));
        sim::makeEth0(addresses);
        ears_.emplace();
        multi_.CreateUDPServer(41304, 0, false, true);
        apply_.CreateUDPServer(41303, 1, true, true);  // 10 s in the daemon
        operators_.CreateUDPServer(41302, 0, false, true);
        multiSocket = &multi_;
        applySocket = &apply_;
        strcpy(curLocalIp, LinkModel::kEndpoint);
        per = true;
    }

    // Carries out a command; waits for count datagrams to the consoles and returns all of them.
    Heard of(const std::string &command, std::size_t count = 0) {
        char text[kOperatorDatagram + 1] = {};
        command.copy(text, kOperatorDatagram);
        log_ = test::printedBy([&] { handleOperatorCommand(operators_, text); });
        return ears_->take(count);
    }

    bool logged(const std::string &text) const { return test::holds(log_, text); }

    static std::string table() {
        std::string all = curtInfo.curName + ("|" + std::to_string(curtInfo.curOutPre));
        for (unsigned i = 0; i < kMaxOutputs; ++i) {
            EXPECT_EQ(curtInfo.link[i], i < curLink_num ? 1 : 0);
            all += "|" + std::string(curtInfo.curOutIp[i]);
        }
        return all;
    }

    static std::string saved() { return test::readFile("./quillon.ini"); }

    std::optional<test::ConsoleEars> ears_;
    UDPSocket multi_, apply_, operators_;
    std::string log_;
};

TEST_F(Arbitration, FreeEndpointGoesToWhoConnectsOrApplies) {
    of("connect|192.168.1.20-ann|192.168.1.25|5", 1);
    EXPECT_EQ(log_.substr(log_.find("--->")),
              "--->send 192.168.1.20 data connect|192.168.1.10|1|192.168.1.20-ann|5\n"
              "[SaveConfig]-110: save ./quillon.ini succeed\n");
    of("disconnect|192.168.1.20-ann", 1);
    of("apply|192.168.1.20-ann|192.168.1.20|-1", 1);
    EXPECT_TRUE(
        logged("get name:192.168.1.20-ann ip:192.168.1.20 per:-1\n"
               "send ---->connect|192.168.1.10|1|192.168.1.20-ann|-1\n"));
}

TEST_F(Arbitration, HolderAddsOutputsUntilTheyAreEight) {
    of("connect|192.168.1.20-ann|192.168.1.20|5", 1);
    of("connect|192.168.1.20-ann|192.168.1.21|9");
    EXPECT_TRUE(
        logged("[main]-2101: connect name:192.168.1.20-ann,ip:192.168.1.21,pre:5  "
               "success\n"));
    of("connect|192.168.1.20-ann|192.168.1.21|5");
    EXPECT_TRUE(logged("[main]-2094: check same output ip in linkmap\n"));
    for (int i = 0; i < 6; ++i) of("apply|192.168.1.20-ann|192.168.1.21|0");
    EXPECT_EQ(curLink_num, 8U) << "\"apply\" links an output twice";
    const CURRENTINFO before = curtInfo;
    for (const char *command : {"connect", "apply"}) {
        of(std::string(command) + "|192.168.1.20-ann|192.168.1.29|5");
        EXPECT_TRUE(logged("[saveLinkInfo]-0: output link number over max:8,connect error\n"));
        EXPECT_FALSE(logged("success"));
        EXPECT_EQ(memcmp(&before, &curtInfo, sizeof before), 0);
    }
    // The next user takes the eighth slot; their log line names the slot after it, which is none.
    of("connect|192.168.1.21-bob|192.168.1.29|5", 2);
    EXPECT_TRUE(logged("[main]-2113: connect name:192.168.1.21-bob,ip:,pre:5  success\n"));
    EXPECT_STREQ(curtInfo.curOutIp[7], "192.168.1.29");
}

TEST_F(Arbitration, HolderIsAskedAndDecides) {
    of("connect|192.168.1.20-ann|192.168.1.20|5", 1);
    const std::pair<std::optional<std::string>, const char *> answers[] = {
        {"reply|192.168.1.20|192.168.1.22-cid|0",
         "[applyUser]-0: apply rcv:data-->reply|192.168.1.20|192.168.1.22-cid|0  end\n"
         "[applyUser]-0: apply echo refused\n"},
        {std::nullopt, "[applyUser]-0: apply timeout\n"},
        {"no", "[applyUser]-0: echo error data-->no\n"},
        // Only the first 64 bytes count.
        {"replyX|" + std::string(55, 'a') + "|0|1",
         "aaa|0  end\n[applyUser]-0: apply echo refused"},
        // Only a 0 in the fourth field refuses; 2, which means no answer elsewhere, does not.
        {"reply|0|0|2", "reply|0|0|2  end\nsend ---->connect|192.168.1.10|1|192.168.1.22-cid"}};
    for (const auto &[answer, log] : answers) {
        ears_->answer(answer);
        of("apply|192.168.1.22-cid|192.168.1.26|5");
        EXPECT_TRUE(logged(log)) << log_;
    }
}

TEST_F(Arbitration, LateAnswerDoesNotCountForTheNextQuestion) {
    of("connect|192.168.1.20-ann|192.168.1.20|5", 1);
    multi_.SendTo("127.0.0.1", 41303, "reply|a|b|1", 11);
    of("apply|192.168.1.21-bob|192.168.1.21|5", 2);
    EXPECT_TRUE(logged("del buff-->reply|a|b|1\n"));
    EXPECT_STREQ(curtInfo.curName, kAnn);
}

TEST_F(Arbitration, DisconnectTakesAnyBeginningOfTheHoldersName) {
    of("connect|192.168.1.20-ann|192.168.1.20|5", 1);
    for (const char *other : {"disconnect|192.168.1.20-annie|5", "disconnect|ann|5"})
        EXPECT_EQ(of(other), Heard{});
    EXPECT_EQ(curLink_num, 1U);
    curtInfo.heartPre = 5;  // as after a lost output
    EXPECT_EQ(of("disconnect|192.168.1.2", 1),
              Heard{"41304>all disconnect|192.168.1.10|0|192.168.1.20-ann|5"});
    EXPECT_TRUE(logged("disconnect name:192.168.1.20-ann\n "));
    const CURRENTINFO empty{};
    EXPECT_EQ(memcmp(&curtInfo, &empty, sizeof empty), 0);
    EXPECT_EQ(curLink_num, 0U);
    EXPECT_EQ(of("disconnect", 1), Heard{"41304>all disconnect|192.168.1.10|0||0"});
}

TEST_F(Arbitration, NothingChangesWithoutPermissions) {
    of("connect|192.168.1.20-ann|192.168.1.20|5", 1);
    per = false;
    for (const char *command : {"connect|192.168.1.21-bob|192.168.1.21|9",
                                "apply|192.168.1.21-bob|192.168.1.21|9", "disconnect|192"})
        EXPECT_EQ(of(command), Heard{}) << command;
    EXPECT_STREQ(curtInfo.curName, kAnn);
}

TEST_F(Arbitration, FieldsThatDoNotFitRefuseTheCommand) {
    of("connect|192.168.1.20-ann|192.168.1.20|5", 1);
    const std::string before = saved();
    const std::string longName(32, 'n'), name(31, 'n');
    for (const auto &fields : std::vector<std::string>{
             longName + "|192.168.1.20|99", "x-connect_per=99|192.168.1.20|99",
             "1.2.3.4-x|192.168.100.1000|99", "1.2.3.4-x|1.2.3.4=|99", "1.2.3.4-\x01|1.2.3.4|99",
             "1.2.3.4-x|\x7f|99", std::string(240, '%')})
        for (const char *command : {"connect|", "apply|"}) {
            EXPECT_EQ(of(command + fields), Heard{});
            EXPECT_TRUE(logged("value refused\n")) << fields;
            EXPECT_EQ(logged("get name:"), command[0] == 'a');
            EXPECT_STREQ(curtInfo.curName, kAnn);
        }
    for (const std::string &nobody : {std::string("192.168.1.20-ann="), longName}) {
        EXPECT_EQ(of("disconnect|" + nobody), Heard{});
        EXPECT_FALSE(logged("value refused\n")) << "a name that is stored nowhere";
    }
    EXPECT_EQ(saved(), before);
    // These just fit. A name without an address: there is nobody to send a message to.
    EXPECT_EQ(of("connect|" + name + "|192.168.100.100|2147483648", 1).size(), 1U);
    EXPECT_EQ(curtInfo.curName, name);
    EXPECT_EQ(curtInfo.curOutPre, 2147483647);
    EXPECT_STREQ(curtInfo.curOutIp[0], "192.168.100.100");
    EXPECT_EQ(of("connect|1234567890123456-x|192.168.1.20|2147483647"), Heard{});
    EXPECT_STREQ(curtInfo.curName, "1234567890123456-x");
    EXPECT_FALSE(logged("--->send"));
}

TEST_F(Arbitration, HolderOfAnOldFileIsServedUnderHisName) {
    strcpy(curtInfo.curName, "1.2.3.4-x=y");
    TableChange().setCount(1);
    of("connect|1.2.3.4-x=y|192.168.1.21|5");
    of("apply|1.2.3.4-x=y|192.168.1.22|5");
    EXPECT_EQ(curLink_num, 3U);
    of("connect|1.2.3.4-x=y|1.2.3.4=|5");
    EXPECT_TRUE(logged("value refused\n"));
    EXPECT_EQ(of("disconnect|1.2.3.4-x=y", 1).size(), 1U);
    EXPECT_EQ(curLink_num, 0U);
}

TEST_F(Arbitration, MissingFieldsAreEmptyAndZero) {
    EXPECT_EQ(of("connect"), Heard{});
    EXPECT_EQ(curLink_num, 1U);
    EXPECT_STREQ(curtInfo.curName, "");
    // The first word is skipped, whatever its length; blanks separate fields too.
    EXPECT_EQ(of("connected-to 192.168.1.20-ann", 1).size(), 1U);
    EXPECT_STREQ(curtInfo.curName, kAnn);
    EXPECT_EQ(curtInfo.curOutPre, 0);
    EXPECT_EQ(of("connect|192.168.1.20-ann"), Heard{});
    EXPECT_TRUE(logged("check same output ip")) << "also that of a slot that is not in use";
    EXPECT_EQ(of("apply|192.168.1.21-bob|192.168.1.21|x", 1),
              Heard{"41302>192.168.1.21 reply|192.168.1.10|2"});
}

TEST_F(Arbitration, PeersAnnounceTheirLevelInWords) {
    UDPSocket peer;
    peer.CreateUDPServer(5000, 1, true, true);
    const std::pair<const char *, int> words[] = {{"root", 0}, {"admn|x", 1}, {"user", 2}};
    for (const auto &[word, expected] : words) {
        for (const char *text : {"", "xoot", "r", word})
            multi_.SendTo("127.0.0.1", 5000, text, static_cast<long>(strlen(text)));
        int level = -1;
        test::printedBy([&] { judgeNewUser(&peer, &level); });
        EXPECT_EQ(level, expected);
    }
}

std::string load(const std::string &settings) {
    test::writeFile("./quillon.ini", settings);
    Singleton<SoftwareConfig>::getInstance()->ReadConfig();
    return test::printedBy([] { EXPECT_TRUE(iniCurrentInfo()); });
}

TEST(LinkTable, IsThatOfTheSettingsCutToItsFields) {
    curtInfo.heartPre = 7;
    EXPECT_EQ(load("connect_name=0\nconnect_ip0=192.168.1.20\n"),
              "---no user---\nthis chip set abs\n");
    const CURRENTINFO empty{};
    EXPECT_EQ(memcmp(&curtInfo, &empty, sizeof empty), 0);
    load("connect_name=" + std::string(60, 'n') + "\nconnect_ip0=" + std::string(40, '9') + "\n");
    EXPECT_EQ(std::string(curtInfo.curName), std::string(31, 'n'));
    EXPECT_EQ(std::string(curtInfo.curOutIp[0]), std::string(15, '9'));
    EXPECT_STREQ(curtInfo.curOutIp[1], "");
    // The first output that is not an address ends the list.
    EXPECT_EQ(load("connect_name=192.168.1.20-ann\nconnect_per=-3\nconnect_ip0=192.168.1.20\n"
                   "connect_ip1=192.168.1.21\nconnect_ip2=1.2.34\nconnect_ip3=192.168.1.23\n"
                   "chip_model=relative\n"),
              "get ini file output ip-->192.168.1.20\nget ini file output ip-->192.168.1.21\n"
              "this chip set relative\n");
    EXPECT_EQ(curLink_num, 2U);
    EXPECT_TRUE(rel_enable);
}

TEST_F(Arbitration, ThousandsOfCommandsByChanceGiveWhatTheModelGives) {
    LinkModel model;
    const std::vector<std::optional<std::string>> answers{
        model.kNoReply, model.kRefusal, model.kRefusal, model.kRefusal,
        "reply|a|0|1",  "reply|a|0",    "reply|a|0|2",  std::nullopt};
    std::mt19937 random(20261121);
    of("connect|192.168.1.20-ann|192.168.1.20|1", model.connect(kAnn, "192.168.1.20", 1).size());
    for (int i = 0; i < 4000 && !HasFailure(); ++i) {
        if (random() % 20 == 0) {
            curtInfo.curOutPre = model.level = 0;  // as when an output stops answering
        } else if (random() % 20 == 0) {
            Singleton<SoftwareConfig>::getInstance()->ReadConfig();
            iniCurrentInfo();
            model.restart();
        } else {
            const auto step = model.randomStep(random, answers);
            ears_->answer(step.answer);
            EXPECT_EQ(of(step.command, step.heard.size()), step.heard) << step.command;
        }
        EXPECT_EQ(table(), model.table()) << "step " << i;
        EXPECT_TRUE(test::holds(saved(), model.settings())) << saved() << model.settings();
    }
}

}  // namespace
