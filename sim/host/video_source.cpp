#include "sim/host/video_source.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>

namespace sim {
namespace {

constexpr auto kPeriod = std::chrono::seconds(2);
constexpr unsigned kGroupMask = 1U << 4;  // group 5

struct Notification {
    nlmsghdr header;
    std::int32_t width, height, frequency, interlaced, hdcp, audioFrequency;
};

}  // namespace

VideoSource::VideoSource() : thread_([this] { tell(); }) {}

VideoSource::~VideoSource() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ending_ = true;
        changed_.notify_all();
    }
    thread_.join();
}

void VideoSource::setSize(int width, int height) {
    const std::lock_guard<std::mutex> lock(mutex_);
    width_ = width;
    height_ = height;
}

void VideoSource::tell() {
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK);
    sockaddr_nl group{};
    group.nl_family = AF_NETLINK;
    group.nl_groups = kGroupMask;
    std::unique_lock<std::mutex> lock(mutex_);
    while (!ending_) {
        const int frequency = width_ != 0 ? 60 : 0;
        Notification message{
            {sizeof message, NLMSG_DONE, 0, 0, 0}, width_, height_, frequency, 0, 0, 48000};
        // The system refuses it while nobody has joined the group.
        sendto(fd, &message, sizeof message, 0, reinterpret_cast<sockaddr *>(&group), sizeof group);
        changed_.wait_for(lock, kPeriod, [&] { return ending_; });
    }
    close(fd);
}

}  // namespace sim
