// The bit rate at which packets come in, over a sliding window.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zeb_platform.h"

// The window is half a second: long enough for a whole number of frames at 30 a second to be about the same each
// time, short enough that what came in before the path changed is soon out of it.
constexpr uint32_t kRateMeterSlotMs = 20;
constexpr size_t kRateMeterSlots = 25;

// Without this much time since the first packet a rate is not told.
constexpr uint32_t kRateMeterLeastMs = 200;

// All zero is the state before the first packet.
struct rate_meter {
    uint32_t slot_bytes[kRateMeterSlots]; // a ring, by time
    uint64_t slot;                        // number of the latest slot since time 0
    zeb_ts_t first_at;                    // milliseconds: first packet after a pause
    bool is_started;
};

// Counts one packet. A silence as long as the window, or a clock that went back, begins anew.
void rate_meter_add(rate_meter *self, uint16_t size, zeb_ts_t now);

// Bit/s over the window that ends at `now`, which is not before the last packet; 0 while it can not be told.
float rate_meter_bps(const rate_meter *self, zeb_ts_t now);
