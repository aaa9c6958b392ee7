// The video input's driver: tells the size of the picture to a netlink group, every 2 s.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

namespace sim {

/// A PC's kernel has no protocol for it; the messages go over the one for user space, to which the
/// preload library takes the daemon.
class VideoSource {
  public:
    VideoSource();
    ~VideoSource();
    VideoSource(const VideoSource &) = delete;
    VideoSource &operator=(const VideoSource &) = delete;

    /// What it tells from now on; 0 x 0 for no signal.
    void setSize(int width, int height);

  private:
    void tell();

    std::mutex mutex_;
    std::condition_variable changed_;
    int width_ = 1920, height_ = 1080;
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace sim
