// Counts how a sender broke off and went on, by name. Mends nothing: the layers that it concerns do.
#pragma once

#include "arrival/reception.h"

constexpr zeb_ts_t kRestartPause = 5000;         // milliseconds without a packet
constexpr int64_t kRestartTimestampSlack = 5000; // milliseconds that a sender's clock may differ from ours

// All zero: nothing has come yet. What is kept is the newest packet's.
struct restart_watch {
    bool has_packet;
    uint8_t codec; // VIDEO_PACKET_TYPE
    uint32_t timestamp;
    zeb_ts_t at;
};

// Takes note of a packet that is no retransmission and was the newest when it came: `verdict` is RECEPTION_NEWEST,
// RECEPTION_RESUMED or RECEPTION_RESTARTED. `timestamp` counts 90,000 a second.
void restart_watch_note(restart_watch *self, stream_report *report, reception_verdict verdict, uint8_t codec,
                        uint32_t timestamp, zeb_ts_t now);
