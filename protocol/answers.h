// The short texts that an endpoint answers, taken apart. Every parse function returns none for a
// text that is no such answer. Names in an answer are foreign text: make them printable before a
// terminal or a page gets them.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quillon {

/// "vi_w=1920&vi_h=1080&kvm=abs".
struct Link {
    int width = 0, height = 0;
    bool relative = false;
};
std::optional<Link> parseLink(const std::string &answer);

/// "capslock=on&numlock=off".
struct LockKeys {
    bool caps = false, num = false;
};
std::optional<LockKeys> parseLockKeys(const std::string &answer);

/// "query|192.168.1.10|1|192.168.1.20-ann|5".
struct Holder {
    std::string endpoint, user;
    bool linked = false;
    int level = 0;
};
std::optional<Holder> parseHolder(const std::string &answer);

/// Whether a computer is on the endpoint's USB cable, see usbQuestion().
std::optional<bool> parseUsbLinked(const std::string &answer);

/// The settings file's lines, key to value.
using Settings = std::map<std::string, std::string>;
Settings parseSettings(const std::string &text);
/// Whether only linked consoles may send.
bool permissionsOn(const Settings &settings);
/// Addresses of the consoles that are linked, as far as the settings tell.
std::vector<std::string> linkedOutputs(const Settings &settings);

/// May an address send records, as the settings tell? With permissions on and nobody linked that
/// is left to chance: the endpoint decides as for the sender before.
enum class MaySend { kYes, kNo, kByChance };
MaySend maySend(const Settings &settings, const std::string &address);

/// For a person: "held by 192.168.1.20-ann (you), level 5 | outputs 192.168.1.20 .21", the holder
/// and the linked outputs, those of one network after the first by their last number. What is not
/// known yet is none.
std::string whoWords(const std::optional<Holder> &holder, const std::optional<Settings> &settings,
                     const std::string &ownName);

}  // namespace quillon
