// The kernel's ticks as the client's time.
#pragma once

#include "zeb_platform.h"

#include <FreeRTOS.h>

// Milliseconds when the kernel's ticks were 0; not 0 itself, which stands for "never" here and there.
constexpr zeb_ts_t kFreertosClockOrigin = 10000;

// Belongs to one task.
struct freertos_clock {
    uint64_t ticks; // latest so far, the kernel's count without its wrap; at first, what the kernel's count is
};

// The time of a tick, milliseconds. Ticks may come out of order. The clock has to be asked at least once in half a
// circle of the kernel's count: 24 days of 1 ms ticks with 32 bits, 32 seconds with 16.
zeb_ts_t freertos_clock_at(freertos_clock *self, TickType_t tick);

// Ticks from the latest time on to `time`, rounded up; 0 when it is over.
TickType_t freertos_clock_until(const freertos_clock *self, zeb_ts_t time);
