// The most that one call can be made to do, by packets that no sane sender makes.
#include "full_stream.h"
#include "scenes.h"

using namespace bench;
using meter::metered;

namespace
{

constexpr zeb_ts_t kTooLate = 5000; // behind every patience
// -- Native path --

unsigned insert_evicting()
{
    BenchStream bench;
    video_frame *inserted = nullptr;

    fill_queue(bench.get());
    PVideoData4 video = native_packet(VIDEO_FRAMES_Q_SLOTS, 40 * (kHalfCircle - 1), UINT16_MAX);
    metered([&] { inserted = video_stream_insert_video_packet(bench.get(), &video, 0, &kNow); });
    require(inserted != nullptr && inserted->n_pkts_total == UINT16_MAX, "the frame is made");
    return 1;
}

unsigned insert_over_largest()
{
    BenchStream bench;
    video_frame *inserted = nullptr;

    insert(bench.get(), 0, 0, UINT16_MAX);
    PVideoData4 video = native_packet(VIDEO_FRAMES_Q_SLOTS, 40, UINT16_MAX);
    metered([&] { inserted = video_stream_insert_video_packet(bench.get(), &video, 0, &kNow); });
    require(inserted != nullptr && bench.get()->n_overlapped_frames_recent == 1, "the frame is replaced");
    return 1;
}

unsigned remove_over_all()
{
    BenchStream bench;

    fill_queue(bench.get());
    video_frame *oldest = video_frames_q_get_min_seq_frame(bench.queue());
    metered([&] { video_stream_remove_frame(bench.get(), oldest); });
    require(bench.get()->pkt_seq == static_cast<seq_t>(39 * (kHalfCircle - 1) + 1), "all frames are passed");
    return 1;
}

unsigned remove_largest()
{
    BenchStream bench;
    video_frame *frame = insert(bench.get(), 0, 0, UINT16_MAX);

    metered([&] { video_stream_remove_frame(bench.get(), frame); });
    require(bench.queue()->count == 0, "the frame is gone");
    return 1;
}

unsigned delete_largest()
{
    BenchStream bench;
    video_frame *frame = insert(bench.get(), 0, 0, UINT16_MAX);

    metered([&] { video_stream_delete_frame(bench.get(), frame); });
    require(frame->n_pkts_total == 0, "the slot is empty");
    return 1;
}

unsigned move_over_all()
{
    BenchStream bench;

    fill_queue(bench.get());
    video_frame *oldest = video_frames_q_get_min_seq_frame(bench.queue());
    metered([&] { video_stream_pkt_seq_auto_forward(bench.get(), oldest, 0); });
    require(bench.get()->pkt_seq == static_cast<seq_t>(39 * (kHalfCircle - 1) + 1), "all frames are passed");
    return 1;
}

unsigned move_expected()
{
    BenchStream bench;

    bench.get()->pkt_seq = 0;
    metered([&] { video_stream_pkt_seq_move_forward(bench.get(), kHalfCircle - 1); });
    require(bench.get()->pkt_seq == kHalfCircle - 1, "the expected packet moved");
    return 1;
}

unsigned next_frame()
{
    BenchStream bench;

    fill_queue(bench.get());
    video_frame *oldest = video_frames_q_get_min_seq_frame(bench.queue());
    metered([&] { video_frames_q_next_frame(bench.queue(), oldest); });
    return 1;
}

unsigned previous_frame()
{
    BenchStream bench;

    fill_queue(bench.get());
    video_frame *newest = video_frames_q_get_max_seq_frame(bench.queue());
    metered([&] { video_frames_q_prev_frame(bench.queue(), newest); });
    return 1;
}

unsigned find_packet()
{
    BenchStream bench;
    const video_frame *frame = insert(bench.get(), 0, 0, UINT16_MAX);

    metered([&] { frame = video_stream_find_frame_by_pkt_seq(bench.get(), 0); });
    require(frame != nullptr, "the packet is found");
    return 1;
}

unsigned parse_largest()
{
    BenchStream bench;
    const video_frame *frame = insert(bench.get(), 0, 0, UINT16_MAX);
    video_frame parsed;

    metered([&] { video_frame_parse_payload(frame, &parsed); });
    require(parsed.pkts != nullptr, "there is memory");
    zeb_free_impl(parsed.pkts);
    return 1;
}

unsigned regroup_largest()
{
    BenchStream bench;
    const video_frame *frame = insert(bench.get(), 0, 0, UINT16_MAX);
    video_frame parsed;
    size_t size = 0;
    uint8_t *bitstream = nullptr;

    video_frame_parse_payload(frame, &parsed);
    metered([&] { bitstream = video_frame_regroup_pkts(&parsed, PACKETIZER_TYPE_GENERIC, &size); });
    require(size == 1, "the one payload byte is there");
    zeb_free_impl(bitstream);
    zeb_free_impl(parsed.pkts);
    return 1;
}

unsigned report_all_pictures()
{
    BenchStream bench(true);

    fill_queue(bench.get());
    metered([&] { video_stream_check_send_goodbad_pic(bench.get(), &kNow); });
    require(bench.get()->bcm_stat->n_pictures == VIDEO_FRAMES_Q_SLOTS, "each picture is reported");
    return 1;
}

// -- RTP path --

void process_measured(BenchStream *bench, uint32_t seq, uint32_t timestamp, bool is_marked)
{
    PVideoData4 video = make_packet({static_cast<seq_t>(seq), timestamp, 0, 0, 0, false, is_marked, kSmallPacket});

    metered([&] { webrtc_video_cache_process(bench->cache(), &video, false, &kNow); });
}

unsigned deliver_all()
{
    BenchStream bench;

    fill_ring(bench.get());
    process_measured(&bench, 1, 1, true);
    require(bench.cache()->pkt_cur_cnt == 0, "all frames are delivered");
    return 1;
}

// A frame of half a circle: the ring goes round four times before the packet comes that was missing.
unsigned deliver_largest()
{
    BenchStream bench;

    process(bench.get(), 0, 0, true, false);
    for (uint32_t i = 2; i < kHalfCircle; i++) {
        require(process(bench.get(), i, 0, false, i == kHalfCircle - 1), "the packet is stored");
    }
    process_measured(&bench, 1, 0, false);
    require(bench.cache()->frm_cur_cnt == 0 && bench.cache()->last_deliver_frm_seq == 1000, "the frame is delivered");
    return 1;
}

unsigned give_up_all()
{
    BenchStream bench;

    process(bench.get(), 0, 0, true, true);
    for (uint32_t i = 2; i <= WEBRTC_VIDEO_RING_SLOTS; i++) {
        process(bench.get(), i, i, false, false);
    }
    metered([&] { webrtc_video_cache_check_deliver(bench.cache(), &kTooLate); });
    require(bench.cache()->pkt_cur_cnt == 0, "all frames are given up");
    return 1;
}

// Frames of two packets of which the second was pushed out of its slot by a packet one lap later: each of them has to
// be looked for in the whole ring.
unsigned give_up_all_that_lost_packets()
{
    BenchStream bench;
    constexpr uint32_t behind_gap = 2;

    process(bench.get(), 0, 0, true, true);
    for (uint32_t i = 0; i < WEBRTC_VIDEO_RING_SLOTS; i++) {
        process(bench.get(), behind_gap + i, 1 + i / 2, false, false);
    }
    for (uint32_t i = 1; i < WEBRTC_VIDEO_RING_SLOTS; i += 2) {
        process(bench.get(), behind_gap + WEBRTC_VIDEO_RING_SLOTS + i, kHalfCircle, false, false);
    }
    require(bench.cache()->frm_cur_cnt == WEBRTC_VIDEO_RING_SLOTS / 2 + 1, "half of each frame is held");
    metered([&] { webrtc_video_cache_check_deliver(bench.cache(), &kTooLate); });
    require(bench.cache()->pkt_cur_cnt == 0, "all frames are given up");
    return 1;
}

unsigned reset_full_ring()
{
    BenchStream bench;

    fill_ring(bench.get());
    metered([&] { webrtc_video_cache_reset(bench.cache()); });
    require(bench.cache()->pkt_cur_cnt == 0, "the ring is empty");
    return 1;
}

unsigned release_full_ring()
{
    BenchStream bench;

    fill_ring(bench.get());
    metered([&] { webrtc_video_cache_fini(bench.cache()); });
    require(bench.cache()->pkt_arr == nullptr, "the ring is released");
    return 1;
}

unsigned allocate_ring()
{
    BenchStream bench;

    metered([&] { webrtc_video_cache_alloc(bench.cache()); });
    require(bench.cache()->pkt_all_cnt == WEBRTC_VIDEO_RING_SLOTS, "the ring is there");
    return 1;
}

// -- Stream --

unsigned init_queue()
{
    BenchStream bench;

    metered([&] { rtc_video_frames_init(bench.queue()); });
    return 1;
}

unsigned init_stream()
{
    BenchStream bench;
    net_rcv_analyzer_del(&bench.get()->current_net_rcv_quality);
    rtc_user *const user = bench.get()->user;
    rtc_channel *const channel = bench.get()->channel;

    metered([&] { video_stream_init(bench.get(), 0, user, channel); });
    return 1;
}

unsigned reset_full_stream()
{
    BenchStream bench;

    fill_queue(bench.get());
    fill_ring(bench.get());
    metered([&] { video_stream_reset(bench.get(), true); });
    require(bench.queue()->count == 0 && bench.cache()->pkt_cur_cnt == 0, "the stream is empty");
    return 1;
}

// Streams in a list, as the channel layer has them.
struct stream_list {
    rtc_service service = {};
    rtc_channel channel = {};
    rtc_user user = {};

