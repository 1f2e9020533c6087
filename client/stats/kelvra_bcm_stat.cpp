#include "kelvra_bcm_stat.h"

#include <cstring>

#include "rate/rate_estimator.h"
#include "rtc_seq.h"

namespace
{

// The one that is built in. Another takes its place here.
constexpr const rate_estimator_ops *kEstimator = &kDelayLossEstimator;

} // namespace

KelvraBcmStatistics *KelvraBcmStat_Create(const KelvraBcmStatisticsConfig *config)
{
    if (config == nullptr) {
        return nullptr;
    }
    auto *stat =
        static_cast<KelvraBcmStatistics *>(zeb_malloc_impl_dbg(sizeof(KelvraBcmStatistics), __func__, __LINE__));
    if (stat == nullptr) {
        return nullptr;
    }
    memset(stat, 0, sizeof(*stat));
    stat->stream = config->stream;
    stat->estimator = kEstimator->create();
    if (stat->estimator == nullptr) {
        zeb_free_impl(stat);
        return nullptr;
    }
    return stat;
}

void KelvraBcmStat_Destroy(KelvraBcmStatistics *stat)
{
    if (stat == nullptr) {
        return;
    }
    stat->estimator->ops->destroy(stat->estimator);
    zeb_free_impl(stat);
}

void KelvraBcmStat_Reset(KelvraBcmStatistics *stat)
{
    if (stat == nullptr) {
        return;
    }
    void *const stream = stat->stream;
    rate_estimator *const estimator = stat->estimator;
    const bool use_sent_ts = stat->use_sent_ts_enable_;
    memset(stat, 0, sizeof(*stat));
    stat->stream = stream;
    stat->estimator = estimator;
    estimator->ops->reset(estimator);
    stat->use_sent_ts_enable_ = use_sent_ts;
}

namespace
{

void packet_count(KelvraBcmStatistics *stat, const rate_sample *sample)
{
    const bool is_first = stat->n_packets == 0;
    stat->n_packets++;
    stat->n_bytes += sample->size;
    stat->n_retransmitted += sample->is_retransmission ? 1 : 0;
    if (is_first) {
        stat->first_packet_at = sample->arrived_at;
    }
    stat->last_packet_at = sample->arrived_at;
    if (is_first || zeb_uint16_after(sample->seq, stat->highest_sequence)) {
        stat->highest_sequence = sample->seq;
    }
}

} // namespace

void KelvraBcmStat_OnRecvPacket(KelvraBcmStatistics *stat, uint16_t sequenceNumber, uint32_t timestamp, uint16_t size,
                                zeb_ts_t now, uint8_t retrans_flag)
{
    if (stat == nullptr) {
        return;
    }
    const send_clock clock = stat->use_sent_ts_enable_ ? SEND_CLOCK_MS_16BIT : SEND_CLOCK_RTP_90KHZ;
    const rate_sample sample = {sequenceNumber, size, timestamp, clock, retrans_flag != 0, now};
    packet_count(stat, &sample);
    stat->estimator->ops->on_packet(stat->estimator, &sample);
}

// `last_reported_complete_frame_number_` stays 0: the stream's owner starts its periodic walk behind the larger of
// the two markers, and its own is moved with every report already.
void KelvraBcmStat_OnDecodeResult(KelvraBcmStatistics *stat, uint32_t /*frame_seq*/, uint16_t /*min_rtp_seq*/,
                                  uint16_t /*max_rtp_seq*/, uint8_t continuous, uint16_t wait_time,
                                  const zeb_ts_t * /*now_p*/)
{
    if (stat == nullptr) {
        return;
    }
    stat->n_pictures++;
    stat->n_pictures_good += continuous != 0 ? 1 : 0;
    stat->wait_time_sum += wait_time;
    if (wait_time > stat->wait_time_max) {
        stat->wait_time_max = wait_time;
    }
}
