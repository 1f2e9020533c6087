/* A received video packet and the wire header it begins with. */
#ifndef RTC_PACKET_H
#define RTC_PACKET_H

#include <stdint.h>

#include "rtc_seq.h"
#include "zeb_platform.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What every packet carries. */
typedef struct PVideoData4Common {
    uint32_t cid;     /* channel identifier */
    uint32_t uid;     /* user identifier */
    seq_t seq;        /* packet sequence number */
    uint16_t sent_ts; /* sender's time of sending, milliseconds modulo 2^16 */
} PVideoData4Common;

/* The native frame header. */
typedef struct Video4Header {
    uint32_t frame_seq;       /* frame sequence number */
    uint16_t n_pkts;          /* packets of the frame, media and FEC */
    uint16_t subseq;          /* index of this packet in the frame */
    uint8_t video_type;       /* packed stream and frame type, see video3_video_type */
    uint8_t codec;            /* VIDEO_PACKET_TYPE */
    uint8_t flags;            /* not used here */
    uint8_t protocol_version; /* below 10 every payload is generic */
    uint32_t reserved;        /* bits 3-5: FEC method; bits 8-15: FEC packets of the frame */
} Video4Header;

/* Words that ride along with a packet. */
typedef struct VideoExtension {
    uint16_t tag;
    uint32_vector_t contents;
} VideoExtension;

/* One received video packet. Whoever holds the record owns `payload` and `extension.contents`. */
typedef struct PVideoData4 {
    PVideoData4Common common;
    Video4Header header;
    VideoExtension extension;
    rtn_bytes_t payload; /* the packet's bytes, an RTP fixed header first */
} PVideoData4;

/* RTP fixed header (RFC 3550, 5.1), 12 bytes. The bit-fields are declared lowest bit first; the
 * integers hold network-order bytes. Packet bytes have no alignment: read them byte by byte. */
typedef struct rtp_hdr_t {
    uint8_t csrc : 4; /* CSRC count */
    uint8_t extension : 1;
    uint8_t padding : 1;
    uint8_t version : 2;
    uint8_t payloadType : 7;
    uint8_t marker : 1;
    uint16_t seqNum;
    uint32_t timestamp;
    uint32_t ssrc;
} rtp_hdr_t;

/* A time and a count. */
typedef struct rtc_timer_counter_pair_t {
    zeb_ts_t at;
    uint64_t n;
} rtc_timer_counter_pair_t;

/* Moves a packet with its buffers from `src` to `dst`, which is overwritten without being released;
 * `src` is left all zero. */
void video_data4_take(PVideoData4 *dst, PVideoData4 *src);

#ifdef __cplusplus
}
#endif

#endif
