#include "terminal/own_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace quillon {

// Below /tmp anybody could have made a folder of that name.
void makeOwnFolder(const std::string &path) {
    struct stat info {};
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        throw std::runtime_error("cannot make " + path + ": " + strerror(errno));
    if (lstat(path.c_str(), &info) != 0) throw std::runtime_error(path + ": " + strerror(errno));
    if (!S_ISDIR(info.st_mode) || info.st_uid != getuid() || (info.st_mode & 077) != 0)
        throw std::runtime_error(path +
                                 " is not a folder of this user alone; "
                                 "XDG_RUNTIME_DIR can name another one");
}

std::string ownFolder(const std::string &name) {
    const char *runtime = getenv("XDG_RUNTIME_DIR");
    struct stat info {};
    // With sudo it may be another user's.
    const bool own = runtime != nullptr && *runtime == '/' && stat(runtime, &info) == 0 &&
                     S_ISDIR(info.st_mode) && info.st_uid == getuid();
    std::string folder =
        own ? runtime + ("/" + name) : "/tmp/" + name + "-" + std::to_string(getuid());
    makeOwnFolder(folder);
    return folder;
}

std::string besideThisProgram(const std::string &name) {
    char path[4096] = "";
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    const std::string self(path, static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
    return self.substr(0, self.rfind('/') + 1) + name;
}

}  // namespace quillon
