// The service layer: owns the channels and the pool of stream records, and runs the service loop's tick.
// No sockets, threads or clocks: bytes and `now` in, frames and "call me again at" out.
#pragma once

#include "rtc_client.h"

// How often the reorder caches want to be looked at, milliseconds. A request may be due earlier.
constexpr zeb_ts_t kServiceTickInterval = 10;
constexpr zeb_ts_t kServiceNever = ~zeb_ts_t{0};

// A new service, which the caller owns; null without memory.
rtc_service *rtc_service_create();

// Destroys the service, its channels with their users and streams, and the pooled records. Null is harmless.
void rtc_service_destroy(rtc_service *service);

// Runs what is due at `*now_p` on every stream: the periodic check of the reorder cache, the watchdog and
// the picture reports. Returns the time of the next call. Must not be called from a frame callback.
zeb_ts_t rtc_service_tick(rtc_service *service, const zeb_ts_t *now_p);

// When what came since the latest tick wants the next one, as packets that are lost are asked for sooner than it said:
// to be looked at behind each packet. May be past; kServiceNever when nothing but the tick's own time counts.
zeb_ts_t rtc_service_next_at(const rtc_service *service);
