// How fast a sender may send to us: what an estimator of the available rate takes and gives. An estimator is a table
// of functions and a record of its own; kelvra_bcm_stat.cpp names the one that is built in.
#pragma once

#include <cstdint>

#include "rtc_seq.h"
#include "zeb_platform.h"

// The sender's clock that a timestamp is read from. Only differences are used, so its offset does not matter.
enum send_clock : uint8_t {
    SEND_CLOCK_RTP_90KHZ, // RTP timestamp of video, modulo 2^32: the same for all packets of a frame
    SEND_CLOCK_MS_16BIT   // milliseconds modulo 2^16
};

// One received packet. Any values are taken: nothing from the network is trusted to be in order.
struct rate_sample {
    seq_t seq;
    uint16_t size;      // bytes, RTP header included
    uint32_t timestamp; // of `clock`
    send_clock clock;
    bool is_retransmission; // counts for the rate, neither for delay nor as a received original
    zeb_ts_t arrived_at;    // milliseconds
};

struct rate_estimator;

struct rate_estimator_ops {
    // A new estimator, which the caller owns; null without memory.
    rate_estimator *(*create)();

    // Releases it; not called with null.
    void (*destroy)(rate_estimator *self);

    // Forgets every sample.
    void (*reset)(rate_estimator *self);

    // Takes the next packet, in the order of arrival.
    void (*on_packet)(rate_estimator *self, const rate_sample *sample);

    // Bit/s of RTP packets, their headers included; 0 while too little came to tell.
    uint64_t (*estimate_bps)(const rate_estimator *self);
};

// What every estimator's record begins with.
struct rate_estimator {
    const rate_estimator_ops *ops;
};

// Watches the growth of the queueing delay and the share of lost packets.
extern const rate_estimator_ops kDelayLossEstimator;
