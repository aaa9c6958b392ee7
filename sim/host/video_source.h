// The video input's driver: sends the size of the picture to a netlink group every 2 s.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

namespace sim {

/// A PC's kernel lacks the driver's protocol. The messages use the one for user space instead, and
/// the preload library makes the daemon use that too.
class VideoSource {
  public:
    VideoSource();
    ~VideoSource();
    VideoSource(const VideoSource &) = delete;
    VideoSource &operator=(const VideoSource &) = delete;

    /// Sets the size in the messages from now on, in pixels; 0 x 0 for no signal.
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
