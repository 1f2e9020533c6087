/* Records of the service, channel and user layers, and what those layers do for the video module. */
#ifndef RTC_CLIENT_H
#define RTC_CLIENT_H

#include <stdbool.h>
#include <stdint.h>

#include "rtc_list.h"
#include "rtc_packet.h"
#include "zeb_platform.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct user_video_stream user_video_stream;
typedef struct webrtc_video_cache_t webrtc_video_cache_t;

enum {
    RTC_CHANNEL_NAME_SIZE = 64 /* bytes, the terminating zero included */
};

/* The service: one per client. */
typedef struct rtc_service {
    rtc_list_t free_user_video_streams; /* released stream records, kept for reuse */
    struct service_state *state;        /* the service layer's own; null in a bare record */
} rtc_service;

/* What bandwidth estimation a channel does. */
typedef struct bandwidth_est_opt_t {
    bool enable_bandwidth_est_downlink;
} bandwidth_est_opt_t;

/* A channel: one session with remote users. */
typedef struct rtc_channel {
    char name_id[RTC_CHANNEL_NAME_SIZE]; /* printable name, for log lines */
    rtc_service *service;
    rtc_list_t video_stream_q; /* streams of the local user */
    bandwidth_est_opt_t bandwidth_est_opt;
    struct channel_state *state; /* the channel layer's own; null in a bare record */
} rtc_channel;

/* A remote user of a channel. */
typedef struct rtc_user {
    rtc_list_t video_streams_q; /* streams that the user sends */
    struct user_state *state;   /* the user layer's own; null in a bare record */
} rtc_user;

/* Channel layer: a stream was created on demand and is in its list. */
void channel_on_video_stream_created(rtc_channel *channel, user_video_stream *stream);

/* Channel layer: one packet of a whole RTP frame, in order, under the native numbering. `is_retrans`
 * and `is_key` are 0 or 1. The packet's record stays in its slot of the reorder cache; its payload may
 * be taken over. The result is not looked at. Must not reset, clean up or destroy the stream. */
int rtc_video_add_packet(user_video_stream *stream, PVideoData4 *video, int is_retrans, int is_key,
                         const zeb_ts_t *now_p);

/* Channel layer: the frame numbering of the stream starts anew. `ts` is the arrival time of the first
 * packet of the frame that starts it. Called in the middle of a delivery, so the reorder cache must be
 * left alone. */
void rtc_video_stream_reset_state(user_video_stream *stream, const zeb_ts_t *ts);

/* User layer: a key frame is wanted. Called as often as the need is seen; the user layer paces. */
void webrtc_video_send_intra_request(webrtc_video_cache_t *video_cache, const zeb_ts_t *now_p);

/* User layer: packets between the expected and the newest one are missing. Called as often as the need
 * is seen; the user layer paces. */
void webrtc_user_send_video_rexfer_req(webrtc_video_cache_t *video_cache, const zeb_ts_t *now_p);

#ifdef __cplusplus
}
#endif

#endif
