#include "full_stream.h"
#include "scenes.h"

using namespace bench;
using meter::metered;

namespace
{

constexpr uint32_t kFrames = 100;

// -- Native path --

unsigned insert_frames(int copy)
{
    BenchStream bench;

    for (uint32_t frame = 0; frame < kFrames; frame++) {
        video_frame *inserted = nullptr;
        for (uint16_t i = 0; i < kPacketsPerFrame; i++) {
            PVideoData4 video = make_packet(frame, i);
            metered([&] { inserted = video_stream_insert_video_packet(bench.get(), &video, copy, &kNow); });
            zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &video.payload);
        }
        require(inserted != nullptr && inserted->is_complete != 0, "the frame is whole");
        video_stream_remove_frame(bench.get(), inserted);
    }
    return kFrames * kPacketsPerFrame;
}

unsigned insert_taking()
{
    return insert_frames(0);
}

unsigned insert_copying()
{
    return insert_frames(1);
}

unsigned remove_frames()
{
    BenchStream bench;

    for (uint32_t frame = 0; frame < kFrames; frame++) {
        video_frame *inserted = insert_frame(bench.get(), frame, kNow);
        metered([&] { video_stream_remove_frame(bench.get(), inserted); });
    }
    return kFrames;
}

// -- RTP path --

unsigned process_and_deliver()
{
    BenchStream bench;

    for (uint32_t frame = 0; frame < kFrames; frame++) {
        for (uint16_t i = 0; i < kPacketsPerFrame; i++) {
            PVideoData4 video = make_packet(frame, i);
            metered([&] { webrtc_video_cache_process(bench.cache(), &video, false, &kNow); });
        }
    }
    require(bench.cache()->pkt_cur_cnt == 0 && bench.cache()->last_deliver_frm_seq == kFrames + 999,
            "all is delivered");
    return kFrames * kPacketsPerFrame;
}

unsigned check_with(uint32_t waiting_frames)
{
    BenchStream bench;

    for (uint32_t frame = 0; frame < waiting_frames; frame++) {
        PVideoData4 video = make_packet(frame, 0); // never whole
        webrtc_video_cache_process(bench.cache(), &video, false, &kNow);
    }
    metered([&] { webrtc_video_cache_check_deliver(bench.cache(), &kNow); });
    return 1;
}

unsigned check_empty()
{
    return check_with(0);
}

unsigned check_waiting()
{
    return check_with(500);
}

// -- Payload assembly --

// Makes packet `i` of a frame a fragment of one NAL unit, behind the RTP header: H.264, RFC 6184, 5.8, or H.265,
// RFC 7798, 4.4.3.
void make_fragment(PVideoData4 *video, uint16_t i, PACKETIZER_TYPE type)
{
    auto *payload = static_cast<uint8_t *>(video->payload.values) + kRtpHeaderSize;
    const auto edges = static_cast<uint8_t>((i == 0 ? 0x80 : 0) | (i + 1 == kPacketsPerFrame ? 0x40 : 0));

    if (type == PACKETIZER_TYPE_H264) {
        payload[0] = 0x7C;
        payload[1] = edges | 1;
    } else if (type == PACKETIZER_TYPE_H265) {
        payload[0] = 49 << 1;
        payload[1] = 1;
        payload[2] = edges | 1;
    }
}

video_frame *insert_fragments(BenchStream *bench, PACKETIZER_TYPE type)
{
    video_frame *frame = nullptr;

    for (uint16_t i = 0; i < kPacketsPerFrame; i++) {
        PVideoData4 video = make_packet(0, i);
        make_fragment(&video, i, type);
        frame = video_stream_insert_video_packet(bench->get(), &video, 0, &kNow);
    }
    return frame;
}

unsigned parse()
{
    BenchStream bench;
    const video_frame *frame = insert_fragments(&bench, PACKETIZER_TYPE_H264);
    video_frame parsed;

    metered([&] { video_frame_parse_payload(frame, &parsed); });
    zeb_free_impl(parsed.pkts);
    return kPacketsPerFrame;
}

