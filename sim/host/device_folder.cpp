#include "sim/host/device_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace sim {

void makeDeviceFolder(const std::string &folder) {
    const auto refuse = [&](const std::string &why) {
        throw std::runtime_error("cannot make devices in " + folder + ": " + why);
    };
    struct stat info {};
    if (mkdir(folder.c_str(), 0770) != 0 && errno != EEXIST) refuse(strerror(errno));
    char *absolute = realpath(folder.c_str(), nullptr);
    if (absolute == nullptr || stat(absolute, &info) != 0) refuse(strerror(errno));
    const std::string path = std::string(absolute) + "/";
    free(absolute);
    if (path == "//") refuse("it is the root folder");
    for (const char *system : {"/dev/", "/proc/", "/sys/"})
        if (path.rfind(system, 0) == 0) refuse("it is the system's own");
    if (!S_ISDIR(info.st_mode)) refuse(strerror(ENOTDIR));
    // Somebody else could change what the names in it stand for.
    if (info.st_uid != geteuid() || (info.st_mode & S_IWOTH) != 0)
        refuse("it must belong to you, and others must not write to it");
}

bool shareWithGroup(int fd, const std::string &folder) {
    struct stat info {};
    return stat(folder.c_str(), &info) == 0 &&
           fchown(fd, static_cast<uid_t>(-1), info.st_gid) == 0 && fchmod(fd, 0660) == 0;
}

void linkDevice(const std::string &folder, const std::string &name, const std::string &target) {
    const std::string path = folder + "/" + name;
    struct stat former {};
    if (lstat(path.c_str(), &former) == 0 && !S_ISLNK(former.st_mode))
        throw std::runtime_error(path + " exists and is not ours");
    unlink(path.c_str());
    if (symlink(target.c_str(), path.c_str()) != 0)
        throw std::runtime_error("cannot make " + path + ": " + strerror(errno));
}

}  // namespace sim
