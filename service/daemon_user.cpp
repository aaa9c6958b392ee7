#include "service/daemon_user.h"

#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace service {
namespace {

// The same as in packaging/systemd/quillon.service.
constexpr int kCapabilities[] = {CAP_NET_BIND_SERVICE, CAP_SYS_RAWIO, CAP_NET_ADMIN};

void require(bool ok, const std::string &what) {
    if (!ok) throw std::runtime_error(what + ": " + strerror(errno));
}

void keepCapabilities() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
    // All three are below 32, in the first of the two words.
    for (const int capability : kCapabilities)
        sets[0].permitted = sets[0].effective |= std::uint32_t{1} << capability;
    require(syscall(SYS_capset, &header, sets) == 0, "cannot set the capabilities");
}

}  // namespace

std::optional<unsigned> userNumber(const std::string &name) {
    const passwd *user = getpwnam(name.c_str());
    return user == nullptr ? std::nullopt : std::optional<unsigned>(user->pw_uid);
}

void becomeUser(const std::string &name) {
    const passwd *user = getpwnam(name.c_str());
    if (user == nullptr) throw std::runtime_error("there is no user " + name);
    const uid_t uid = user->pw_uid;
    const gid_t gid = user->pw_gid;
    require(initgroups(name.c_str(), gid) == 0 && prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0) == 0 &&
                setresgid(gid, gid, gid) == 0 && setresuid(uid, uid, uid) == 0,
            "cannot become " + name);
    if (uid != 0) keepCapabilities();
}

}  // namespace service
