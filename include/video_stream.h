/* The video receive core: packets of one stream in, whole frames out.
 *
 * Everything runs on the client's single service thread; nothing here locks. Times are milliseconds and
 * are passed in by pointer. A sequence number or timestamp that is not known yet is held as all ones in
 * a field wider than the value: 0xFFFFFFFF for packet sequence numbers, 64 ones for RTP timestamps. */
#ifndef VIDEO_STREAM_H
#define VIDEO_STREAM_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "depacketizer.h"
#include "kelvra_bcm_stat.h"
#include "kelvra_rtc_log.h"
#include "net_rcv_analyzer.h"
#include "rtc_client.h"
#include "rtc_list.h"
#include "rtc_packet.h"
#include "rtc_seq.h"
#include "zeb_platform.h"

#ifdef __cplusplus
extern "C" {
/* A caller may pass any int here, so the range of values must not end at the largest enumerator. */
#define VIDEO_ENUM_TYPE : unsigned int
#else
#define VIDEO_ENUM_TYPE
#endif

/* Codec of a packet's frame: Video4Header.codec. */
typedef enum VIDEO_PACKET_TYPE VIDEO_ENUM_TYPE {
    VIDEO_TYPE_VP8 = 1,
    VIDEO_TYPE_H264 = 2,
    VIDEO_TYPE_H265 = 3,
    VIDEO_TYPE_GENERIC = 6,
    VIDEO_TYPE_GENERIC_H264 = 7,
    VIDEO_TYPE_GENERIC_JPEG = 20,
    VIDEO_TYPE_UNKNOWN = 254
} VIDEO_PACKET_TYPE;

/* Codec as the application names it. */
typedef enum video_data_type_e VIDEO_ENUM_TYPE {
    VIDEO_DATA_TYPE_YUV420 = 0,
    VIDEO_DATA_TYPE_H264 = 2,
    VIDEO_DATA_TYPE_H265 = 3,
    VIDEO_DATA_TYPE_GENERIC = 6,
    VIDEO_DATA_TYPE_GENERIC_JPEG = 20
} video_data_type_e;

/* How the packets of a frame are joined. */
typedef enum PACKETIZER_TYPE VIDEO_ENUM_TYPE {
    PACKETIZER_TYPE_GENERIC = 0,
    PACKETIZER_TYPE_H264 = 1,
    PACKETIZER_TYPE_H265 = 2,
    PACKETIZER_TYPE_UNKNOWN = 254
} PACKETIZER_TYPE;

/* webrtc_video_frame_t.state */
typedef enum webrtc_video_frame_state_e {
    WEBRTC_VIDEO_FRM_NONE = 0,       /* fresh node */
    WEBRTC_VIDEO_FRM_INCOMPLETE = 1, /* has packets */
    WEBRTC_VIDEO_FRM_COMPLETE = 2    /* both ends are proven and all between them is here */
} webrtc_video_frame_state_e;

/* webrtc_video_packet_t.state */
typedef enum webrtc_video_packet_state_e {
    WEBRTC_VIDEO_PKT_NONE = 0, /* free */
    WEBRTC_VIDEO_PKT_SET = 1   /* holds a packet */
} webrtc_video_packet_state_e;

enum {
    VIDEO_FRAMES_Q_SLOTS = 40,       /* frames that the frame queue holds */
    VIDEO_FRAMES_Q_PKT_INDEX = 1280, /* entries of its packet index, 32 for each frame slot */
    WEBRTC_VIDEO_RING_SLOTS = 8192   /* packets that the reorder cache holds */
};

/* ---- Native path: the frame queue ---- */

/* One packet of a frame. */
typedef struct video_packet_status_t {
    uint8_t is_received; /* 1 once the payload is stored */
} video_packet_status_t;

/* One frame slot. Empty while `n_pkts_total` is 0; then `pkts` and `pkts_status` are null. */
typedef struct video_frame {
    zeb_ts_t queued_ts;             /* when the frame was created or re-created in its slot */
    uint32_t frame_seq;             /* frame sequence number */
    uint16_t n_pkts_total;          /* packets of the frame, media and FEC; 0: slot is empty */
    uint16_t n_pkts_media;          /* n_pkts_total - n_pkts_fec, modulo 2^16 */
    uint16_t n_pkts_received;       /* packets whose payload is stored */
    uint16_t n_pkts_received_media; /* of those, indices below n_pkts_media */
    uint16_t n_pkts_received_fec;   /* the others */
    uint16_t n_pkts_fec;            /* FEC packets of the frame */
    uint16_t protocol_version;      /* of the sender's header */
    uint8_t is_key_frame;           /* 0 or 1 */
    uint8_t is_complete;            /* 1 once n_pkts_received >= n_pkts_media */
    uint8_t codec;                  /* VIDEO_PACKET_TYPE */
    uint8_t payload_type;           /* RTP payload type of the packet that created the frame */
    uint8_t rsfec_payload_type;     /* not written by the frame queue */
    uint16_t ts;                    /* sent_ts of the packet that created the frame */
    uint32_t reserved;              /* the header's word: bits 3-5 FEC method, bits 8-15 FEC packets */
    seq_t first_pkt_seq;            /* packet sequence number of index 0 */
    seq_t min_seq;                  /* lowest and highest packet sequence number received */
    seq_t max_seq;
    seq_t min_rtp_seq; /* RTP sequence numbers of the whole frame */
    seq_t max_rtp_seq;
    uint16_t rtp_timestamp;             /* upper 16 bits of the RTP timestamp; the rest is not kept */
    rtn_bytes_t *pkts;                  /* owned: payload by index, count 0 while not received */
    video_packet_status_t *pkts_status; /* owned: one for each index */
    uint8_t rexfer_cnt;                 /* 1 from creation on; not used further here */
} video_frame;

/* The frame queue. Frame F is in slot F mod 40, the index entry of packet S is S mod 1280. */
typedef struct rtc_video_frames_t {
    uint16_t count;         /* frames in the queue */
    uint16_t min_ts;        /* ts of the frame with min_frame_seq */
    uint16_t max_ts;        /* ts of the frame with max_frame_seq */
    uint32_t min_frame_seq; /* bounds, in wrapping order; stale while count is 0 */
    uint32_t max_frame_seq;
    rtc_timer_counter_pair_t pkt_tc_pairs[VIDEO_FRAMES_Q_PKT_INDEX]; /* `at` is not written here */
    int16_t pkt_frame_pos[VIDEO_FRAMES_Q_PKT_INDEX];                 /* slot that holds the packet, or -1 */
    video_frame video_frames[VIDEO_FRAMES_Q_SLOTS];
} rtc_video_frames_t;

/* ---- RTP path: the reorder cache ---- */

typedef struct webrtc_video_frame_t webrtc_video_frame_t;

/* One slot of the packet ring. Packet S is in slot S mod 8192. */
typedef struct webrtc_video_packet_t {
    zeb_ts_t ts;                   /* when the packet was stored */
    uint8_t state;                 /* webrtc_video_packet_state_e */
    uint8_t is_retrans;            /* 1: came as a retransmission */
    uint8_t is_key;                /* 1: belongs to a key frame */
    uint8_t endmark;               /* RTP marker bit: last packet of its frame */
    uint32_t timestamp;            /* RTP timestamp, host order */
    uint16_t pkt_seq;              /* common.seq of the packet */
    uint32_t frm_seq;              /* frame number given at delivery */
    uint16_t sub_seq;              /* index in the frame given at delivery */
    webrtc_video_frame_t *frm_ptr; /* the frame that the packet is filed in, or null */
    PVideoData4 video;             /* the packet; the slot owns its payload */
    rtc_timer_counter_pair_t tc;   /* not read here */
} webrtc_video_packet_t;

/* One frame of the frame map: the packets that share an RTP timestamp. */
struct webrtc_video_frame_t {
    zeb_rb_node node;   /* link in the map; first, so that a link's address is the frame's */
    zeb_ts_t ts;        /* when the frame's first packet was stored */
    uint8_t state;      /* webrtc_video_frame_state_e */
    uint8_t is_key;     /* 1: some packet belongs to a key frame */
    uint32_t timestamp; /* RTP timestamp, the map's key */
    uint32_t frm_seq;   /* frame number given at delivery */
    uint32_t min_seq;   /* first packet, once proven */
    uint32_t max_seq;   /* last packet, once proven */
    uint32_t cur_min_seq;
    uint32_t cur_max_seq; /* lowest and highest packet so far, in wrapping order */
    uint16_t n_pkts_total;
    uint16_t n_pkts_media;
    uint16_t n_pkts_received;
    uint16_t n_pkts_received_media;
    uint16_t n_pkts_received_fec;
    uint16_t n_pkts_fec;
    rtn_vector_t pkts; /* owned; released here, filled by nobody here */
};

/* The reorder cache of one stream. */
struct webrtc_video_cache_t {
    user_video_stream *stream;
    webrtc_video_packet_t *pkt_arr; /* owned: the ring, null until the first packet */
    uint32_t pkt_cur_cnt;           /* slots in use */
    uint32_t pkt_all_cnt;           /* slots of the ring: 0 or 8192 */
    uint32_t pkt_exp_seq;           /* next packet expected in order */
    uint32_t pkt_min_seq;           /* oldest and newest packet held, in wrapping order */
    uint32_t pkt_max_seq;
    zeb_rb_root frm_map;        /* frames by RTP timestamp, in plain unsigned order */
    uint32_t frm_cur_cnt;       /* frames in the map */
    uint32_t frm_all_cnt;       /* only cleared here */
    uint64_t frm_min_timestamp; /* oldest and newest RTP timestamp in the map, in wrapping order */
    uint64_t frm_max_timestamp;
    uint32_t frm_flag;               /* bit 0: waiting for a key frame */
    zeb_ts_t last_deliver_frm_ts;    /* time of the last delivery, 0: none */
    uint64_t last_deliver_frm_seq;   /* frame number given last, all ones: none */
    uint32_t last_deliver_pkt_seq;   /* last packet of the frame delivered last */
    uint32_t last_ordered_pkt_seq;   /* newest packet known to be in order */
    uint64_t last_ordered_timestamp; /* its RTP timestamp */
    uint64_t last_removed_timestamp; /* a frame given up: packets of it are refused. Not written here */
    uint16_t n_retrans_req_recent;   /* the request pacer's: counted and read by the user layer */
    uint16_t n_intra_req_sent_recent;
    zeb_ts_t next_retrans_req_should_at;
    zeb_ts_t next_intra_req_should_at;
};

/* ---- The stream ---- */

/* One video stream, received from a remote user or sent by the local one. The fields from `codec` on
 * that no comment assigns to this module are filled and read by the channel's statistics. `_recent`
 * means: in the current statistics interval. */
struct user_video_stream {
    list_head node; /* link in the owning list or the pool; first, so that a link is its record */
    rtc_user *user; /* the remote sender; null for a stream that the local user sends */
    rtc_channel *channel;
    uint32_t s_flags; /* 1 after init and reset; no bit is tested here */

    uint16_t n_key_recent; /* key frames received */
    uint16_t n_key_req_sent_recent;
    uint16_t n_key_req_recv_recent;
    uint16_t n_retrans_recent;
    uint16_t n_retrans_req_recent;
    uint16_t n_retrans_req_received_recent;
    uint16_t n_overlapped_frames_recent; /* frames that insertion dropped */
    uint16_t n_frames_send_recent;
    uint16_t frame_pkt_num_max; /* largest packet count of a frame */
    uint32_t last_send_frame_seq;

    uint8_t is_webrtc; /* 1: standard RTP video, goes through the reorder cache */
    uint8_t is_nass;   /* stream variant that reports feedback */
    uint8_t stream_id; /* identifier within its user; 0 is the main stream */
    uint8_t codec;
    uint32_t width;
    uint32_t height;

    uint32_t pkt_seq;   /* expected packet of the native path, 0xFFFFFFFF: not known */
    uint32_t frame_seq; /* its frame counterpart */

    uint8_t percent_loss_raw;
    uint8_t percent_lost_after_arq;
    uint8_t percent_lost_after_fec;

    uint32_t n_xfer_origin_bytes_recent; /* first transmissions */
    uint32_t n_xfer_origin_med_bytes_recent;
    uint32_t n_xfer_origin_fec_bytes_recent;
    uint32_t n_xfer_bytes_recent;
    uint32_t n_rexfer_bytes_recent; /* retransmissions */
    uint64_t n_xfer_bytes;
    uint64_t n_xfer_packets;
    uint64_t n_xfer_frames;

    uint32_t n_send_origin_bytes_recent;
    uint32_t n_send_origin_med_bytes_recent;
    uint32_t n_send_origin_fec_bytes_recent;
    uint32_t n_send_bytes_recent;
    uint32_t n_send_med_bytes_recent;
    uint32_t n_send_retran_recent;
    uint8_t media_pkg_num;
    uint8_t fec_pkg_num;

    webrtc_video_cache_t video_cache_q; /* the RTP path */
    rtc_video_frames_t video_frames_q;  /* the native path */

    uint16_t n_fec_recovered_frames_recent;
    uint64_t n_fec_recovered_frames;
    int32_t first_rcv_key_frame_seq;  /* -1: none. Init leaves 0, reset sets -1 */
    int32_t second_rcv_key_frame_seq; /* -1: none. Init sets -1 for a remote user's stream only */
    zeb_ts_t next_idr_should_at;
    zeb_ts_t last_received_at;
    zeb_ts_t next_retrans_req_should_at;

    uint32_t ehsnr; /* extended highest sequence number received (RFC 3550, 6.4.1) */
    uint16_t received_ts_last;
    uint16_t received_seq_max;
    uint16_t n_received_pkt_bytes_max;
    uint16_t n_frames_to_user_recent;
    uint32_t n_bytes_to_user_recent;
    uint32_t n_k_frames_to_user; /* key frames handed to the application */
    zeb_ts_t last_to_user_at;
    uint32_t latest_local_remote_ts_ratio;
    uint16_t last_to_user_ts;

    net_rcv_analyzer_t *current_net_rcv_quality; /* owned; null for a local stream or without memory */
    net_rcv_analyzer_t *old_net_rcv_quality;     /* owned; never created here */
    seq_lost_calculator_t lost_calculator;       /* untouched by reset, as the next one is */
    jitter_calculator_t jitter_calculator;
    KelvraBcmStatistics *bcm_stat; /* owned; main stream of a remote user with downlink estimation only */

    zeb_ts_t freeze_time_600ms; /* milliseconds frozen, and freezes, by threshold */
    zeb_ts_t freeze_time_500ms;
    zeb_ts_t freeze_time_200ms;
    uint32_t freeze_count_600ms;
    uint32_t freeze_count_500ms;
    uint32_t freeze_count_200ms;
    zeb_ts_t freeze_time_600ms_last; /* the same at the previous report */
    zeb_ts_t freeze_time_500ms_last;
    zeb_ts_t freeze_time_200ms_last;
    uint32_t freeze_count_600ms_last;
    uint32_t freeze_count_500ms_last;
    uint32_t freeze_count_200ms_last;

    uint32_t downlink_process_total_cost_ms;
    uint32_t downlink_frame_total;
    uint32_t peer_uplink_cost_ms;
};

typedef struct user_video_stream user_video_stream_t;

/* ---- Stream registry ---- */

/* The stream of a remote user with `stream_id` in `streams`; when it is absent and `create` is not 0,
 * a new one, appended and announced. Null when it is absent and not created, or without memory. `now_p`
 * is not used and may be null. The list owns the stream. */
user_video_stream *service_video_streams_get_video_stream(rtc_service *service, rtc_user *user, rtc_channel *ch,
                                                          rtc_list_t *streams, uint8_t stream_id, int create,
                                                          const zeb_ts_t *now_p);

/* The same for a stream of the local user. A stream whose expected packet is not known gets 0: a sender
 * numbers from 0. */
user_video_stream *service_video_streams_get_video_stream_local(rtc_service *service, rtc_channel *channel,
                                                                rtc_list_t *streams, uint8_t stream_id, int create);

/* Destroys every stream of the list (`should_free`), or resets each and leaves it there. Null `streams`
 * is ignored. */
void service_video_streams_cleanup(rtc_service *service, rtc_list_t *streams, bool should_free);

/* The first stream with `stream_id`, or null. */
user_video_stream *video_streams_find_video_stream(rtc_list_t *streams, uint8_t stream_id);

/* ---- Stream lifecycle ---- */

/* Makes a record that is in no list, whatever it holds, an empty live stream. `user` is null for a
 * stream of the local user. Ends the process when the statistics object cannot be had. Null is ignored. */
void video_stream_init(user_video_stream *stream, uint8_t id, rtc_user *user, rtc_channel *channel);

/* Empties both paths and zeroes the counters; keeps identity, format and owned objects, and, unless
 * `reset_seq`, the expected sequences. `is_webrtc` and `is_nass` become 0. Null is ignored. */
void video_stream_reset(user_video_stream *stream, bool reset_seq);

/* ---- Frame queue ---- */

/* Makes the queue empty. The slots' storage is not released. Null is ignored. */
void rtc_video_frames_init(rtc_video_frames_t *q);

/* Lowest and highest frame sequence in the queue, or -1 when it is empty. */
int64_t video_frames_q_get_min_frame_seq(rtc_video_frames_t *q);
int64_t video_frames_q_get_max_frame_seq(rtc_video_frames_t *q);

/* The slot where that frame belongs, which may be empty or hold another; null when the queue is empty. */
video_frame *video_frames_q_get_min_seq_frame(rtc_video_frames_t *q);
video_frame *video_frames_q_get_max_seq_frame(rtc_video_frames_t *q);

/* The nearest frame after (before) `frame` within the queue's bounds, or null. */
video_frame *video_frames_q_next_frame(rtc_video_frames_t *q, video_frame *frame);
video_frame *video_frames_q_prev_frame(rtc_video_frames_t *q, video_frame *frame);

/* The frame that holds packet `seq`, or null. */
video_frame *video_stream_find_frame_by_pkt_seq(user_video_stream *stream, seq_t seq);

/* Releases a frame's storage and empties its slot; the queue's count and bounds stay. */
void video_stream_delete_frame(user_video_stream *stream, video_frame *frame);

/* Puts a packet into its frame. `copy` not 0 copies the payload, 0 takes it over. Returns the packet's
 * frame, also when nothing was stored because that index is filled, out of range or the payload empty;
 * null when the packet is outdated or a duplicate, or without memory for the frame. The frame belongs
 * to the queue. */
video_frame *video_stream_insert_video_packet(user_video_stream *stream, PVideoData4 *video, int copy,
                                              const zeb_ts_t *now_p);

/* Takes a frame out of the queue and releases it; a receiving stream's expected packet moves past it.
 * Returns
 *   0   done
 *   -1  the queue is empty, the frame is out of its bounds, or a removed newest frame has no
 *       predecessor; its storage is then not released. */
int video_stream_remove_frame(user_video_stream *stream, video_frame *frame);

/* Moves the expected packet forward to `seq` and clears the counters that it passes. Never back. */
void video_stream_pkt_seq_move_forward(user_video_stream *stream, uint16_t seq);

/* Moves the expected packet over fully received frames from `frame` on, then to the first hole, from
 * `index_start` on, of a frame that is not fully received. Null `frame` is ignored. */
void video_stream_pkt_seq_auto_forward(user_video_stream *stream, video_frame *frame, uint16_t index_start);

/* The packet sequence number of the frame's last index. */
static inline seq_t video_frame_last_pkt_seq(const video_frame *frame)
{
    return (seq_t)(frame->first_pkt_seq + frame->n_pkts_total - 1);
}

/* ---- Payload assembly ---- */

/* 1 when the frame's payload is generic, which every frame of a protocol version below 10 is; else 0. */
uint8_t video_frame_is_generic(const video_frame *frame);

/* Makes `parsed_frame` a copy of `frame` whose `pkts` are views of the payloads behind the RTP and
 * encapsulation headers (RFC 3550, 5.1). The caller frees `parsed_frame->pkts` with zeb_free_impl and
 * nothing else; the views last as long as `frame` holds its packets. Always 0; without memory `pkts` is
 * null. */
int video_frame_parse_payload(const video_frame *frame, video_frame *parsed_frame);

/* Joins the media packets of a parsed frame into one bitstream, which the caller frees with
 * zeb_free_impl; its size goes to `*p_frame_size`. Null when nothing came out: then the size is 0, or
 * not written when an argument is null, memory is short or the padding is wrong. A depacketizer that
 * stops early leaves what came before. */
uint8_t *video_frame_regroup_pkts(video_frame *frame, PACKETIZER_TYPE packetizer_type, size_t *p_frame_size);

/* Codec numbers of the application and of packets, from one to the other. 254 for what the other side
 * does not know, in both directions. Only the low eight bits count. */
uint8_t video_codec_to_inner(video_data_type_e codec_outer);
uint8_t video_codec_to_outer(VIDEO_PACKET_TYPE codec_inner);

/* ---- Reorder cache ---- */

/* Files a packet of the ring into a frame of the map and works out whether the frame is complete.
 * Returns 0, or -1 when an argument is null. */
int webrtc_video_frame_add_pkt(webrtc_video_cache_t *video_cache, webrtc_video_frame_t *frm,
                               webrtc_video_packet_t *pkt);

/* Takes in one received RTP video packet and delivers what it completes at the head. A packet that is
 * stored is taken over and `video` left empty; otherwise it stays the caller's. */
void webrtc_video_cache_process(webrtc_video_cache_t *video_cache, PVideoData4 *video, bool is_retrans,
                                const zeb_ts_t *now_p);

/* The periodic check: delivers what is due and gives up what has waited 2000 ms. Null is ignored. */
void webrtc_video_cache_check_deliver(webrtc_video_cache_t *video_cache, const zeb_ts_t *now_p);

/* Records of the cache. Init clears a record, reset releases and clears it, fini releases it (a frame's
 * fini frees the node too). Null is ignored; resetting a free slot leaves it as it is. A frame's bounds
 * are unknown after init but 0 after reset. */
void webrtc_video_packet_init(webrtc_video_packet_t *pkt);
void webrtc_video_packet_reset(webrtc_video_packet_t *pkt);
void webrtc_video_frame_init(webrtc_video_frame_t *frm);
void webrtc_video_frame_fini(webrtc_video_frame_t *frm);
void webrtc_video_frame_reset(webrtc_video_frame_t *frm);

/* An empty cache without a ring. Nothing happens unless both arguments are given. */
void webrtc_video_cache_init(webrtc_video_cache_t *video_cache, user_video_stream *stream);

/* Releases all that the cache owns. Null is ignored. */
void webrtc_video_cache_fini(webrtc_video_cache_t *video_cache);

/* Empties the cache and keeps the ring; a cache without a ring is left as it is. Null is ignored. */
void webrtc_video_cache_reset(webrtc_video_cache_t *video_cache);

/* Allocates the ring of a cache that has none. Returns 0, or -1 for a null cache or without memory. */
int webrtc_video_cache_alloc(webrtc_video_cache_t *video_cache);

/* Logs one line about the cache. Null is ignored. */
void webrtc_video_cache_dump(webrtc_video_cache_t *video_cache);

/* ---- Receiver feedback ---- */

/* All three do nothing unless the channel estimates the downlink, the stream's `is_nass` is set, it is
 * stream 0 and has a statistics object. */

/* Reports one frame, and holds the periodic report back for 500 ms. A null frame ends the process. */
void video_stream_send_goodbad_pic(user_video_stream *self, video_frame *frame, bool continuous, const zeb_ts_t *now_p);

/* Reports the complete frames after the one reported last, at most every 500 ms. */
void video_stream_check_send_goodbad_pic(user_video_stream *self, const zeb_ts_t *now_p);

/* Samples one received RTP packet. `is_original` is false for a retransmission. */
void video_stream_send_bandwidth_est(user_video_stream *self, PVideoData4 *video, bool is_original,
                                     const zeb_ts_t *now_p);

#undef VIDEO_ENUM_TYPE

#ifdef __cplusplus
}
#endif

#endif