    stream_list()
    {
        rtc_list_init(&service.free_user_video_streams);
        rtc_list_init(&user.video_streams_q);
        channel.service = &service;
    }

    user_video_stream *make()
    {
        return service_video_streams_get_video_stream(&service, &user, &channel, &user.video_streams_q, 0, 1, &kNow);
    }

    void destroy()
    {
        service_video_streams_cleanup(&service, &user.video_streams_q, true);
    }

    void release_pool()
    {
        zeb_free_impl(list_remove_head(&service.free_user_video_streams.head));
    }
};

unsigned make_stream()
{
    stream_list list;

    metered([&] { list.make(); });
    require(list.user.video_streams_q.count == 1, "the stream is there");
    list.destroy();
    list.release_pool();
    return 1;
}

unsigned destroy_full_stream()
{
    stream_list list;
    user_video_stream *stream = list.make();

    fill_queue(stream);
    fill_ring(stream);
    metered([&] { list.destroy(); });
    require(list.service.free_user_video_streams.count == 1, "the record is kept for reuse");
    list.release_pool();
    return 1;
}

} // namespace

std::vector<scene> worst_calls()
{
    return {
        {"`video_stream_insert_video_packet`, evicts the oldest of 40 frames half a circle apart", insert_evicting},
        {"`video_stream_insert_video_packet`, a frame of 65,535 packets replaces another", insert_over_largest},
        {"`video_stream_remove_frame`, 40 whole frames half a circle apart", remove_over_all},
        {"`video_stream_remove_frame`, a frame of 65,535 packets", remove_largest},
        {"`video_stream_delete_frame`, a frame of 65,535 packets", delete_largest},
        {"`video_stream_pkt_seq_auto_forward`, 40 whole frames half a circle apart", move_over_all},
        {"`video_stream_pkt_seq_move_forward`, by half a circle", move_expected},
        {"`video_frames_q_next_frame`, 40 slots in use", next_frame},
        {"`video_frames_q_prev_frame`, 40 slots in use", previous_frame},
        {"`video_stream_find_frame_by_pkt_seq`", find_packet},
        {"`video_frame_parse_payload`, a frame of 65,535 packets", parse_largest},
        {"`video_frame_regroup_pkts`, a frame of 65,535 packets", regroup_largest},
        {"`video_stream_check_send_goodbad_pic`, 40 frames", report_all_pictures},
        {"`webrtc_video_cache_process`, lets 8192 frames go", deliver_all},
        {"`webrtc_video_cache_process`, lets a frame of half a circle go", deliver_largest},
        {"`webrtc_video_cache_check_deliver`, gives up 8191 frames", give_up_all},
        {"`webrtc_video_cache_check_deliver`, gives up 4096 frames that lost packets", give_up_all_that_lost_packets},
        {"`webrtc_video_cache_reset`, 8191 frames held", reset_full_ring},
        {"`webrtc_video_cache_fini`, 8191 frames held", release_full_ring},
        {"`webrtc_video_cache_alloc`", allocate_ring},
        {"`rtc_video_frames_init`", init_queue},
        {"`video_stream_init`", init_stream},
        {"`video_stream_reset`, both paths full", reset_full_stream},
        {"`service_video_streams_get_video_stream`, a new stream", make_stream},
        {"`service_video_streams_cleanup`, a stream with both paths full", destroy_full_stream},
    };
}
