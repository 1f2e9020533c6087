// The once-a-second side of a stream's statistics: the counters of the running second are rolled over, and what can
// only be told of a whole second is worked out.
#pragma once

#include "video_stream.h"

struct stream_state;

constexpr zeb_ts_t kStatisticsInterval = 1000; // milliseconds

// Where the counts stood when the running second began. All zero: nothing has come yet.
struct stream_seconds {
    bool has_begun;
    zeb_ts_t began_at;
    uint64_t packets_unique;
    uint64_t packets_lost;
    uint64_t packets_repaired;
    uint32_t newest_timestamp; // of the newest packet, and when it came
    zeb_ts_t newest_at;
};

// Rolls the stream's record over when a second has passed since the first packet or since the last time.
void stream_seconds_tick(stream_state *state, zeb_ts_t now);