unsigned regroup(PACKETIZER_TYPE packets, PACKETIZER_TYPE type)
{
    BenchStream bench;
    const video_frame *frame = insert_fragments(&bench, packets);
    video_frame parsed;
    size_t size = 0;
    uint8_t *bitstream = nullptr;

    video_frame_parse_payload(frame, &parsed);
    metered([&] { bitstream = video_frame_regroup_pkts(&parsed, type, &size); });
    require(size > kPacketsPerFrame * (kPacketSize - kRtpHeaderSize - 3u), "the bitstream has all payloads");
    zeb_free_impl(bitstream);
    zeb_free_impl(parsed.pkts);
    return kPacketsPerFrame;
}

unsigned regroup_generic()
{
    return regroup(PACKETIZER_TYPE_GENERIC, PACKETIZER_TYPE_GENERIC);
}

unsigned regroup_h264_units()
{
    return regroup(PACKETIZER_TYPE_GENERIC, PACKETIZER_TYPE_H264);
}

unsigned regroup_h264_fragments()
{
    return regroup(PACKETIZER_TYPE_H264, PACKETIZER_TYPE_H264);
}

unsigned regroup_h265_fragments()
{
    return regroup(PACKETIZER_TYPE_H265, PACKETIZER_TYPE_H265);
}

// -- Feedback --

unsigned bandwidth_samples()
{
    BenchStream bench(true);

    for (uint32_t frame = 0; frame < kFrames; frame++) {
        for (uint16_t i = 0; i < kPacketsPerFrame; i++) {
            const zeb_ts_t now = kNow + frame * 33 + i + frame * 7 % 5;
            PVideoData4 video = make_packet(frame, i);
            metered([&] { video_stream_send_bandwidth_est(bench.get(), &video, true, &now); });
            zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &video.payload);
        }
    }
    require(bench.get()->bcm_stat->n_packets == kFrames * kPacketsPerFrame, "each packet is a sample");
    return kFrames * kPacketsPerFrame;
}

unsigned picture_report()
{
    BenchStream bench(true);
    video_frame *frame = insert_frame(bench.get(), 1, kNow);

    metered([&] { video_stream_send_goodbad_pic(bench.get(), frame, true, &kNow); });
    require(bench.get()->bcm_stat->n_pictures == 1, "the picture is reported");
    return 1;
}

unsigned picture_walk()
{
    BenchStream bench(true);

    insert_frame(bench.get(), 1, kNow);
    metered([&] { video_stream_check_send_goodbad_pic(bench.get(), &kNow); });
    require(bench.get()->bcm_stat->n_pictures == 1, "the picture is reported");
    return 1;
}

unsigned picture_walk_not_due()
{
    BenchStream bench(true);

    video_stream_send_goodbad_pic(bench.get(), insert_frame(bench.get(), 1, kNow), true, &kNow);
    metered([&] { video_stream_check_send_goodbad_pic(bench.get(), &kNow); });
    require(bench.get()->bcm_stat->n_pictures == 1, "only the first report was made");
    return 1;
}

} // namespace

std::vector<scene> typical_calls()
{
    return {
        {"`video_stream_insert_video_packet`, payload taken over, a packet", insert_taking},
        {"`video_stream_insert_video_packet`, payload copied, a packet", insert_copying},
        {"`video_stream_remove_frame`, a frame of 10 packets", remove_frames},
        {"`webrtc_video_cache_process`, through delivery, a packet", process_and_deliver},
        {"`webrtc_video_cache_check_deliver`, nothing held", check_empty},
        {"`webrtc_video_cache_check_deliver`, 500 frames held", check_waiting},
        {"`video_frame_parse_payload`, a packet", parse},
        {"`video_frame_regroup_pkts`, generic, a packet", regroup_generic},
        {"`video_frame_regroup_pkts`, H.264, a packet with one NAL unit", regroup_h264_units},
        {"`video_frame_regroup_pkts`, H.264, a packet with a fragment", regroup_h264_fragments},
        {"`video_frame_regroup_pkts`, H.265, a packet with a fragment", regroup_h265_fragments},
        {"`video_stream_send_bandwidth_est`, a packet", bandwidth_samples},
        {"`video_stream_send_goodbad_pic`, a frame", picture_report},
        {"`video_stream_check_send_goodbad_pic`, not due", picture_walk_not_due},
        {"`video_stream_check_send_goodbad_pic`, one frame", picture_walk},
    };
}
