// The rules of who controls an endpoint, written down a second time and in another way, to hold
// the daemon against.
#pragma once

#include <algorithm>
#include <array>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace test {

/// What the consoles hear, as ConsoleEars writes it down.
using Heard = std::vector<std::string>;

/// A command, what the holder says if it asks him (none: nothing), and what the consoles hear.
struct LinkStep {
    std::string command;
    std::optional<std::string> answer;
    Heard heard;
};

struct LinkModel {
    static constexpr char kEndpoint[] = "192.168.1.10";
    // Of the holder, when he is asked. All other replies grant.
    static constexpr char kNoReply[] = "what?", kRefusal[] = "reply|a|0|0";

    std::string holder;
    int level = 0;
    std::vector<std::string> outputs;
    // As the settings file keeps it.
    std::string savedName;
    int savedLevel = 0;
    std::array<std::string, 8> savedOutputs;

    // What the consoles hear of a command, the questions for consent included.

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

    /// Would "apply" ask the holder?
    bool asks(const std::string &name, int wanted) const {
        return !outputs.empty() && name != holder && level >= wanted;
    }

    /// A new process, with the table of the settings.
    void restart() {
        outputs.clear();
        holder = savedName == "0" ? "" : savedName;
        level = savedLevel;
        for (const std::string &output : savedOutputs) {
            if (holder.empty() || output == "0.0.0.0" || output.size() < 7) break;
            outputs.push_back(output);
        }
    }

    /// A command by chance, carried out. Users and outputs are at 192.168.1.20 to 28. One in 25 of
    /// those that ask the holder is taken, for they take long; what he says is one of the answers.
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
            // Without a name it is the level that would be read as one.
            return {"disconnect" + (part.empty() ? "" : "|" + part + "|0"), {}, disconnect(part)};
        }
        if (kind < 9 || (asks(name, wanted) && random() % 25 != 0))
            return {"connect" + fields, {}, connect(name, ip, wanted)};
        const auto &answer = answers[random() % answers.size()];
        return {"apply" + fields, answer, apply(name, ip, wanted, answer)};
    }

    /// Name, level and the eight slots, joined by bars.
    std::string table() const {
        std::string all = holder + "|" + std::to_string(level);
        for (std::size_t i = 0; i < 8; ++i) all += "|" + (i < outputs.size() ? outputs[i] : "");
        return all;
    }

    /// The lines of the settings file that keep it.
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

}  // namespace test
