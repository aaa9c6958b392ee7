#include "main/video_watch.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/common.h"
#include "state.h"

namespace {

constexpr int kVideoProtocol = 21;
constexpr unsigned kVideoGroup = 5;
constexpr std::size_t kBufferSize = 1040;

void *fail(const char *what) {
    logAt("timeCheckVi", kNoLine, "%s", what);
    return nullptr;
}

// False when no whole record was received.
bool receive(int fd, char *buffer, msg_struct &record) {
    iovec part{buffer, kBufferSize};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    const ssize_t n = recvmsg(fd, &message, 0);
    if (n < static_cast<ssize_t>(NLMSG_HDRLEN + sizeof record)) return false;
    memcpy(&record, buffer + NLMSG_HDRLEN, sizeof record);
    return true;
}

void watch(int fd, char *buffer) {
    VideoReadings readings;
    sharedStore(pthread_vi_get, true);
    do {
        sleep(2);
        msg_struct record{};
        if (receive(fd, buffer, record))
            takeVideoReading(readings, static_cast<unsigned>(record.video_width),
                             static_cast<unsigned>(record.video_height));
    } while (sharedLoad(pthread_vi_get));
}

}  // namespace

void takeVideoReading(VideoReadings &readings, unsigned width, unsigned height) {
    if (width == readings.width && height != 0 && readings.width != 0 && height == readings.height)
        return;
    // Deliberate: a reading that does not differ does not reset the count.
    if (readings.changes < 2) {
        ++readings.changes;
        return;
    }
    readings = {width, height, 0};
    const bool signal = width != 0 && height != 0;
    if (!signal) puts("---vi no signal---");
    sharedStore(vi_w, signal ? width : 480);
    sharedStore(vi_h, signal ? height : 270);
}

unsigned netlink_group_mask(unsigned group) {
    return group >= 1 && group <= 32 ? 1U << (group - 1) : 0;
}

void *timeCheckVi(void *) {
    const int fd = socket(AF_NETLINK, SOCK_RAW, kVideoProtocol);
    if (fd < 0) {
        printf(" Error: %s\n", strerror(errno));
        return fail("create socket error");
    }
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = netlink_group_mask(kVideoGroup);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) < 0) {
        close(fd);
        return fail("bind socket failed");
    }
    char *buffer = static_cast<char *>(calloc(1, kBufferSize));
    if (buffer == nullptr) {
        close(fd);
        return fail("failed");
    }
    watch(fd, buffer);
    free(buffer);
    close(fd);
    return nullptr;
}
