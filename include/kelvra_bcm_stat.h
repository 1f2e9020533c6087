/* Receive statistics that feed bandwidth estimation. */
#ifndef KELVRA_BCM_STAT_H
#define KELVRA_BCM_STAT_H

#include <stdbool.h>
#include <stdint.h>

#include "zeb_platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What a statistics object is made for. */
typedef struct KelvraBcmStatisticsConfig {
    void *stream; /* the owning user_video_stream */
} KelvraBcmStatisticsConfig;

struct rate_estimator;

/* The statistics of one stream. The first four fields are read and written by the stream's owner too. */
typedef struct KelvraBcmStatistics {
    int64_t last_reported_continuous_frame_number_; /* frame reported last, continuous or not */
    int64_t last_reported_complete_frame_number_;   /* written by the statistics layer only */
    int64_t next_send_goodbad_pic_at;               /* milliseconds; no periodic report before it */
    bool use_sent_ts_enable_;                       /* samples carry `sent_ts`, not the RTP timestamp */

    void *stream; /* as configured */

    struct rate_estimator *estimator; /* owned; never null */

    uint64_t remb_bps;         /* advised last, bit/s; 0 before the first advice */
    uint64_t remb_n_packets;   /* `n_packets` at that time */
    zeb_ts_t remb_at;          /* milliseconds, of that time */
    uint64_t n_packets;        /* samples taken */
    uint64_t n_bytes;          /* of those, RTP headers included */
    uint64_t n_retransmitted;  /* samples of retransmissions */
    uint64_t n_pictures;       /* reports taken */
    uint64_t n_pictures_good;  /* of those, reported as continuous */
    zeb_ts_t first_packet_at;  /* milliseconds; 0 before the first sample */
    zeb_ts_t last_packet_at;   /* milliseconds; 0 before the first sample */
    uint32_t wait_time_sum;    /* milliseconds that reported pictures waited, modulo 2^32 */
    uint16_t wait_time_max;    /* milliseconds */
    uint16_t highest_sequence; /* newest RTP sequence number sampled */
} KelvraBcmStatistics;

/* A new object, which the caller owns; null without memory. */
KelvraBcmStatistics *KelvraBcmStat_Create(const KelvraBcmStatisticsConfig *config);

/* Releases the object. Null is harmless. */
void KelvraBcmStat_Destroy(KelvraBcmStatistics *stat);

/* Forgets everything but the configuration. */
void KelvraBcmStat_Reset(KelvraBcmStatistics *stat);

/* One received RTP packet: its sequence number, a send timestamp in RTP or millisecond units, its size
 * in bytes, its arrival time, and 1 when it was a retransmission. */
void KelvraBcmStat_OnRecvPacket(KelvraBcmStatistics *stat, uint16_t sequenceNumber, uint32_t timestamp, uint16_t size,
                                zeb_ts_t now, uint8_t retrans_flag);

/* One picture: its frame number, the RTP sequence numbers that it spans, 1 when it continues a decodable
 * run, and the milliseconds it waited in the frame queue, modulo 2^16. */
void KelvraBcmStat_OnDecodeResult(KelvraBcmStatistics *stat, uint32_t frame_seq, uint16_t min_rtp_seq,
                                  uint16_t max_rtp_seq, uint8_t continuous, uint16_t wait_time, const zeb_ts_t *now_p);

#ifdef __cplusplus
}
#endif

#endif
