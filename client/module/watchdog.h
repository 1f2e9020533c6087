// Finds reorder caches that cannot go on by their own rules, so that the service tick can clear them.
#pragma once

#include "api/stream_report.h"
#include "video_stream.h"

constexpr zeb_ts_t kWatchdogFramePatience = 2000;    // milliseconds: the cache's own, for an incomplete head
constexpr zeb_ts_t kWatchdogDeliveryPatience = 4000; // milliseconds: twice that

// All zero: nothing has been seen.
struct watchdog {
    const webrtc_video_frame_t *overdue_head; // incomplete key frame at the head that the next check has to remove
    uint64_t n_packets;                       // when last looked at with nothing to complain about
    uint64_t n_delivered;                     // the same
    zeb_ts_t stands_since;                    // since when packets came and nothing was delivered
};

// What happened to a stream so far.
struct watchdog_progress {
    uint64_t n_packets; // that came, whatever became of them
    zeb_ts_t last_packet_at;
    uint64_t n_delivered; // frames that the cache delivered
};

// Looks at a cache before its periodic check.
void watchdog_look(watchdog *self, const webrtc_video_cache_t *cache, zeb_ts_t now);

// Looks at it again afterwards. Returns what is wrong, and then the cache is to be cleared, or WATCHDOG_REASONS.
watchdog_e watchdog_find(watchdog *self, const webrtc_video_cache_t *cache, const watchdog_progress *progress,
                         zeb_ts_t now);
