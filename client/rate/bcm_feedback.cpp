#include "rate/bcm_feedback.h"

#include "rate/rate_estimator.h"

namespace
{

// A fall by less is no news: the sender's own rate varies by as much.
constexpr uint64_t kRembFallPercent = 3;

} // namespace

uint64_t bcm_stat_estimate_bps(const KelvraBcmStatistics *stat)
{
    return stat == nullptr ? 0 : stat->estimator->ops->estimate_bps(stat->estimator);
}

namespace
{

bool has_fallen(uint64_t bps, uint64_t before)
{
    return bps * 100 <= before * (100 - kRembFallPercent);
}

bool is_due(const KelvraBcmStatistics *stat, uint64_t bps, zeb_ts_t now)
{
    if (stat->remb_bps == 0) {
        return true;
    }
    // Unsigned: when the clock goes back, a message is due.
    const zeb_ts_t elapsed = now - stat->remb_at;
    if (elapsed >= kRembIntervalMs) {
        return stat->n_packets != stat->remb_n_packets;
    }
    return elapsed >= kRembIntervalMinMs && has_fallen(bps, stat->remb_bps);
}

} // namespace

bool bcm_stat_take_remb(KelvraBcmStatistics *stat, zeb_ts_t now, uint64_t *bps)
{
    const uint64_t estimate = bcm_stat_estimate_bps(stat);
    if (estimate == 0 || !is_due(stat, estimate, now)) {
        return false;
    }
    stat->remb_bps = estimate;
    stat->remb_at = now;
    stat->remb_n_packets = stat->n_packets;
    *bps = estimate;
    return true;
}
