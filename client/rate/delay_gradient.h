// Tells from arrival times whether a queue grows on the way: packets are gathered in groups, and a straight line is
// fitted to the delays of the latest groups (after draft-ietf-rmcat-gcc-02, 5). Only changes of the one-way delay
// count, so the clocks of both ends need not agree.
#pragma once

#include <cstddef>
#include <cstdint>

#include "rate/rate_estimator.h"

enum delay_signal : uint8_t {
    DELAY_NORMAL,
    DELAY_OVERUSE, // the queue grows: more is sent than the path carries
    DELAY_UNDERUSE // the queue drains
};

// Delays are kept in ticks of 1/90 ms, modulo 2^32, whatever clock the sender uses.
constexpr int32_t kTicksPerMs = 90;

// Groups that the line is fitted to: two thirds of a second at 30 frames a second, long enough to average out 10 ms
// of jitter, short enough to answer within a round trip or two.
constexpr size_t kTrendWindow = 20;

struct delay_trend_point {
    uint32_t arrival_ms;  // modulo 2^32
    uint32_t delay_ticks; // modulo 2^32, against an unknown offset
};

// Packets that were sent in one burst. The packet that was delayed least stands for all: it has waited for what was
// in the queue before, not for the packets of its own burst, so a big frame does not look like a growing queue.
struct delay_group {
    uint32_t burst_send; // ticks: begin of the burst
    uint32_t delay;      // ticks: the least of its packets
    zeb_ts_t arrival;    // milliseconds: of the packet that was delayed least
    zeb_ts_t first_arrival;
    zeb_ts_t last_arrival;
};

// All zero is the state before the first packet.
struct delay_gradient {
    bool is_started;
    send_clock clock;
    delay_signal signal;
    uint32_t timestamp; // latest one, of `clock`
    uint32_t send;      // ticks: `timestamp` without its own wraps
    delay_group group;  // being gathered

    delay_trend_point points[kTrendWindow]; // a ring
    uint8_t n_points;
    uint8_t next_point;

    float rise_ms;      // how much the delay has grown across the window, by the fitted line
    float threshold_ms; // a rise above it is over-use, one below its negative is under-use; 0 before the first group
    float over_ms;      // how long the rise has been above it
    zeb_ts_t point_at;  // milliseconds: arrival of the latest point
};

// Takes the next packet and returns the signal that now holds. Retransmissions are not to be passed: their
// timestamp is of the first attempt. After a pause of more than 2 s, or a jump of a clock, all begins anew.
delay_signal delay_gradient_on_packet(delay_gradient *self, const rate_sample *sample);
