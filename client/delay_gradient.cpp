#include "delay_gradient.h"

#include <cstring>

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

static const delay_trend_point *__point_at(const delay_gradient *self, uint8_t age)
{
    return &self->points[(self->next_point + kTrendWindow - 1 - age) % kTrendWindow];
}

static void __points_drop_old(delay_gradient *self)
{
    const uint32_t newest = __point_at(self, 0)->arrival_ms;
    while (self->n_points > kTrendPointsMin &&
           newest - __point_at(self, static_cast<uint8_t>(self->n_points - 1))->arrival_ms > kTrendWindowMs) {
        self->n_points--;
    }
}

static void __point_add(delay_gradient *self, const delay_group *group)
{
    self->points[self->next_point] = {static_cast<uint32_t>(group->arrival), group->delay};
    self->next_point = static_cast<uint8_t>((self->next_point + 1) % kTrendWindow);
    self->n_points = static_cast<uint8_t>(self->n_points + (self->n_points < kTrendWindow ? 1 : 0));
    __points_drop_old(self);
}

// Milliseconds against the oldest point: small numbers, which single precision holds.
struct trend_place {
    float arrival;
    float delay;
};

static trend_place __place(const delay_gradient *self, uint8_t age)
{
    const delay_trend_point *oldest = __point_at(self, static_cast<uint8_t>(self->n_points - 1));
    const delay_trend_point *point = __point_at(self, age);
    const auto delay_ticks = static_cast<int32_t>(point->delay_ticks - oldest->delay_ticks);
    return {static_cast<float>(point->arrival_ms - oldest->arrival_ms),
            static_cast<float>(delay_ticks) / static_cast<float>(kTicksPerMs)};
}

// Least squares. The slope times the length of the window: how many milliseconds the queue has become longer.
static float __rise(const delay_gradient *self)
{
    trend_place sum = {0.0f, 0.0f};
    for (uint8_t age = 0; age < self->n_points; age++) {
        const trend_place place = __place(self, age);
        sum.arrival += place.arrival;
        sum.delay += place.delay;
    }
    const auto n = static_cast<float>(self->n_points);
    float covariance = 0.0f;
    float variance = 0.0f;
    for (uint8_t age = 0; age < self->n_points; age++) {
        const trend_place place = __place(self, age);
        const float offset = place.arrival - sum.arrival / n;
        covariance += offset * (place.delay - sum.delay / n);
        variance += offset * offset;
    }
    // Without variance all groups arrived at the same time.
    return variance > 0.0f ? covariance / variance * __place(self, 0).arrival : 0.0f;
}

// ---- Over-use detector ----

static float __magnitude(float x)
{
    return x < 0.0f ? -x : x;
}

