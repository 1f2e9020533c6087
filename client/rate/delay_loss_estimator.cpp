// The estimator that is built in: puts delay gradient, incoming rate, loss and rate control together.
#include <cstring>

#include "rate/delay_gradient.h"
#include "rate/rate_control.h"
#include "rate/rate_estimator.h"
#include "rate/rate_meter.h"
#include "stats/receive_quality.h"

namespace
{

// The rate is looked at this often, and at once when over-use begins.
constexpr zeb_ts_t kControlIntervalMs = 50;

// Before this much time the path is not known at all.
constexpr zeb_ts_t kSettleMs = 500;

// Loss is told for a second, or longer when too few packets came for a share of 2 % to mean something.
constexpr zeb_ts_t kLossIntervalMs = 1000;
constexpr uint64_t kLossPacketsMin = 20;

// No path loses that many packets in a row and goes on: the sender has started over at another number.
constexpr uint16_t kSeqJump = 3000;

struct delay_loss_estimator {
    rate_estimator base;
    net_rcv_analyzer_t *loss; // of originals
    uint64_t expected;        // by `loss`, when the interval began
    zeb_ts_t loss_since;      // milliseconds
    seq_t seq;                // latest original
    bool is_started;
    zeb_ts_t first_at; // milliseconds
    zeb_ts_t controlled_at;
    delay_signal signal; // at the last control
    rate_meter meter;
    delay_gradient gradient;
    rate_control control;
};

delay_loss_estimator *self_of(rate_estimator *base)
{
    return reinterpret_cast<delay_loss_estimator *>(base);
}

// ---- Life ----

rate_estimator *estimator_create()
{
    auto *self =
        static_cast<delay_loss_estimator *>(zeb_malloc_impl_dbg(sizeof(delay_loss_estimator), __func__, __LINE__));
    if (self == nullptr) {
        return nullptr;
    }
    memset(self, 0, sizeof(*self));
    self->base.ops = &kDelayLossEstimator;
    self->loss = net_rcv_analyzer_new();
    if (self->loss == nullptr) {
        zeb_free_impl(self);
        return nullptr;
    }
    return &self->base;
}

void estimator_destroy(rate_estimator *base)
{
    net_rcv_analyzer_del(&self_of(base)->loss);
    zeb_free_impl(base);
}

void estimator_reset(rate_estimator *base)
{
    delay_loss_estimator *self = self_of(base);
    net_rcv_analyzer_t *const loss = self->loss;
    memset(self, 0, sizeof(*self));
    self->base.ops = &kDelayLossEstimator;
    self->loss = loss;
    net_rcv_analyzer_reset(loss);
}

// ---- Loss ----

void loss_begin(delay_loss_estimator *self, zeb_ts_t now)
{
    self->loss_since = now;
    self->expected = net_rcv_analyzer_expected(self->loss);
}

void loss_count(delay_loss_estimator *self, const rate_sample *sample)
{
    const bool has_jumped = zeb_uint16_dist(sample->seq, self->seq) > kSeqJump;
    self->seq = sample->seq;
    if (has_jumped) {
        net_rcv_analyzer_reset(self->loss);
        loss_begin(self, sample->arrived_at);
    }
    net_rcv_analyzer_on_packet(self->loss, sample->seq, 0, 0, sample->arrived_at);
}

void loss_control(delay_loss_estimator *self, zeb_ts_t now)
{
    const uint64_t expected = net_rcv_analyzer_expected(self->loss) - self->expected;
    if (now - self->loss_since < kLossIntervalMs || expected < kLossPacketsMin) {
        return;
    }
    const uint8_t lost = net_rcv_analyzer_take_fraction_lost(self->loss);
    rate_control_on_loss(&self->control, static_cast<float>(lost) / 256.0f);
    loss_begin(self, now);
}

// ---- Packets ----

void estimator_start(delay_loss_estimator *self, const rate_sample *sample)
{
    self->is_started = true;
    self->first_at = sample->arrived_at;
    self->controlled_at = sample->arrived_at;
    self->loss_since = sample->arrived_at;
    self->seq = sample->seq;
}

void delay_control(delay_loss_estimator *self, zeb_ts_t now)
{
    const delay_signal signal = self->gradient.signal;
    const bool is_overuse_new = signal == DELAY_OVERUSE && self->signal != DELAY_OVERUSE;
    if (now - self->controlled_at < kControlIntervalMs && !is_overuse_new) {
        return;
    }
    self->signal = signal;
    self->controlled_at = now;
    rate_control_on_delay(&self->control, signal, rate_meter_bps(&self->meter, now), now);
}

void on_packet(rate_estimator *base, const rate_sample *sample)
{
    delay_loss_estimator *self = self_of(base);
    if (!self->is_started) {
        estimator_start(self, sample);
    }
    rate_meter_add(&self->meter, sample->size, sample->arrived_at);
    if (!sample->is_retransmission) {
        delay_gradient_on_packet(&self->gradient, sample);
        loss_count(self, sample);
    }
    if (sample->arrived_at - self->first_at >= kSettleMs || self->gradient.signal == DELAY_OVERUSE) {
        delay_control(self, sample->arrived_at);
        loss_control(self, sample->arrived_at);
    }
}

uint64_t estimate_bps(const rate_estimator *base)
{
    const auto *self = reinterpret_cast<const delay_loss_estimator *>(base);
    return static_cast<uint64_t>(rate_control_bps(&self->control));
}

} // namespace

const rate_estimator_ops kDelayLossEstimator = {estimator_create, estimator_destroy, estimator_reset, on_packet,
                                                estimate_bps};
