#include "service/settings_guard.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <sstream>
#include <system_error>

#include "software_config.h"

namespace service {
namespace {

constexpr off_t kLargest = 64 * 1024;  // the daemon writes some 600 bytes

[[noreturn]] void fail(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

class File {
  public:
    explicit File(int fd) : fd_(fd) {}
    ~File() { close(fd_); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    int get() const { return fd_; }

  private:
    const int fd_;
};

// One process at a time looks and writes: restore runs while watch does. Each takes some
// milliseconds; who holds the lock for longer is somebody else, and must not keep the daemon down.
File lockFolder(const std::string &folder) {
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) fail("cannot open " + folder);
    for (int tries = 0; tries < 100 && flock(fd, LOCK_EX | LOCK_NB) != 0; ++tries) usleep(50'000);
    return File(fd);
}

bool operator<(const timespec &a, const timespec &b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

struct Text {
    std::string text;
    struct stat status {};
    bool complete = false;
};

// None without a regular file of that name.
std::optional<Text> readText(const std::string &path, bool sync = false) {
    const File file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file.get() < 0 && errno != ENOENT && errno != ELOOP) fail("cannot read " + path);
    Text read;
    if (file.get() < 0 || fstat(file.get(), &read.status) != 0 || !S_ISREG(read.status.st_mode))
        return std::nullopt;
    if (sync && fsync(file.get()) != 0) fail("cannot sync " + path);
    if (read.status.st_size <= kLargest) read.text.resize(kLargest);
    const ssize_t size = pread(file.get(), read.text.data(), read.text.size(), 0);
    if (size < 0) fail("cannot read " + path);
    read.text.resize(static_cast<std::size_t>(size));
    read.complete = isComplete(read.text);
    return read;
}

void syncFolder(const std::string &folder) {
    const File opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.get() < 0 || fsync(opened.get()) != 0) fail("cannot sync " + folder);
}

// Replaces a file whole: after a power cut there is the former one or the new one. It gets owner,
// mode and time of the one that it is a copy of, so that later the older one can be told.
void replace(const std::string &folder, const std::string &name, const Text &from) {
    const std::string path = folder + "/" + name, fresh = path + ".new";
    unlink(fresh.c_str());
    {
        const File file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (file.get() < 0) fail("cannot write " + fresh);
        const timespec times[2] = {from.status.st_mtim, from.status.st_mtim};
        const ssize_t written = write(file.get(), from.text.data(), from.text.size());
        if (written >= 0 && written != static_cast<ssize_t>(from.text.size())) errno = ENOSPC;
        // Only root can give it to its owner, and only what root writes is not the owner's yet.
        const bool own =
            geteuid() != 0 || fchown(file.get(), from.status.st_uid, from.status.st_gid) == 0;
        if (written != static_cast<ssize_t>(from.text.size()) || !own ||
            fchmod(file.get(), from.status.st_mode & 0777U) != 0 ||
            futimens(file.get(), times) != 0 || fsync(file.get()) != 0) {
            const int error = errno;
            unlink(fresh.c_str());
            errno = error;
            fail("cannot write " + fresh);
        }
    }
    if (rename(fresh.c_str(), path.c_str()) != 0) fail("cannot rename " + fresh);
    syncFolder(folder);
}

void keepRefused(const std::string &folder, const Text &settings) {
    try {
        replace(folder, kRefusedName, settings);
    } catch (const std::system_error &) {
        return;  // what counts is that the copy comes back
    }
}

}  // namespace

bool isComplete(const std::string &settings) {
    if (settings.empty() || settings.back() != '\n') return false;
    std::istringstream wanted(SoftwareConfig().GetConfig(SoftwareConfig::kSoftWareConfigIDMax));
    std::istringstream found(settings);
    for (std::string key, line; std::getline(wanted, key);) {
        const std::size_t equals = key.find('=');
        const std::size_t size = equals == std::string::npos ? key.size() : equals + 1;
        if (!std::getline(found, line) || line.compare(0, size, key, 0, size) != 0 ||
            (equals == std::string::npos && line != key) || line.find('\0') != std::string::npos)
            return false;
    }
    return found.peek() == std::istringstream::traits_type::eof();
}

Kept keepSettings(const std::string &folder, bool evenOlder) {
    const File lock = lockFolder(folder);
    const std::string path = folder + "/" + kSettingsName;
    const auto settings = readText(path, true);
    if (!settings || !settings->complete) return Kept::kNothing;
    const auto copy = readText(folder + "/" + kCopyName);
    struct stat now {};
    // Written again while it was read: whoever wrote it closes it, and then there is a next call.
    if (stat(path.c_str(), &now) != 0 || settings->status.st_mtim < now.st_mtim)
        return Kept::kNothing;
    const bool older = copy && copy->complete && settings->status.st_mtim < copy->status.st_mtim;
    if (older && !evenOlder) return Kept::kNothing;
    if (copy && !older && copy->text == settings->text &&
        !(copy->status.st_mtim < settings->status.st_mtim))
        return Kept::kSame;
    replace(folder, kCopyName, *settings);
    return Kept::kCopied;
}

Restored restoreSettings(const std::string &folder) {
    const File lock = lockFolder(folder);
    const auto settings = readText(folder + "/" + kSettingsName);
    const auto copy = readText(folder + "/" + kCopyName);
    const bool complete = settings && settings->complete;
    if (!copy || !copy->complete) return complete ? Restored::kNone : Restored::kNoCopy;
    const bool older = complete && settings->status.st_mtim < copy->status.st_mtim;
    if (complete && !older) return Restored::kNone;
    // A person may have put it there; it is not thrown away if there is room.
    if (settings && !settings->text.empty()) keepRefused(folder, *settings);
    replace(folder, kSettingsName, *copy);
    if (!settings) return Restored::kMissing;
    return older ? Restored::kOlder : Restored::kIncomplete;
}

std::string settingIn(const std::string &folder, const std::string &key,
                      const std::string &otherwise) {
    const auto settings = readText(folder + "/" + kSettingsName);
    std::istringstream lines(settings ? settings->text : "");
    for (std::string line; std::getline(lines, line);) {
        const std::size_t at = line.find(key + "=");
        if (at == std::string::npos || line[0] == ';' || line[0] == '#' || line[0] == '!') continue;
        const std::string value = line.substr(at + key.size() + 1);
        return value.empty() ? otherwise : value;
    }
    return otherwise;
}

Comparison compareSettings(const std::string &folder) {
    const auto settings = readText(folder + "/" + kSettingsName);
    const auto copy = readText(folder + "/" + kCopyName);
    const auto state = [](const std::optional<Text> &file) {
        return std::string(!file            ? " is missing"
                           : file->complete ? " is complete"
                                            : " is incomplete");
    };
    const bool both = settings && copy && settings->complete && copy->complete;
    const bool same = both && settings->text == copy->text;
    return {"quillon.ini" + state(settings) + "; the copy" + state(copy) +
                (same   ? " and the same"
                 : both ? " but differs"
                        : ""),
            same};
}

}  // namespace service
