#include "sim/host/picture_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace sim {
namespace {

[[noreturn]] void fail(const std::string &what) {
    throw std::runtime_error(what + ": " + strerror(errno));
}

// Below /tmp anybody could have made a folder of that name.
std::string ownFolder() {
    const char *runtime = getenv("XDG_RUNTIME_DIR");
    struct stat info {};
    // With sudo it may be another user's.
    const bool own = runtime != nullptr && *runtime == '/' && stat(runtime, &info) == 0 &&
                     S_ISDIR(info.st_mode) && info.st_uid == getuid();
    std::string folder = own ? runtime + std::string("/quillon-board")
                             : "/tmp/quillon-board-" + std::to_string(getuid());
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) fail("cannot make " + folder);
    if (lstat(folder.c_str(), &info) != 0) fail(folder);
    if (!S_ISDIR(info.st_mode) || info.st_uid != getuid() || (info.st_mode & 077) != 0)
        throw std::runtime_error(folder +
                                 " is not a folder of this user alone; "
                                 "XDG_RUNTIME_DIR can name another one");
    return folder;
}

}  // namespace

int listenForViewers(const std::string &name, std::string &path) {
    if (name.empty() || name[0] == '.' || name.find('/') != std::string::npos)
        throw std::runtime_error("with --vnc the name cannot begin with a point or hold a slash");
    path = ownFolder() + "/" + name + ".vnc";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) throw std::runtime_error("the name is too long");
    memcpy(address.sun_path, path.data(), path.size());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) fail("socket");
    unlink(path.c_str());
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(fd, 8) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        fail("cannot listen at " + path);
    }
    return fd;
}

}  // namespace sim
