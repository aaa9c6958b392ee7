// The size of the picture, as the video input's driver reports it over netlink.
#pragma once

#include <cstdint>

/// The content of a notification, after 16 bytes of netlink header; 24 bytes.
struct msg_struct {
    std::int32_t video_width;  ///< 0: no signal
    std::int32_t video_height;
    std::int32_t video_freq;
    std::int32_t video_interlaced;
    std::int32_t video_hdcp;
    std::int32_t audio_freq;
};

/// What the watch remembers from one reading to the next.
struct VideoReadings {
    unsigned width = 0, height = 0;  ///< last accepted
    int changes = 0;                 ///< differing readings since
};

/// Takes one reading. The third one that differs from the last accepted is stored in vi_w and vi_h,
/// as 480 x 270 when there is no signal.
void takeVideoReading(VideoReadings &readings, unsigned width, unsigned height);

/// The bind mask of a netlink group; 0 for group 0 and for groups beyond 32.
unsigned netlink_group_mask(unsigned group);

/// Thread: reads notifications (protocol 21, group 5), one every 2 s at most, while pthread_vi_get
/// is true. The argument is ignored; returns null.
void *timeCheckVi(void *);
