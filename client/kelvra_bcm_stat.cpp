#include "kelvra_bcm_stat.h"

#include <cstring>

#include "rtc_seq.h"

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
    return stat;
}

void KelvraBcmStat_Destroy(KelvraBcmStatistics *stat)
{
    zeb_free_impl(stat);
}

void KelvraBcmStat_Reset(KelvraBcmStatistics *stat)
{
    if (stat == nullptr) {
        return;
    }
    void *const stream = stat->stream;
    const bool use_sent_ts = stat->use_sent_ts_enable_;
    memset(stat, 0, sizeof(*stat));
    stat->stream = stream;
    stat->use_sent_ts_enable_ = use_sent_ts;
}

void KelvraBcmStat_OnRecvPacket(KelvraBcmStatistics *stat, uint16_t sequenceNumber, uint32_t /*timestamp*/,
                                uint16_t size, zeb_ts_t now, uint8_t retrans_flag)
{
    if (stat == nullptr) {
        return;
    }
    const bool is_first = stat->n_packets == 0;
    stat->n_packets++;
    stat->n_bytes += size;
    stat->n_retransmitted += retrans_flag != 0 ? 1 : 0;
    if (is_first) {
        stat->first_packet_at = now;
    }
    stat->last_packet_at = now;
    if (is_first || zeb_uint16_after(sequenceNumber, stat->highest_sequence)) {
        stat->highest_sequence = sequenceNumber;
    }
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
