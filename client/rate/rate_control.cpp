#include "rate/rate_control.h"

namespace
{

// On over-use: below what came in, so that the queue drains.
constexpr float kDecreaseFactor = 0.85f;

// What a decrease does is seen only after a round trip; another one before that would answer the same queue twice.
constexpr zeb_ts_t kDecreaseIntervalMs = 300;

// Growth per second, as a share of the rate. Until the first over-use nothing is known and the way may be long; far
// from a known limit 8 % is the draft's.
constexpr float kGrowthStart = 0.5f;
constexpr float kGrowthFar = 0.08f;

// Near the limit: half a packet of 1200 bytes for each response time, 200 ms. At least so much of the rate that the
// way from 0.85 of a fast link back to all of it takes seconds, not minutes; at most so much that a slow link does
// not overflow at once.
constexpr float kGrowthNearBps = 0.5f * 1200 * 8 / 0.2f; // per second
constexpr float kGrowthNearMin = 0.02f;
constexpr float kGrowthNearMax = 0.04f;

// One update grows for at most this long: a pause is no time in which the path was tried.
constexpr zeb_ts_t kUpdateMaxMs = 500;

// A sender that does not use what it may have does not prove that there is more.
constexpr float kIncomingHeadroom = 1.5f;
constexpr float kIncomingHeadroomBps = 10e3f; // lets a tiny rate grow

// How fast the memory of the link follows, and how many mean deviations away it is another link. The deviation is
// at least that of counting whole packets.
constexpr float kLinkGain = 0.1f;
constexpr float kLinkDeviations = 3.0f;
constexpr float kLinkDeviationMin = 0.025f;

// Loss: more than the upper bound is congestion, less than the lower one is the noise of radio links.
constexpr float kLossHigh = 0.1f;
constexpr float kLossLow = 0.02f;
constexpr float kLossGrowth = 1.08f; // per interval without loss

// A cap that far above what the delay allows has no effect for long.
constexpr float kLossCapForget = 2.0f;

float lesser_of(float a, float b)
{
    return a < b ? a : b;
}

float greater_of(float a, float b)
{
    return a > b ? a : b;
}

float rate_clamp(float x, float low, float high)
{
    return lesser_of(greater_of(x, low), high);
}

// ---- Memory of the link ----

float link_reach(const rate_control *self)
{
    return kLinkDeviations * self->link_deviation * self->link_bps;
}

void link_forget(rate_control *self)
{
    self->link_bps = 0.0f;
    self->link_deviation = 0.0f;
}

// The path was full and carried `incoming_bps`.
void link_learn(rate_control *self, float incoming_bps)
{
    if (self->link_bps > 0.0f && incoming_bps < self->link_bps - link_reach(self)) {
        link_forget(self);
    }
    if (self->link_bps <= 0.0f) {
        self->link_bps = incoming_bps;
        self->link_deviation = kLinkDeviationMin;
        return;
    }
    const float difference = incoming_bps - self->link_bps;
    const float share = (difference < 0.0f ? -difference : difference) / self->link_bps;
    self->link_bps += kLinkGain * difference;
    self->link_deviation =
        greater_of(self->link_deviation + kLinkGain * (share - self->link_deviation), kLinkDeviationMin);
}

// ---- Delay ----

rate_control_state next_state(rate_control_state state, delay_signal signal)
{
    switch (signal) {
    case DELAY_OVERUSE:
        return RATE_CONTROL_DECREASE;
    case DELAY_UNDERUSE: // the queue drains: wait until it has
        return RATE_CONTROL_HOLD;
    default:
        return state == RATE_CONTROL_DECREASE ? RATE_CONTROL_HOLD : RATE_CONTROL_INCREASE;
    }
}

float growth_per_second(const rate_control *self)
{
    const float rate = self->delay_bps;
    if (!self->has_overused) {
        return kGrowthStart * rate;
    }
    if (self->link_bps <= 0.0f) {
        return kGrowthFar * rate;
    }
    return rate_clamp(kGrowthNearBps, kGrowthNearMin * rate, kGrowthNearMax * rate);
}

void rate_increase(rate_control *self, float incoming_bps, zeb_ts_t elapsed)
{
    if (self->link_bps > 0.0f && incoming_bps > self->link_bps + link_reach(self)) {
        link_forget(self);
    }
    const float seconds = static_cast<float>(elapsed < kUpdateMaxMs ? elapsed : kUpdateMaxMs) * 1e-3f;
    const float grown = self->delay_bps + growth_per_second(self) * seconds;
    const float limit = kIncomingHeadroom * incoming_bps + kIncomingHeadroomBps;
    self->delay_bps = greater_of(self->delay_bps, lesser_of(grown, limit));
}

void rate_decrease(rate_control *self, float incoming_bps, zeb_ts_t now)
{
    if (self->has_overused && now - self->decreased_at < kDecreaseIntervalMs) {
        return;
    }
    self->has_overused = true;
    self->decreased_at = now;
    link_learn(self, incoming_bps);
    self->delay_bps = lesser_of(self->delay_bps, kDecreaseFactor * incoming_bps);
}

} // namespace

void rate_control_on_delay(rate_control *self, delay_signal signal, float incoming_bps, zeb_ts_t now)
{
    if (!(incoming_bps > 0.0f)) {
        self->updated_at = now;
        return;
    }
    if (self->delay_bps <= 0.0f) {
        self->delay_bps = greater_of(incoming_bps, kRateStartBps);
        self->updated_at = now;
    }
    self->state = next_state(self->state, signal);
    if (self->state == RATE_CONTROL_INCREASE) {
        rate_increase(self, incoming_bps, now - self->updated_at);
    } else if (self->state == RATE_CONTROL_DECREASE) {
        rate_decrease(self, incoming_bps, now);
    }
    self->delay_bps = rate_clamp(self->delay_bps, kRateMinBps, kRateMaxBps);
    self->updated_at = now;
}

// ---- Loss ----

void rate_control_on_loss(rate_control *self, float fraction_lost)
{
    const float rate = rate_control_bps(self);
    if (rate <= 0.0f) {
        return;
    }
    if (fraction_lost > kLossHigh) {
        self->loss_cap_bps = greater_of(rate * (1.0f - 0.5f * fraction_lost), kRateMinBps);
        self->has_overused = true;
    } else if (fraction_lost < kLossLow && self->loss_cap_bps > 0.0f) {
        self->loss_cap_bps *= kLossGrowth;
    }
    if (self->loss_cap_bps > kLossCapForget * self->delay_bps) {
        self->loss_cap_bps = 0.0f;
    }
}

float rate_control_bps(const rate_control *self)
{
    return self->loss_cap_bps > 0.0f ? lesser_of(self->loss_cap_bps, self->delay_bps) : self->delay_bps;
}
