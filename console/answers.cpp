#include "answers.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace console {

std::optional<Link> parseLink(const std::string &answer) {
    Link link;
    char mode[4] = "";
    if (sscanf(answer.c_str(), "vi_w=%d&vi_h=%d&kvm=%3s", &link.width, &link.height, mode) != 3)
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
    if (word != "query" || !std::getline(text, level)) return std::nullopt;
    holder.linked = linked == "1";
    holder.level = atoi(level.c_str());
    return holder;
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

MaySend maySend(const Settings &settings, const std::string &address) {
    const auto value = [&](const std::string &key) {
        const auto found = settings.find(key);
        return found == settings.end() ? std::string() : found->second;
    };
    if (atoi(value("per_enable").c_str()) == 0) return MaySend::kYes;
    int outputs = 0;
    for (int i = 0; i < 8; ++i, ++outputs) {
        const std::string output = value("connect_ip" + std::to_string(i));
        if (output.size() < 7 || output.rfind("0.0.0.0", 0) == 0) break;
        if (address.rfind(output, 0) == 0) return MaySend::kYes;
    }
    return outputs == 0 ? MaySend::kByChance : MaySend::kNo;
}

}  // namespace console
