#include "rate/delay_gradient.h"

#include <cstring>

namespace
{

// Packets sent within this time are one group. A frame's packets that a sender spreads over time give one point
// instead of many: the least of their delays is a quieter one, and twenty points span more time. With the draft's
// 5 ms, 10 ms of jitter was taken for over-use again and again.
constexpr uint32_t kGroupTicks = 20 * kTicksPerMs;

// A packet that comes this soon after the one before and with less delay was held up together with it, by a radio
// link or a busy loop, and says nothing new.
constexpr zeb_ts_t kBurstArrivalMs = 5;

// A backlog that is delivered at once is cut into groups of this length, so that its end is seen.
constexpr zeb_ts_t kGroupLengthMaxMs = 100;

// After this time without a packet the queue that was known is history. Well below half the circle of a 16-bit
// millisecond clock, 32 s, which bounds what a difference of timestamps can tell.
constexpr zeb_ts_t kPauseMs = 2000;

// No queue grows that much between two packets: one of the clocks has jumped, or the sender has started over.
constexpr int32_t kDelayJumpTicks = 3000 * kTicksPerMs;

// Points older than this are dropped, down to the least number a line is fitted to: a slow frame rate would stretch
// the window over several seconds.
constexpr uint32_t kTrendWindowMs = 1000;
constexpr uint8_t kTrendPointsMin = 5;

// The threshold follows the rise: fast up, so that a flow that shares its path with ones that fill the queue
// is not starved, and slowly down, so that it does not become deaf or nervous. Gains per millisecond; all but the
// lower bound are those of draft-ietf-rmcat-gcc-02, 5.4. The draft's 6 ms are within reach of the noise that a
// service loop of 10 ms makes, which was then taken for over-use.
constexpr float kThresholdStartMs = 12.5f;
constexpr float kThresholdMinMs = 10.0f;
constexpr float kThresholdMaxMs = 600.0f;
constexpr float kThresholdGainUp = 0.01f;
constexpr float kThresholdGainDown = 0.00018f;

// A rise that far above the threshold is a sudden event, which the threshold does not follow.
constexpr float kThresholdOutlierMs = 15.0f;

// One step follows at most this long a time, so that a gap in the stream does not move the threshold at one go.
constexpr float kThresholdStepMaxMs = 100.0f;

// Over-use must last, or one late packet would do.
constexpr float kOveruseTimeMs = 10.0f;

// ---- Line through the delays of the latest groups ----

const delay_trend_point *point_at(const delay_gradient *self, uint8_t age)
{
    return &self->points[(self->next_point + kTrendWindow - 1 - age) % kTrendWindow];
}

void points_drop_old(delay_gradient *self)
{
    const uint32_t newest = point_at(self, 0)->arrival_ms;
    while (self->n_points > kTrendPointsMin &&
           newest - point_at(self, static_cast<uint8_t>(self->n_points - 1))->arrival_ms > kTrendWindowMs) {
        self->n_points--;
    }
}

void point_add(delay_gradient *self, const delay_group *group)
{
    self->points[self->next_point] = {static_cast<uint32_t>(group->arrival), group->delay};
    self->next_point = static_cast<uint8_t>((self->next_point + 1) % kTrendWindow);
    self->n_points = static_cast<uint8_t>(self->n_points + (self->n_points < kTrendWindow ? 1 : 0));
    points_drop_old(self);
}

// Milliseconds against the oldest point: small numbers, which single precision holds.
struct trend_place {
    float arrival;
    float delay;
};

trend_place sample_place(const delay_gradient *self, uint8_t age)
{
    const delay_trend_point *oldest = point_at(self, static_cast<uint8_t>(self->n_points - 1));
    const delay_trend_point *point = point_at(self, age);
    const auto delay_ticks = static_cast<int32_t>(point->delay_ticks - oldest->delay_ticks);
    return {static_cast<float>(point->arrival_ms - oldest->arrival_ms),
            static_cast<float>(delay_ticks) / static_cast<float>(kTicksPerMs)};
}

// Least squares. The slope times the length of the window: how many milliseconds the queue has become longer.
float threshold_rise(const delay_gradient *self)
{
    trend_place sum = {0.0f, 0.0f};
    for (uint8_t age = 0; age < self->n_points; age++) {
        const trend_place place = sample_place(self, age);
        sum.arrival += place.arrival;
        sum.delay += place.delay;
    }
    const auto n = static_cast<float>(self->n_points);
    float covariance = 0.0f;
    float variance = 0.0f;
    for (uint8_t age = 0; age < self->n_points; age++) {
        const trend_place place = sample_place(self, age);
        const float offset = place.arrival - sum.arrival / n;
        covariance += offset * (place.delay - sum.delay / n);
        variance += offset * offset;
    }
    // Without variance all groups arrived at the same time.
    return variance > 0.0f ? covariance / variance * sample_place(self, 0).arrival : 0.0f;
}

// ---- Over-use detector ----

float magnitude(float x)
{
    return x < 0.0f ? -x : x;
}

void threshold_follow(delay_gradient *self, float elapsed_ms)
{
    const float distance = magnitude(self->rise_ms) - self->threshold_ms;
    if (distance > kThresholdOutlierMs) {
        return;
    }
    const float step = elapsed_ms < kThresholdStepMaxMs ? elapsed_ms : kThresholdStepMaxMs;
    float threshold = self->threshold_ms + step * (distance > 0.0f ? kThresholdGainUp : kThresholdGainDown) * distance;
    threshold = threshold > kThresholdMinMs ? threshold : kThresholdMinMs;
    self->threshold_ms = threshold < kThresholdMaxMs ? threshold : kThresholdMaxMs;
}

// A key frame fills the queue at one go, and it drains with each of the next groups: while the last delay or the rise
// falls, nothing is to be done about a rise above the threshold.
bool still_grows(const delay_gradient *self, float rise_before)
{
    const uint32_t growth = point_at(self, 0)->delay_ticks - point_at(self, 1)->delay_ticks;
    return self->rise_ms >= rise_before && static_cast<int32_t>(growth) >= 0;
}

delay_signal signal_of(delay_gradient *self, float rise_before, float elapsed_ms)
{
    if (self->rise_ms > self->threshold_ms) {
        const bool was_over = self->over_ms > 0.0f;
        self->over_ms += elapsed_ms;
        const bool lasts = was_over && self->over_ms >= kOveruseTimeMs;
        return lasts && still_grows(self, rise_before) ? DELAY_OVERUSE : DELAY_NORMAL;
    }
    self->over_ms = 0.0f;
    return self->rise_ms < -self->threshold_ms ? DELAY_UNDERUSE : DELAY_NORMAL;
}

void group_finish(delay_gradient *self)
{
    const bool is_first = self->n_points == 0;
    const float elapsed_ms = is_first ? 0.0f : static_cast<float>(self->group.arrival - self->point_at);
    self->point_at = self->group.arrival;
    point_add(self, &self->group);
    if (self->n_points < kTrendPointsMin) {
        return;
    }
    const float rise_before = self->rise_ms;
    self->rise_ms = threshold_rise(self);
    self->signal = signal_of(self, rise_before, elapsed_ms);
    threshold_follow(self, elapsed_ms);
}

// ---- Packet groups ----

uint32_t send_ticks(const delay_gradient *self, const rate_sample *sample)
{
    if (sample->clock == SEND_CLOCK_RTP_90KHZ) {
        return self->send + (sample->timestamp - self->timestamp);
    }
    const auto step = static_cast<int16_t>(static_cast<uint16_t>(sample->timestamp - self->timestamp));
    return self->send + static_cast<uint32_t>(step * kTicksPerMs);
}

void group_begin(delay_gradient *self, uint32_t send, uint32_t delay, zeb_ts_t arrival)
{
    self->group = {send, delay, arrival, arrival, arrival};
}

void group_widen(delay_group *group, uint32_t delay, zeb_ts_t arrival)
{
    if (static_cast<int32_t>(delay - group->delay) < 0) {
        group->delay = delay;
        group->arrival = arrival;
    }
    group->last_arrival = arrival;
}

uint32_t delay_of(uint32_t send, zeb_ts_t arrival)
{
    return static_cast<uint32_t>(arrival) * static_cast<uint32_t>(kTicksPerMs) - send;
}

void detector_restart(delay_gradient *self, const rate_sample *sample)
{
    memset(self, 0, sizeof(*self));
    self->is_started = true;
    self->clock = sample->clock;
    self->timestamp = sample->timestamp;
    self->threshold_ms = kThresholdStartMs;
    group_begin(self, self->send, delay_of(self->send, sample->arrived_at), sample->arrived_at);
}

bool is_broken_off(const delay_gradient *self, const rate_sample *sample)
{
    // Unsigned: a clock of ours that went back is a long pause.
    return !self->is_started || self->clock != sample->clock ||
           sample->arrived_at - self->group.last_arrival > kPauseMs;
}

bool is_held_up_with(const delay_group *group, uint32_t delay, zeb_ts_t arrival)
{
    return arrival - group->last_arrival < kBurstArrivalMs && arrival - group->first_arrival < kGroupLengthMaxMs &&
           static_cast<int32_t>(delay - group->delay) < 0;
}

// A packet sent before the burst belongs to a group that is closed: it is passed over.
void group_take(delay_gradient *self, uint32_t send, uint32_t delay, zeb_ts_t arrival)
{
    delay_group *group = &self->group;
    const auto since_burst = static_cast<int32_t>(send - group->burst_send);
    if (since_burst < 0) {
        return;
    }
    if (static_cast<uint32_t>(since_burst) <= kGroupTicks) {
        group_widen(group, delay, arrival);
    } else if (is_held_up_with(group, delay, arrival)) {
        group_widen(group, delay, arrival);
        group->burst_send = send;
    } else {
        group_finish(self);
        group_begin(self, send, delay, arrival);
    }
}

} // namespace

delay_signal delay_gradient_on_packet(delay_gradient *self, const rate_sample *sample)
{
    if (is_broken_off(self, sample)) {
        detector_restart(self, sample);
        return self->signal;
    }
    const uint32_t send = send_ticks(self, sample);
    const uint32_t delay = delay_of(send, sample->arrived_at);
    const auto change = static_cast<int32_t>(delay - self->group.delay);
    if (change > kDelayJumpTicks || change < -kDelayJumpTicks) {
        detector_restart(self, sample);
        return self->signal;
    }
    self->send = send;
    self->timestamp = sample->timestamp;
    group_take(self, send, delay, sample->arrived_at);
    return self->signal;
}
