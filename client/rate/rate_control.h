// The rate that a sender is advised to keep to: raised while the path takes it, lowered when the queue grows or
// packets are lost (after draft-ietf-rmcat-gcc-02, 5.5 and 6).
#pragma once

#include <cstdint>

#include "rate/delay_gradient.h"

constexpr float kRateMinBps = 30e3f;    // below it video is of no use
constexpr float kRateMaxBps = 100e6f;   // more than the device's network takes
constexpr float kRateStartBps = 300e3f; // where a sender may begin when less than that comes in

enum rate_control_state : uint8_t {
    RATE_CONTROL_HOLD,
    RATE_CONTROL_INCREASE,
    RATE_CONTROL_DECREASE
};

// All zero is the state before the first packets.
struct rate_control {
    rate_control_state state;
    bool has_overused;    // once it has, the path is known well enough to go on with care
    float delay_bps;      // by the delay; 0 before it is known
    float loss_cap_bps;   // by the loss; 0: no cap
    float link_bps;       // mean of what came in when the path was full; 0: not known
    float link_deviation; // mean deviation of it, as a share of `link_bps`
    zeb_ts_t updated_at;  // milliseconds
    zeb_ts_t decreased_at;
};

// Takes the state of the queue. `incoming_bps` is the rate at which packets come in, 0 when it is not known: then
// nothing changes. Meant to be called a few dozen times a second.
void rate_control_on_delay(rate_control *self, delay_signal signal, float incoming_bps, zeb_ts_t now);

// Takes the share of packets lost, 0 to 1, in an interval of about a second.
void rate_control_on_loss(rate_control *self, float fraction_lost);

// Bit/s; 0 while not known.
float rate_control_bps(const rate_control *self);
