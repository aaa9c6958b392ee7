// A second copy of the daemon's settings, for power cuts.
//
// The daemon rewrites quillon.ini in place. A cut soon after that leaves the file empty, and an
// empty file switches permissions off. The copy stands beside it as quillon.ini.kept.
#pragma once

#include <stdexcept>
#include <string>

namespace service {

constexpr char kSettingsName[] = "quillon.ini", kCopyName[] = "quillon.ini.kept";
/// Where a file stays that the copy replaced, unless it was empty.
constexpr char kRefusedName[] = "quillon.ini.refused";

/// True for what the daemon writes: the line "[serial]", its 25 keys in their order, each with a
/// value on a line of its own, and a line feed at the end.
bool isComplete(const std::string &settings);

enum class Kept {
    kNothing,  ///< the file is missing, incomplete, or was being written
    kSame,     ///< the copy has the same text
    kCopied,
};
/// Copies the settings of a folder if they are complete, and returns when both are on the disk.
/// Settings that are older than the copy are copied only with evenOlder: just written, by a clock
/// that went back. Throws std::system_error when the disk refuses.
Kept keepSettings(const std::string &folder, bool evenOlder);

enum class Restored {
    kNone,     ///< the settings are complete and not older than the copy
    kNoCopy,   ///< they are incomplete or missing, and so is the copy
    kMissing,  ///< the copy is back, because there was no file
    kIncomplete,
    kOlder,
};
/// Puts the copy back where the settings are missing, incomplete or older than it. To be called
/// before each start of the daemon. Throws std::system_error when the disk refuses.
Restored restoreSettings(const std::string &folder);

/// The value of a key as the daemon would find it, or otherwise when there is none. Reads no more
/// than a file of that folder, whoever may have made it, and does not wait.
std::string settingIn(const std::string &folder, const std::string &key,
                      const std::string &otherwise);

struct Comparison {
    std::string words;
    bool good = false;  ///< both are complete and the same
};
Comparison compareSettings(const std::string &folder);

}  // namespace service
