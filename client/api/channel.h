// The channel layer: one session. Takes packets in, checks them at the door, feeds the video module and
// hands whole frames to the application.
#pragma once

#include <cstddef>
#include <cstdint>

#include "api/stream_report.h"
#include "video_stream.h"

// One whole frame. `data` is only valid during the callback.
struct channel_frame {
    const uint8_t *data;
    size_t size;   // bytes
    uint8_t codec; // VIDEO_PACKET_TYPE
    bool is_key;
    uint32_t uid; // the sender: the SSRC of an RTP stream
    uint8_t stream_id;
    uint32_t rtp_timestamp; // RTP streams; 0 on the native path
    uint32_t frame_seq;     // the module's frame number
    seq_t first_seq;        // RTP sequence numbers of the frame's packets
    seq_t last_seq;
};

// Called for each frame, in order. It must not call back into the channel or the service: what it wants
// done is to be done after the call that it came from returns.
using channel_frame_callback = void (*)(void *context, const channel_frame *frame);

// Called with each RTCP datagram that is to be sent to the channel's senders, from rtc_channel_receive_* and
// rtc_service_tick. The bytes are only valid during the callback, which is under the rule above.
using channel_rtcp_callback = void (*)(void *context, const uint8_t *datagram, size_t size);

// What the other side understands and is to be told. All false: nothing is ever sent. Nor is anything to a sender that
// was silent for five seconds, and what a sender is sent stays below three times the bytes that came from it, as its
// packets may have been sent by somebody else in its name; what that holds back is sent when more came.
struct channel_feedback {
    bool reports;      // receiver reports with SDES (RFC 3550)
    bool nack;         // generic NACK (RFC 4585): the sender retransmits
    bool pli;          // picture loss indication (RFC 4585)
    bool fir;          // full intra request (RFC 5104), used instead of PLI
    bool remb;         // receiver estimated maximum bitrate; needs enable_bandwidth_est_downlink
    bool reduced_size; // feedback without a report in front of it is allowed (RFC 5506)
    // A loss that nothing will repair ends the wait for it at once, with a key-frame request; false: the
    // 2000 ms are sat out.
    bool give_up_early;
};

// Senders that a channel lets in when its configuration says nothing else. Each RTP stream takes a packet ring of a
// megabyte, so strangers must not be able to ask for many.
constexpr uint16_t kChannelSendersDefault = 8;

// All zero, but for what the caller wants, is a channel that only listens.
struct channel_config {
    const char *name; // printable; cut to RTC_CHANNEL_NAME_SIZE - 1 bytes
    bool enable_bandwidth_est_downlink;
    channel_frame_callback on_frame; // may be null
    void *on_frame_context;
    channel_feedback feedback = {};
    channel_rtcp_callback on_rtcp = nullptr; // may be null
    void *on_rtcp_context = nullptr;
    uint32_t local_ssrc = 0;     // of the receiver, in what it sends
    const char *cname = nullptr; // of the receiver (RFC 3550, 6.5.1), copied; null: no SDES is sent
    // Senders at a time; 0: kChannelSendersDefault. Packets of another one are refused as PACKET_DROP_TOO_MANY_SENDERS until
    // one of them was silent for 5 s. Of more than eight, eight are paired with their retransmissions at a time.
    uint16_t max_senders = 0;
};

// A new channel, owned by the service; null without memory.
rtc_channel *rtc_channel_create(rtc_service *service, const channel_config *config);

// Destroys the channel with its users and streams. Null is harmless.
void rtc_channel_destroy(rtc_channel *channel);

// Says what an RTP payload type carries: VIDEO_TYPE_H264, VIDEO_TYPE_H265, or VIDEO_TYPE_UNKNOWN to refuse
// it. Only the low seven bits of `payload_type` count. All are refused at first.
void rtc_channel_set_payload_type(rtc_channel *channel, uint8_t payload_type, uint8_t codec);

// Takes in one RTP packet as it came from the network; the bytes stay the caller's. A sender (SSRC) that is
// new becomes a user with stream 0, up to a limit. Returns
//   0   the packet went to its stream
//   -1  it was refused at the door or dropped, and counted by reason.
int rtc_channel_receive_rtp(rtc_channel *channel, const uint8_t *packet, size_t size, bool is_retrans,
                            const zeb_ts_t *now_p);

// Says that packets of `rtx_payload_type` are retransmissions (RFC 4588) of packets of `payload_type`.
void rtc_channel_set_rtx(rtc_channel *channel, uint8_t rtx_payload_type, uint8_t payload_type);

// Says that retransmissions for the sender `ssrc` come under `rtx_ssrc` (RFC 5576, "ssrc-group:FID"). A sender that
// is not paired so is paired when a retransmission answers a request (RFC 4588, 5.3).
void rtc_channel_pair_ssrc(rtc_channel *channel, uint32_t ssrc, uint32_t rtx_ssrc);

// Gives one parameter set that the session description carries (RFC 6184, 8.1: sprop-parameter-sets; RFC 7798, 7.1:
// sprop-vps, sprop-sps, sprop-pps): a whole NAL unit without start code, which is copied. It is put in front of a
// key frame that comes without. What is no parameter set of the codec, or too large, is ignored.
void rtc_channel_set_parameter_set(rtc_channel *channel, uint8_t codec, const uint8_t *nal, size_t size);

// Takes in one RTCP datagram from the senders. Returns 0, or -1 when it is not well-formed: then it is counted and
// nothing of it is used.
int rtc_channel_receive_rtcp(rtc_channel *channel, const uint8_t *datagram, size_t size, const zeb_ts_t *now_p);

// Takes in one packet of the native path for stream `stream_id` of user `video->common.uid`. The payload and
// the extension are taken over and left empty, whatever becomes of the packet. Returns as above.
int rtc_channel_receive_native(rtc_channel *channel, PVideoData4 *video, uint8_t stream_id, bool is_retrans,
                               const zeb_ts_t *now_p);

// The stream `stream_id` of user `uid`, or null.
user_video_stream *rtc_channel_find_stream(rtc_channel *channel, uint32_t uid, uint8_t stream_id);

// What happened to a stream of this channel so far; null for a stream that the channel does not know.
const stream_report *rtc_channel_stream_report(const user_video_stream *stream);

// Packets that belong to no stream: refused before their sender was known, by reason.
const uint64_t *rtc_channel_packets_refused(const rtc_channel *channel); // packet_drop_e long

// RTCP datagrams that were not well-formed.
uint64_t rtc_channel_rtcp_malformed(const rtc_channel *channel);
