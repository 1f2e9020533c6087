#include "full_stream.h"

#include "scenes.h"

using namespace bench;

PVideoData4 native_packet(uint32_t frame_seq, uint32_t seq, uint16_t n_pkts)
{
    return make_packet({static_cast<seq_t>(seq), 0, frame_seq, n_pkts, 0, frame_seq == 0, true, kSmallPacket});
}

video_frame *insert(user_video_stream *stream, uint32_t frame_seq, uint32_t seq, uint16_t n_pkts)
{
    PVideoData4 video = native_packet(frame_seq, seq, n_pkts);
    video_frame *frame = video_stream_insert_video_packet(stream, &video, 0, &kNow);

    require(frame != nullptr && frame->n_pkts_received == 1, "the packet is stored");
    return frame;
}

void fill_queue(user_video_stream *stream)
{
    for (uint32_t i = 0; i < VIDEO_FRAMES_Q_SLOTS; i++) {
        insert(stream, i, i * (kHalfCircle - 1), 1);
    }
    require(stream->video_frames_q.count == VIDEO_FRAMES_Q_SLOTS, "every slot holds a frame");
}

bool process(user_video_stream *stream, uint32_t seq, uint32_t timestamp, bool is_key, bool is_marked)
{
    PVideoData4 video = make_packet({static_cast<seq_t>(seq), timestamp, 0, 0, 0, is_key, is_marked, kSmallPacket});

    webrtc_video_cache_process(&stream->video_cache_q, &video, false, &kNow);
    const bool is_stored = zeb_dynamic_array_is_empty(&video.payload);
    zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &video.payload);
    return is_stored;
}

void fill_ring(user_video_stream *stream)
{
    process(stream, 0, 0, true, true);
    for (uint32_t i = 2; i <= WEBRTC_VIDEO_RING_SLOTS; i++) {
        require(process(stream, i, i, false, true), "the packet is stored");
    }
    require(stream->video_cache_q.frm_cur_cnt == WEBRTC_VIDEO_RING_SLOTS - 1, "each packet is a frame");
}
