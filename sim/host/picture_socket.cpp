#include "sim/host/picture_socket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "terminal/own_folder.h"

namespace sim {
namespace {

[[noreturn]] void fail(const std::string &what) {
    throw std::runtime_error(what + ": " + strerror(errno));
}

}  // namespace

int listenForViewers(const std::string &name, std::string &path) {
    if (name.empty() || name[0] == '.' || name.find('/') != std::string::npos)
        throw std::runtime_error("with --vnc the name cannot begin with a point or hold a slash");
    path = quillon::ownFolder("quillon-board") + "/" + name + ".vnc";
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
