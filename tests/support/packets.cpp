#include "packets.h"

#include <cstring>

namespace test_support
{

std::vector<uint8_t> rtp_bytes(const rtp_fields &fields, const std::vector<uint8_t> &body)
{
    std::vector<uint8_t> bytes = {
        0x80,
        static_cast<uint8_t>((fields.marker ? 0x80 : 0) | fields.payload_type),
        static_cast<uint8_t>(fields.seq >> 8),
        static_cast<uint8_t>(fields.seq),
        static_cast<uint8_t>(fields.timestamp >> 24),
        static_cast<uint8_t>(fields.timestamp >> 16),
        static_cast<uint8_t>(fields.timestamp >> 8),
        static_cast<uint8_t>(fields.timestamp),
        0x11,
        0x22,
        0x33,
        0x44,
    };
    bytes.insert(bytes.end(), body.begin(), body.end());
    return bytes;
}

PVideoData4 packet_with(const std::vector<uint8_t> &payload)
{
    PVideoData4 video = {};

    if (!payload.empty()) {
        video.payload.values = zeb_malloc_impl_dbg(payload.size(), "test packet", __LINE__);
        std::memcpy(video.payload.values, payload.data(), payload.size());
        video.payload.count = static_cast<uint16_t>(payload.size());
        video.payload.allocated = video.payload.count;
    }
    return video;
}

void release(PVideoData4 *video)
{
    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &video->payload);
}

PVideoData4 native_packet(const native_fields &fields)
{
    PVideoData4 video = packet_with(rtp_bytes(fields.rtp, fields.body));

    video.common.seq = fields.seq;
    video.common.sent_ts = fields.sent_ts;
    video.header.frame_seq = fields.frame_seq;
    video.header.n_pkts = fields.n_pkts;
    video.header.subseq = fields.subseq;
    video.header.video_type = fields.video_type;
    video.header.codec = fields.codec;
    video.header.protocol_version = fields.protocol_version;
    video.header.reserved = fields.reserved;
    return video;
}

PVideoData4 rtp_packet(seq_t seq, uint32_t timestamp, bool is_key, bool marker)
{
    PVideoData4 video = packet_with(rtp_bytes({seq, timestamp, marker, 96}, {static_cast<uint8_t>(seq)}));

    video.common.seq = seq;
    video.header.video_type = is_key ? kKey : kDelta;
    return video;
}

} // namespace test_support
