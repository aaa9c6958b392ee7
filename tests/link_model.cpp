#include "link_model.h"

#include <algorithm>

namespace test {
namespace {

using Heard = std::vector<std::string>;

std::string about(const char *word, char linked, const std::string &name, int level) {
    return std::string(word) + "|" + LinkModel::kEndpoint + "|" + linked + "|" + name + "|" +
           std::to_string(level);
}

std::string addressOf(const std::string &name) {
    return name.substr(0, name.find('-'));
}

}  // namespace

void LinkModel::store(bool withName) {
    if (withName) savedName = holder;
    if (withName) savedLevel = level;
    savedOutputs[outputs.size() - 1] = outputs.back();
}

Heard LinkModel::connect(const std::string &name, const std::string &ip, int wanted) {
    if (!outputs.empty() && name == holder) {
        const bool known = std::count(outputs.begin(), outputs.end(), ip) != 0;
        if (known || outputs.size() == 8) return {};
        outputs.push_back(ip);
        store(false);
        return {};
    }
    if (!outputs.empty() && level > wanted) {
        const std::string text = about("connect", '1', holder, level);
        return {"41304>" + addressOf(name) + " " + text + "+" + std::to_string(64 - text.size())};
    }
    const std::string text = " " + about("connect", '1', name, wanted);
    Heard heard;
    if (!outputs.empty()) {
        heard.push_back("41304>" + addressOf(holder) + text);
        outputs.pop_back();
    }
    heard.push_back("41304>" + addressOf(name) + text);
    holder = name;
    level = wanted;
    outputs.push_back(ip);
    store(true);
    return heard;
}

Heard LinkModel::takeOver(const std::string &name, const std::string &ip, int wanted) {
    Heard heard;
    if (!outputs.empty()) heard.push_back("41304>all " + about("disconnect", '0', holder, level));
    holder = name;
    level = wanted;
    outputs = {ip};
    store(true);
    heard.push_back("41304>all " + about("connect", '1', name, wanted));
    return heard;
}

Heard LinkModel::apply(const std::string &name, const std::string &ip, int wanted, int answer) {
    if (!outputs.empty() && name == holder) {
        if (outputs.size() == 8) return {};
        outputs.push_back(ip);
        store(false);
        return {};
    }
    if (!asks(name, wanted)) return takeOver(name, ip, wanted);
    Heard heard;
    const std::string me = kEndpoint, question = " apply|" + me + "|" + name;
    for (const std::string &output : outputs)
        heard.push_back(std::string("41303>").append(output).append(question));
    if (answer == -1) return heard;
    heard.push_back("41302>" + ip + " reply|" + me + "|" + std::to_string(answer));
    if (answer != 1) return heard;
    for (std::string &text : takeOver(name, ip, wanted)) heard.push_back(std::move(text));
    return heard;
}

Heard LinkModel::disconnect(const std::string &name) {
    if (holder.rfind(name, 0) != 0) return {};
    Heard heard{"41304>all " + about("disconnect", '0', holder, level)};
    holder.clear();
    level = 0;
    outputs.clear();
    savedName = "0";
    savedLevel = 0;
    savedOutputs.fill("0.0.0.0");
    return heard;
}

void LinkModel::restart() {
    outputs.clear();
    holder = savedName == "0" ? "" : savedName;
    level = savedLevel;
    for (const std::string &output : savedOutputs) {
        if (holder.empty() || output == "0.0.0.0" || output.size() < 7) break;
        outputs.push_back(output);
    }
}

std::string LinkModel::table() const {
    std::string all = holder + "|" + std::to_string(level);
    for (std::size_t i = 0; i < 8; ++i) all += "|" + (i < outputs.size() ? outputs[i] : "");
    return all;
}

std::string LinkModel::settings() const {
    std::string lines =
        "connect_name=" + savedName + "\nconnect_per=" + std::to_string(savedLevel) + "\n";
    for (std::size_t i = 0; i < 8; ++i)
        lines += "connect_ip" + std::to_string(i) + "=" + savedOutputs[i] + "\n";
    return lines;
}

LinkStep randomStep(LinkModel &model, std::mt19937 &random, const std::vector<int> &answers) {
    constexpr const char *kNames[] = {"192.168.1.20-ann", "192.168.1.20-anna", "192.168.1.21-bob",
                                      "192.168.1.22-cid", "192.168.1.23-a-very-long-user-n"};
    const std::string name = kNames[random() % 5];
    const std::string ip = "192.168.1." + std::to_string(20 + random() % 9);
    const int level = static_cast<int>(random() % 7) - 2;
    const std::string fields = "|" + name + "|" + ip + "|" + std::to_string(level);
    const auto kind = random() % 18;
    if (kind == 0) {
        const std::string part = name.substr(0, random() % (name.size() + 1));
        // Without a name it is the level that would be read as one.
        return {"disconnect" + (part.empty() ? "" : "|" + part + "|0"), {}, model.disconnect(part)};
    }
    if (kind < 9 || (model.asks(name, level) && random() % 25 != 0))
        return {"connect" + fields, {}, model.connect(name, ip, level)};
    const int code = answers[random() % answers.size()];
    LinkStep step{"apply" + fields, {}, model.apply(name, ip, level, code > 2 ? 1 : code)};
    // By code; the last three grant as well.
    constexpr const char *kEnds[] = {"|0", "|1", "", "", "|2"};
    if (code == -1) step.answer = "what?";
    if (code >= 0 && code != 2) step.answer = std::string("reply|192.168.1.20|0") + kEnds[code];
    return step;
}

}  // namespace test