static void __threshold_follow(delay_gradient *self, float elapsed_ms)
{
    const float distance = __magnitude(self->rise_ms) - self->threshold_ms;
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
static bool __still_grows(const delay_gradient *self, float rise_before)
{
    const uint32_t growth = __point_at(self, 0)->delay_ticks - __point_at(self, 1)->delay_ticks;
    return self->rise_ms >= rise_before && static_cast<int32_t>(growth) >= 0;
}

static delay_signal __signal(delay_gradient *self, float rise_before, float elapsed_ms)
{
    if (self->rise_ms > self->threshold_ms) {
        const bool was_over = self->over_ms > 0.0f;
        self->over_ms += elapsed_ms;
        const bool lasts = was_over && self->over_ms >= kOveruseTimeMs;
        return lasts && __still_grows(self, rise_before) ? DELAY_OVERUSE : DELAY_NORMAL;
    }
    self->over_ms = 0.0f;
    return self->rise_ms < -self->threshold_ms ? DELAY_UNDERUSE : DELAY_NORMAL;
}

static void __group_finish(delay_gradient *self)
{
    const bool is_first = self->n_points == 0;
    const float elapsed_ms = is_first ? 0.0f : static_cast<float>(self->group.arrival - self->point_at);
    self->point_at = self->group.arrival;
    __point_add(self, &self->group);
    if (self->n_points < kTrendPointsMin) {
        return;
    }
    const float rise_before = self->rise_ms;
    self->rise_ms = __rise(self);
    self->signal = __signal(self, rise_before, elapsed_ms);
    __threshold_follow(self, elapsed_ms);
}

// ---- Packet groups ----

static uint32_t __send_ticks(const delay_gradient *self, const rate_sample *sample)
{
    if (sample->clock == SEND_CLOCK_RTP_90KHZ) {
        return self->send + (sample->timestamp - self->timestamp);
    }
    const auto step = static_cast<int16_t>(static_cast<uint16_t>(sample->timestamp - self->timestamp));
    return self->send + static_cast<uint32_t>(step * kTicksPerMs);
}

static void __group_begin(delay_gradient *self, uint32_t send, uint32_t delay, zeb_ts_t arrival)
{
    self->group = {send, delay, arrival, arrival, arrival};
}

static void __group_widen(delay_group *group, uint32_t delay, zeb_ts_t arrival)
{
    if (static_cast<int32_t>(delay - group->delay) < 0) {
        group->delay = delay;
        group->arrival = arrival;
    }
    group->last_arrival = arrival;
}

static uint32_t __delay_ticks(uint32_t send, zeb_ts_t arrival)
{
    return static_cast<uint32_t>(arrival) * static_cast<uint32_t>(kTicksPerMs) - send;
}

static void __restart(delay_gradient *self, const rate_sample *sample)
{
    memset(self, 0, sizeof(*self));
    self->is_started = true;
    self->clock = sample->clock;
    self->timestamp = sample->timestamp;
    self->threshold_ms = kThresholdStartMs;
    __group_begin(self, self->send, __delay_ticks(self->send, sample->arrived_at), sample->arrived_at);
}

static bool __is_broken_off(const delay_gradient *self, const rate_sample *sample)
{
    // Unsigned: a clock of ours that went back is a long pause.
    return !self->is_started || self->clock != sample->clock ||
           sample->arrived_at - self->group.last_arrival > kPauseMs;
}

static bool __is_held_up_with(const delay_group *group, uint32_t delay, zeb_ts_t arrival)
{
    return arrival - group->last_arrival < kBurstArrivalMs && arrival - group->first_arrival < kGroupLengthMaxMs &&
           static_cast<int32_t>(delay - group->delay) < 0;
}

// A packet sent before the burst belongs to a group that is closed: it is passed over.
static void __group_take(delay_gradient *self, uint32_t send, uint32_t delay, zeb_ts_t arrival)
{
    delay_group *group = &self->group;
    const auto since_burst = static_cast<int32_t>(send - group->burst_send);
    if (since_burst < 0) {
        return;
    }
    if (static_cast<uint32_t>(since_burst) <= kGroupTicks) {
        __group_widen(group, delay, arrival);
    } else if (__is_held_up_with(group, delay, arrival)) {
        __group_widen(group, delay, arrival);
        group->burst_send = send;
    } else {
        __group_finish(self);
        __group_begin(self, send, delay, arrival);
    }
}

delay_signal delay_gradient_on_packet(delay_gradient *self, const rate_sample *sample)
{
    if (__is_broken_off(self, sample)) {
        __restart(self, sample);
        return self->signal;
    }
    const uint32_t send = __send_ticks(self, sample);
    const uint32_t delay = __delay_ticks(send, sample->arrived_at);
    const auto change = static_cast<int32_t>(delay - self->group.delay);
    if (change > kDelayJumpTicks || change < -kDelayJumpTicks) {
        __restart(self, sample);
        return self->signal;
    }
    self->send = send;
    self->timestamp = sample->timestamp;
    __group_take(self, send, delay, sample->arrived_at);
    return self->signal;
}
