#include "software_config.h"

#include <sys/stat.h>

#include <algorithm>
#include <boost/lexical_cast/try_lexical_convert.hpp>
#include <cctype>
#include <cstdio>

#include "common/common.h"

namespace {

struct Setting {
    const char *key;
    const char *initial;
};

// In the order of SoftWareConfigID. Deliberate: "buad_rate" and "chip_vision" are the file's keys.
constexpr Setting kSettings[] = {
    {"com_port=", "COM3"}, {"buad_rate=", "9600"},     {"data_bits=", "8"},
    {"parity=", "N"},      {"stop_bits=", "1"},        {"vtime=", "10"},
    {"vmin=", "1"},        {"udpserver_port=", "80"},  {"per_enable=", "0"},
    {"usb_power=", "0"},   {"kvm_is_link_pc=", ""},    {"ip=", "128.0.111.55"},
    {"delay=", "20"},      {"chip_vision=", "CH9329"}, {"chip_model=", "abs"},
    {"connect_name=", ""}, {"connect_per=", "0"},      {"connect_ip0=", ""},
    {"connect_ip1=", ""},  {"connect_ip2=", ""},       {"connect_ip3=", ""},
    {"connect_ip4=", ""},  {"connect_ip5=", ""},       {"connect_ip6=", ""},
    {"connect_ip7=", ""},
};
constexpr std::size_t kSettingCount = sizeof kSettings / sizeof kSettings[0];
static_assert(kSettingCount == SoftwareConfig::kSoftWareConfigIDMax);

std::string readWhole(FILE *file) {
    // fopen accepts a folder too, which reports a size larger than the memory.
    struct stat info {};
    if (fstat(fileno(file), &info) != 0 || !S_ISREG(info.st_mode)) return {};
    if (fseek(file, 0, SEEK_END) != 0) return {};
    const long size = ftell(file);
    if (size <= 0 || fseek(file, 0, SEEK_SET) != 0) return {};
    std::string content(static_cast<std::size_t>(size), '\0');
    content.resize(fread(content.data(), 1, content.size(), file));
    return content;
}

}  // namespace

bool line_read::read_all(std::vector<std::string> &lines) {
    FILE *file = fopen(file_.c_str(), "rb");
    if (file == nullptr) return false;
    const std::string content = readWhole(file);
    fclose(file);
    if (content.empty()) return false;

    std::size_t first = lines.size();
    SplitString(content, lines, "\n");
    for (; first < lines.size(); ++first) {
        std::string &line = lines[first];
        if (!line.empty() && line.back() == '\r') line.pop_back();
    }
    return true;
}

read_ini::read_ini(const std::string &path) {
    line_read(path).read_all(lines);
}

template <class T>
bool read_ini::find_value_(const std::vector<std::string> &lines, const std::string &key, T &out) {
    for (const std::string &line : lines) {
        if (!line.empty() && (line[0] == ';' || line[0] == '#' || line[0] == '!')) continue;
        const std::size_t at = line.find(key);
        if (at == std::string::npos) continue;
        const std::string value = line.substr(at + key.size());
        // A key without a value does not clear the setting.
        return value.empty() || boost::conversion::try_lexical_convert(value, out);
    }
    return false;
}

template bool read_ini::find_value_(const std::vector<std::string> &, const std::string &,
                                    std::string &);

bool isStorable(const std::string &value) {
    return std::none_of(value.begin(), value.end(),
                        [](unsigned char byte) { return byte == '=' || iscntrl(byte) != 0; });
}

SoftwareConfig::SoftwareConfig() : configvalue_(kSettingCount), filepath_("./quillon.ini") {
    for (std::size_t id = 0; id < kSettingCount; ++id) configvalue_[id] = kSettings[id].initial;
}

bool SoftwareConfig::ReadConfig() {
    logAt("ReadConfig", 41, "read_config:%s", filepath_);
    read_ini file(filepath_);
    for (std::size_t id = 0; id < kSettingCount; ++id)
        file.find_value(kSettings[id].key, configvalue_[id]);
    return true;
}

std::vector<std::string> SoftwareConfig::lines() const {
    std::vector<std::string> all{"[serial]"};
    for (std::size_t id = 0; id < kSettingCount; ++id)
        all.push_back(kSettings[id].key + configvalue_[id]);
    return all;
}

std::string SoftwareConfig::fileText() const {
    std::string text;
    for (const std::string &line : lines()) text += line + '\n';
    return text;
}

bool SoftwareConfig::SaveConfig() {
    const std::string text = fileText();
    FILE *file = fopen(filepath_, "wb");
    if (file == nullptr) {
        logAt("SaveConfig", 115, "save %s failed", filepath_);
        return false;
    }
    fwrite(text.data(), 1, text.size(), file);
    fclose(file);
    logAt("SaveConfig", 110, "save %s succeed", filepath_);
    return true;
}

void SoftwareConfig::PrintConfig() {
    for (const std::string &line : lines()) {
        const std::string whole = line + '\n';
        fwrite(whole.data(), 1, whole.size(), stdout);
        fflush(stdout);
    }
}

bool SoftwareConfig::SetConfig(SoftWareConfigID id, std::string value) {
    if (static_cast<unsigned>(id) >= kSettingCount) return false;
    configvalue_[id] = std::move(value);
    return true;
}

std::string SoftwareConfig::GetConfig(SoftWareConfigID id) {
    if (id == kSoftWareConfigIDMax) return fileText();
    return static_cast<unsigned>(id) < kSettingCount ? configvalue_[id] : std::string();
}

bool SoftwareConfig::LoadConfigToGlobal(bool) {
    return true;
}
