/* A program in C that embeds the module: it supplies the layers that the module calls, and takes one
 * RTP frame from packets to a bitstream. */
#include "video_stream.h"

#include <stdio.h>
#include <string.h>

enum {
    RTP_HEADER_SIZE = 12,
    PAYLOAD_SIZE = 4,
    N_PACKETS = 2
};

static int failures;

static void check(bool holds, const char *what)
{
    if (!holds) {
        printf("failed: %s\n", what);
        failures += 1;
    }
}

/* ---- What the module calls, beside the platform ---- */

int g_log_enable = 1;
log_mod_t g_log_mod_arr[LM_MAX] = {[LM_RCV_VID] = {LM_RCV_VID, RTC_LOG_DEBUG, "rcv"}};
const char *g_log_level_arr[] = {"default", "emerg", "alert", "crit", "error", "warning", "notice", "info", "debug"};

static int n_messages;
static int n_created;
static int n_delivered;

void kelvra_rtc_log(int level, const char *format, ...)
{
    check(level <= RTC_LOG_DEBUG && format[0] == '[', "a message has a level and begins with a prefix");
    n_messages += 1;
}

void video_data4_take(PVideoData4 *dst, PVideoData4 *src)
{
    *dst = *src;
    memset(src, 0, sizeof(*src));
}

void channel_on_video_stream_created(rtc_channel *channel, user_video_stream *stream)
{
    check(stream->channel == channel, "a stream knows its channel when it is announced");
    n_created += 1;
}

int rtc_video_add_packet(user_video_stream *stream, PVideoData4 *video, int is_retrans, int is_key,
                         const zeb_ts_t *now_p)
{
    check(is_retrans == 0 && is_key == 1, "the flags of the packet arrive");
    n_delivered += 1;
    return video_stream_insert_video_packet(stream, video, 0, now_p) != NULL ? 0 : -1;
}

void rtc_video_stream_reset_state(user_video_stream *stream, const zeb_ts_t *ts)
{
    (void)ts;
    stream->pkt_seq = UINT32_MAX;
}

void webrtc_video_send_intra_request(webrtc_video_cache_t *video_cache, const zeb_ts_t *now_p)
{
    (void)video_cache;
    (void)now_p;
    check(false, "no key frame is asked for");
}

void webrtc_user_send_video_rexfer_req(webrtc_video_cache_t *video_cache, const zeb_ts_t *now_p)
{
    (void)video_cache;
    (void)now_p;
    check(false, "no retransmission is asked for");
}

struct net_rcv_analyzer_t {
    int n_periods;
};

net_rcv_analyzer_t *net_rcv_analyzer_new(void)
{
    net_rcv_analyzer_t *analyzer = (net_rcv_analyzer_t *)zeb_malloc_impl_dbg(sizeof(*analyzer), __func__, __LINE__);

    if (analyzer != NULL) {
        analyzer->n_periods = 0;
    }
    return analyzer;
}

void net_rcv_analyzer_del(net_rcv_analyzer_t **analyzer_p)
{
    zeb_free_impl(*analyzer_p);
    *analyzer_p = NULL;
}

void net_rcv_analyzer_reset(net_rcv_analyzer_t *analyzer)
{
    analyzer->n_periods += 1;
}

/* The channel does not estimate its downlink, so there is never a statistics object. */
KelvraBcmStatistics *KelvraBcmStat_Create(const KelvraBcmStatisticsConfig *config)
{
    (void)config;
    check(false, "no statistics object is made");
    return NULL;
}

void KelvraBcmStat_Destroy(KelvraBcmStatistics *stat)
{
    check(stat == NULL, "no statistics object is destroyed");
}

void KelvraBcmStat_Reset(KelvraBcmStatistics *stat)
{
    check(stat == NULL, "no statistics object is reset");
}

void KelvraBcmStat_OnRecvPacket(KelvraBcmStatistics *stat, uint16_t sequenceNumber, uint32_t timestamp, uint16_t size,
                                zeb_ts_t now, uint8_t retrans_flag)
{
    (void)sequenceNumber, (void)timestamp, (void)size, (void)now, (void)retrans_flag;
    check(stat == NULL, "no packet is sampled");
}

void KelvraBcmStat_OnDecodeResult(KelvraBcmStatistics *stat, uint32_t frame_seq, uint16_t min_rtp_seq,
                                  uint16_t max_rtp_seq, uint8_t continuous, uint16_t wait_time, const zeb_ts_t *now_p)
{
    (void)frame_seq, (void)min_rtp_seq, (void)max_rtp_seq, (void)continuous, (void)wait_time, (void)now_p;
    check(stat == NULL, "no picture is reported");
}

/* Copies the payload as it is: the test looks for its own bytes. */
int depacketizer_h264_packet(uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr, size_t *frame_offset,
                             size_t *frame_size)
{
    size_t n = (size_t)(end_ptr - cur_ptr);

    memcpy(frame_data + *frame_offset, cur_ptr, n);
    *frame_offset += n;
    *frame_size += n;
    return 0;
}

