#include "protocol/answers.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "protocol/requests.h"

namespace quillon {
namespace {

std::string holderWords(const std::optional<Holder> &holder,
                        const std::optional<Settings> &settings, const std::string &ownName) {
    if (settings && !permissionsOn(*settings)) return "permissions are off: everybody may send";
    if (!holder) return "it is not known yet who holds control";
    if (!holder->linked) return "nobody holds control";
    return "held by " + holder->user + (holder->user == ownName ? " (you)" : "") + ", level " +
           std::to_string(holder->level);
}

// Eight outputs have to fit on one line.
std::string outputWords(const std::vector<std::string> &outputs) {
    std::string words, network;
    for (const std::string &output : outputs) {
        const std::size_t dot = output.rfind('.');
        const bool same = dot != std::string::npos && output.substr(0, dot) == network;
        words += " " + (same ? output.substr(dot) : output);
        network = output.substr(0, dot);
    }
    return words.empty() ? " none" : words;
}

}  // namespace

std::optional<Link> parseLink(const std::string &answer) {
    Link link;
    char mode[4] = "";
    if (sscanf(answer.c_str(), "vi_w=%d&vi_h=%d&kvm=%3s", &link.width, &link.height, mode) != 3)
        return std::nullopt;
    constexpr int kLargest = 65535;  // a record's positions have 16 bits
    if (link.width < 0 || link.width > kLargest || link.height < 0 || link.height > kLargest)
        return std::nullopt;
    link.relative = std::string(mode) == "rel";
    return link;
}

std::optional<LockKeys> parseLockKeys(const std::string &answer) {
    char caps[4] = "", num[4] = "";
    if (sscanf(answer.c_str(), "capslock=%3[a-z]&numlock=%3[a-z]", caps, num) != 2)
        return std::nullopt;
    return LockKeys{std::string(caps) == "on", std::string(num) == "on"};
}

std::optional<Holder> parseHolder(const std::string &answer) {
    std::istringstream text(answer);
    std::string word, linked, level;
    Holder holder;
    std::getline(text, word, '|');
    std::getline(text, holder.endpoint, '|');
    std::getline(text, linked, '|');
    std::getline(text, holder.user, '|');
    if (word != kHolderQuestion || !std::getline(text, level)) return std::nullopt;
    holder.linked = linked == "1";
    holder.level = atoi(level.c_str());
    return holder;
}

std::optional<bool> parseUsbLinked(const std::string &answer) {
    constexpr char kKey[] = "usb_is_link_pc=";
    const std::size_t at = answer.find(kKey);
    if (at == std::string::npos) return std::nullopt;
    return answer[at + sizeof kKey - 1] == '1';
}

Settings parseSettings(const std::string &text) {
    Settings settings;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos) settings[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return settings;
}

bool permissionsOn(const Settings &settings) {
    const auto found = settings.find("per_enable");
    return found != settings.end() && atoi(found->second.c_str()) != 0;
}

std::vector<std::string> linkedOutputs(const Settings &settings) {
    constexpr int kMostOutputs = 8;
    constexpr std::size_t kShortestAddress = 7;
    std::vector<std::string> outputs;
    for (int i = 0; i < kMostOutputs; ++i) {
        const auto found = settings.find("connect_ip" + std::to_string(i));
        if (found == settings.end() || found->second.size() < kShortestAddress ||
            found->second.rfind("0.0.0.0", 0) == 0)
            break;
        outputs.push_back(found->second);
    }
    return outputs;
}

MaySend maySend(const Settings &settings, const std::string &address) {
    if (!permissionsOn(settings)) return MaySend::kYes;
    const auto outputs = linkedOutputs(settings);
    for (const std::string &output : outputs)
        if (address.rfind(output, 0) == 0) return MaySend::kYes;
    return outputs.empty() ? MaySend::kByChance : MaySend::kNo;
}

std::string whoWords(const std::optional<Holder> &holder, const std::optional<Settings> &settings,
                     const std::string &ownName) {
    std::string words = holderWords(holder, settings, ownName);
    if (settings && permissionsOn(*settings))
        words += " | outputs" + outputWords(linkedOutputs(*settings));
    return words;
}

}  // namespace quillon
