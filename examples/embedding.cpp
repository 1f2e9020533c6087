// Embeds the video stream library: three packets of one frame come in out of order, and the frame is
// put together and printed. minimal_layers.cpp holds the functions that the library calls.
#include "video_stream.h"

#include <cstdio>
#include <cstring>
#include <string>

// Packet `index` of the three that make up frame 7: an RTP header, one byte in front of the payload
// that generic frames have, and the payload.
static PVideoData4 packet_of(uint16_t index, const std::string &payload)
{
    const std::string bytes = std::string("\x80\x60\x03\xE8\0\0\0\0\0\0\0\1", 12) + '\0' + payload;
    PVideoData4 packet = {};

    packet.common.seq = static_cast<seq_t>(1000 + index);
    packet.header.frame_seq = 7;
    packet.header.n_pkts = 3;
    packet.header.subseq = index;
    packet.header.video_type = KEY_FRAME << 4;
    packet.header.codec = VIDEO_TYPE_GENERIC;
    packet.header.protocol_version = 10;
    packet.payload.values = zeb_malloc_impl_dbg(bytes.size(), __func__, __LINE__);
    if (packet.payload.values != nullptr) {
        std::memcpy(packet.payload.values, bytes.data(), bytes.size());
        packet.payload.count = packet.payload.allocated = static_cast<uint16_t>(bytes.size());
    }
    return packet;
}

// Prints a complete frame and makes room for the next.
static void consume(user_video_stream *stream, video_frame *frame)
{
    video_frame parsed;
    size_t size = 0;

    video_frame_parse_payload(frame, &parsed);
    uint8_t *bitstream = video_frame_regroup_pkts(&parsed, PACKETIZER_TYPE_GENERIC, &size);
    std::printf("frame %u, %u packets: %.*s\n", static_cast<unsigned>(frame->frame_seq), frame->n_pkts_total,
                static_cast<int>(size), reinterpret_cast<const char *>(bitstream));
    zeb_free_impl(bitstream);
    zeb_free_impl(parsed.pkts);
    video_stream_remove_frame(stream, frame);
}

int main()
{
    const zeb_ts_t now = 0; // milliseconds from any origin
    rtc_service service = {};
    rtc_channel channel = {};
    rtc_user user = {};

    channel.service = &service;
    rtc_list_init(&service.free_user_video_streams);
    rtc_list_init(&user.video_streams_q);
    user_video_stream *stream =
        service_video_streams_get_video_stream(&service, &user, &channel, &user.video_streams_q, 0, 1, &now);
    if (stream == nullptr) {
        return 1;
    }

    // The last packet ends in its padding: one byte that holds the number of padding bytes.
    PVideoData4 packets[] = {packet_of(2, "frames out\1"), packet_of(0, "packets "), packet_of(1, "in, ")};
    for (PVideoData4 &packet : packets) {
        video_frame *frame = video_stream_insert_video_packet(stream, &packet, 0, &now);
        if (frame != nullptr && frame->is_complete != 0) {
            consume(stream, frame);
        }
        zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &packet.payload); // still here if it was not stored
    }

    service_video_streams_cleanup(&service, &user.video_streams_q, true);
    while (list_head *pooled = list_remove_head(&service.free_user_video_streams.head)) {
        zeb_free_impl(pooled);
    }
    return 0;
}
