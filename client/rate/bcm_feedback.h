// What a stream's receive statistics tell its sender: the rate to keep to.
#pragma once

#include <cstdint>

#include "kelvra_bcm_stat.h"

// A message that says the same is repeated this often while packets come, as one may be lost.
constexpr zeb_ts_t kRembIntervalMs = 1000;

// A fall is told at once, but not more often than this.
constexpr zeb_ts_t kRembIntervalMinMs = 200;

// The rate at which the stream's sender may send, in bit/s of RTP packets with their headers; 0 without an object or
// while too little came to tell.
uint64_t bcm_stat_estimate_bps(const KelvraBcmStatistics *stat);

// True when a message with the receiver estimated maximum bitrate (draft-alvestrand-rmcat-remb-03) is to be sent now;
// `*bps` becomes its value and the message counts as sent. Due are: the first estimate; one that is lower by 3 % or
// more than the last value; and every second one, when packets came meanwhile. Meant to be asked in each
// pass of the service loop. False without an object.
bool bcm_stat_take_remb(KelvraBcmStatistics *stat, zeb_ts_t now, uint64_t *bps);