int depacketizer_h265_packet(uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr, size_t *frame_offset,
                             size_t *frame_size)
{
    return depacketizer_h264_packet(frame_data, cur_ptr, end_ptr, frame_offset, frame_size);
}

/* ---- The program ---- */

/* One packet of a key frame; the payload names its place. */
static PVideoData4 key_packet(seq_t seq, char place, bool is_last)
{
    const uint8_t bytes[RTP_HEADER_SIZE + PAYLOAD_SIZE] = {0x80,
                                                           (uint8_t)(is_last ? 0x80 | 96 : 96),
                                                           (uint8_t)(seq >> 8),
                                                           (uint8_t)seq,
                                                           0,
                                                           0,
                                                           0x10,
                                                           0,
                                                           0,
                                                           0,
                                                           0,
                                                           1,
                                                           'n',
                                                           'a',
                                                           'l',
                                                           (uint8_t)place};
    PVideoData4 packet;

    memset(&packet, 0, sizeof(packet));
    packet.common.seq = seq;
    packet.header.video_type = KEY_FRAME << 4;
    packet.header.codec = VIDEO_TYPE_H264;
    packet.header.protocol_version = 10;
    packet.payload.values = zeb_malloc_impl_dbg(sizeof(bytes), __func__, __LINE__);
    if (packet.payload.values != NULL) {
        memcpy(packet.payload.values, bytes, sizeof(bytes));
        packet.payload.count = packet.payload.allocated = sizeof(bytes);
    }
    return packet;
}

/* Passes the packets of one key frame, around the wrap of the sequence numbers. */
static void receive_key_frame(user_video_stream *stream, const zeb_ts_t *now_p)
{
    seq_t seq = UINT16_MAX;

    for (int i = 0; i < N_PACKETS; ++i) {
        PVideoData4 packet = key_packet(seq, (char)('0' + i), i == N_PACKETS - 1);

        webrtc_video_cache_process(&stream->video_cache_q, &packet, false, now_p);
        check(zeb_dynamic_array_is_empty(&packet.payload), "the packet is taken over");
        seq = zeb_uint16_next(seq);
    }
    check(n_delivered == N_PACKETS, "a complete key frame is delivered packet by packet");
}

static void read_frame(user_video_stream *stream)
{
    video_frame *frame = video_frames_q_get_min_seq_frame(&stream->video_frames_q);
    video_frame parsed;
    size_t size = 0;

    check(frame != NULL && frame->is_complete == 1 && frame->is_key_frame == 1, "the frame is complete");
    if (frame == NULL) {
        return;
    }
    check(video_frame_is_generic(frame) == 0, "the frame is not generic");
    check(video_frame_last_pkt_seq(frame) == (seq_t)(frame->first_pkt_seq + N_PACKETS - 1), "it has all packets");
    check(video_frame_parse_payload(frame, &parsed) == 0, "the payload is parsed");

    uint8_t *bitstream = video_frame_regroup_pkts(&parsed, PACKETIZER_TYPE_H264, &size);

    check(bitstream != NULL && size == N_PACKETS * PAYLOAD_SIZE && memcmp(bitstream, "nal0nal1", size) == 0,
          "the bitstream holds the payloads in order");
    zeb_free_impl(bitstream);
    zeb_free_impl(parsed.pkts);
    check(video_stream_remove_frame(stream, frame) == 0, "the frame is removed");
    check(video_frames_q_get_max_frame_seq(&stream->video_frames_q) == -1, "the queue is empty again");
}

static void free_pool(rtc_service *service)
{
    for (list_head *link = list_remove_head(&service->free_user_video_streams.head); link != NULL;
         link = list_remove_head(&service->free_user_video_streams.head)) {
        zeb_free_impl(link);
    }
}

int main(void)
{
    const zeb_ts_t now = 1000;
    static rtc_service service;
    static rtc_channel channel;
    static rtc_user user;

    rtc_list_init(&service.free_user_video_streams);
    rtc_list_init(&user.video_streams_q);
    channel.service = &service;

    user_video_stream *stream =
        service_video_streams_get_video_stream(&service, &user, &channel, &user.video_streams_q, 0, 1, &now);

    check(stream != NULL && n_created == 1, "a stream is created and announced");
    if (stream == NULL) {
        return 1;
    }
    check(video_streams_find_video_stream(&user.video_streams_q, 0) == stream, "the stream is found again");
    stream->is_webrtc = 1;
    receive_key_frame(stream, &now);
    read_frame(stream);
    check(n_messages > 0, "messages are logged");
    check(video_codec_to_inner(VIDEO_DATA_TYPE_H265) == VIDEO_TYPE_H265, "codecs are mapped");

    service_video_streams_cleanup(&service, &user.video_streams_q, true);
    check(list_empty(&user.video_streams_q.head) && user.video_streams_q.count == 0, "no stream is left");
    check(service.free_user_video_streams.count == 1, "the record is kept for reuse");
    free_pool(&service);
    return failures;
}
