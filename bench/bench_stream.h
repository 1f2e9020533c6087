// A stream that nobody reads from, and packets for it.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>

#include "video_stream.h"

namespace bench
{

constexpr uint16_t kPacketSize = 1200; // bytes, RTP header included
constexpr uint16_t kPacketsPerFrame = 10;
constexpr uint32_t kTicksPerFrame = 3000; // of the 90 kHz clock at 30 frames a second
constexpr uint8_t kPayloadType = 96;
constexpr uint16_t kRtpHeaderSize = 12;

// A stream of a remote user that nobody reads from.
class BenchStream
{
  public:
    explicit BenchStream(bool estimates_downlink = false) : stream_(std::make_unique<user_video_stream>())
    {
        rtc_list_init(&service_.free_user_video_streams);
        channel_.service = &service_;
        channel_.bandwidth_est_opt.enable_bandwidth_est_downlink = estimates_downlink;
        video_stream_init(stream_.get(), 0, &user_, &channel_);
        stream_->is_nass = 1;
    }

    ~BenchStream()
    {
        video_stream_reset(stream_.get(), true);
        webrtc_video_cache_fini(&stream_->video_cache_q);
        net_rcv_analyzer_del(&stream_->current_net_rcv_quality);
        KelvraBcmStat_Destroy(stream_->bcm_stat);
    }

    BenchStream(const BenchStream &) = delete;
    BenchStream &operator=(const BenchStream &) = delete;

    user_video_stream *get()
    {
        return stream_.get();
    }

    rtc_video_frames_t *queue()
    {
        return &stream_->video_frames_q;
    }

    webrtc_video_cache_t *cache()
    {
        return &stream_->video_cache_q;
    }

  private:
    rtc_service service_ = {};
    rtc_channel channel_ = {};
    rtc_user user_ = {};
    std::unique_ptr<user_video_stream> stream_;
};

// What tells one packet from another, under both numberings.
struct packet_spec {
    seq_t seq;
    uint32_t timestamp;
    uint32_t frame_seq;
    uint16_t n_pkts;
    uint16_t index;
    bool is_key;
    bool is_marked;
    uint16_t size; // bytes, RTP header included
};

// Writes an RTP packet with a slice of an H.264 picture inside.
inline void write_rtp(uint8_t *bytes, const packet_spec &spec)
{
    std::memset(bytes, 0x55, spec.size);
    bytes[0] = 0x80;
    bytes[1] = static_cast<uint8_t>(spec.is_marked ? 0x80 | kPayloadType : kPayloadType);
    bytes[2] = static_cast<uint8_t>(spec.seq >> 8);
    bytes[3] = static_cast<uint8_t>(spec.seq);
    for (unsigned i = 0; i < 4; i++) {
        bytes[4 + i] = static_cast<uint8_t>(spec.timestamp >> (24 - 8 * i));
    }
    if (spec.size > kRtpHeaderSize) {
        bytes[kRtpHeaderSize] = spec.is_key ? 0x65 : 0x41;
    }
    if (spec.size > kRtpHeaderSize + 1) {
        bytes[kRtpHeaderSize + 1] = spec.index == 0 ? 0x88 : 0x55; // its first macroblock is number 0, or a later one
        bytes[spec.size - 1] = 0;                                  // no padding
    }
}

inline PVideoData4 make_packet(const packet_spec &spec)
{
    PVideoData4 video = {};

    video.payload.values = zeb_malloc_impl_dbg(spec.size, "bench", __LINE__);
    video.payload.count = spec.size;
    video.payload.allocated = spec.size;
    write_rtp(static_cast<uint8_t *>(video.payload.values), spec);
    video.common.seq = spec.seq;
    video.header.frame_seq = spec.frame_seq;
    video.header.n_pkts = spec.n_pkts;
    video.header.subseq = spec.index;
    video.header.video_type = static_cast<uint8_t>((spec.is_key ? KEY_FRAME : DELTA_FRAME) << 4);
    video.header.codec = VIDEO_TYPE_H264;
    video.header.protocol_version = 10;
    return video;
}

// Packet `index` of frame `frame` in a stream of frames of kPacketsPerFrame packets.
inline packet_spec packet_of_stream(uint32_t frame, uint16_t index)
{
    return {static_cast<seq_t>(frame * kPacketsPerFrame + index),
            frame * kTicksPerFrame,
            frame,
            kPacketsPerFrame,
            index,
            frame == 0,
            index + 1 == kPacketsPerFrame,
            kPacketSize};
}

inline PVideoData4 make_packet(uint32_t frame, uint16_t index)
{
    return make_packet(packet_of_stream(frame, index));
}

inline video_frame *insert_frame(user_video_stream *stream, uint32_t frame, zeb_ts_t now)
{
    video_frame *inserted = nullptr;

    for (uint16_t i = 0; i < kPacketsPerFrame; i++) {
        PVideoData4 video = make_packet(frame, i);
        inserted = video_stream_insert_video_packet(stream, &video, 0, &now);
    }
    return inserted;
}

} // namespace bench
