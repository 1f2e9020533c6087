#include "held_memory.h"

#include "bench_client.h"
#include "full_stream.h"
#include "measured_memory.h"
#include "scenes.h"

using namespace bench;

namespace
{

constexpr uint16_t kFrameSizes[] = {10, 100, 1000}; // packets

// The board's C library prints no size_t.
unsigned long printable(size_t size)
{
    return static_cast<unsigned long>(size);
}

// Prints what has come on top of `before`.
void report(const char *what, measured_memory::usage before)
{
    const measured_memory::usage now = measured_memory::in_use();

    (void)std::printf("heap|%s|%lu|%lu\n", what, printable(now.bytes - before.bytes),
                      printable(now.blocks - before.blocks));
}

void report_frame(const char *what, unsigned n_pkts, measured_memory::usage before)
{
    char row[96];

    (void)std::snprintf(row, sizeof row, "%s, a frame of %u packets", what, n_pkts);
    report(row, before);
}

// A stream as the channel layer gets it.
class RegisteredStream
{
  public:
    user_video_stream *stream;

    explicit RegisteredStream(bool estimates_downlink)
    {
        rtc_list_init(&service_.free_user_video_streams);
        rtc_list_init(&user_.video_streams_q);
        channel_.service = &service_;
        channel_.bandwidth_est_opt.enable_bandwidth_est_downlink = estimates_downlink;
        stream =
            service_video_streams_get_video_stream(&service_, &user_, &channel_, &user_.video_streams_q, 0, 1, &kNow);
        require(stream != nullptr, "there is memory for a stream");
    }

    ~RegisteredStream()
    {
        service_video_streams_cleanup(&service_, &user_.video_streams_q, true);
        zeb_free_impl(list_remove_head(&service_.free_user_video_streams.head));
    }

    RegisteredStream(const RegisteredStream &) = delete;
    RegisteredStream &operator=(const RegisteredStream &) = delete;

  private:
    rtc_service service_ = {};
    rtc_channel channel_ = {};
    rtc_user user_ = {};
};

PVideoData4 packet_of_frame(uint16_t n_pkts, uint16_t index)
{
    return make_packet({index, 0, 0, n_pkts, index, true, false, kPacketSize});
}

void report_streams()
{
    const measured_memory::usage before = measured_memory::in_use();
    {
        const RegisteredStream stream(false);
        report("A stream at rest", before);
        const measured_memory::usage at_rest = measured_memory::in_use();
        require(webrtc_video_cache_alloc(&stream.stream->video_cache_q) == 0, "there is memory for a ring");
        report("The ring of a stream that receives RTP", at_rest);
    }
    const measured_memory::usage after = measured_memory::in_use();
    require(after.bytes == before.bytes, "a stream gives back all that it took");
    const RegisteredStream stream(true);
    report("A stream at rest, with the statistics that estimate its rate", before);
}

void report_frame_queue(uint16_t n_pkts)
{
    const RegisteredStream stream(false);
    const measured_memory::usage before = measured_memory::in_use();
    const video_frame *frame = nullptr;

    for (uint16_t i = 0; i < n_pkts; i++) {
        PVideoData4 video = packet_of_frame(n_pkts, i);
        frame = video_stream_insert_video_packet(stream.stream, &video, 0, &kNow);
    }
    require(frame != nullptr && frame->is_complete != 0, "the frame is whole");
    report_frame("Frame queue", n_pkts, before);

    const measured_memory::usage held = measured_memory::in_use();
    video_frame parsed;
    size_t size = 0;
    video_frame_parse_payload(frame, &parsed);
    uint8_t *bitstream = video_frame_regroup_pkts(&parsed, PACKETIZER_TYPE_H264, &size);
    report_frame("Views and bitstream", n_pkts, held);
    zeb_free_impl(bitstream);
    zeb_free_impl(parsed.pkts);
}

void report_reorder_cache(uint16_t n_pkts)
{
    const RegisteredStream stream(false);
    webrtc_video_cache_t *cache = &stream.stream->video_cache_q;
    require(webrtc_video_cache_alloc(cache) == 0, "there is memory for a ring");
    const measured_memory::usage before = measured_memory::in_use();

    for (uint16_t i = 0; i < n_pkts; i++) {
        PVideoData4 video = packet_of_frame(n_pkts, i);
        webrtc_video_cache_process(cache, &video, false, &kNow);
    }
    require(cache->pkt_cur_cnt == n_pkts, "the packets are held");
    report_frame("Reorder cache", n_pkts, before);
}

// A key frame from the network to the application: what the client holds at the worst moment, the ring not counted.
void report_hand_out(uint16_t n_pkts)
{
    BenchClient client;
    uint8_t packet[kPacketSize];

    measured_memory::peak();
    const size_t before = measured_memory::in_use().bytes + WEBRTC_VIDEO_RING_SLOTS * sizeof(webrtc_video_packet_t);
    for (uint16_t i = 0; i < n_pkts; i++) {
        write_rtp(packet, {i, 0, 0, 0, i, true, i + 1 == n_pkts, kPacketSize});
        packet[kRtpHeaderSize] = i == 0 ? 0x67 : 0x65;
        rtc_channel_receive_rtp(client.channel, packet, sizeof packet, false, &client.now);
    }
    require(client.n_frames == 1, "the frame is handed out");
    (void)std::printf("heap|A sender that sends RTP, ring not counted, a frame of %u packets|%lu|-\n", n_pkts,
                      printable(measured_memory::peak() - before));
}

void report_clients()
{
    const measured_memory::usage before = measured_memory::in_use();
    BenchClient client;
    report("A service with a channel", before);

    const measured_memory::usage at_rest = measured_memory::in_use();
    PVideoData4 video = packet_of_frame(1, 0);
    rtc_channel_receive_native(client.channel, &video, 0, false, &client.now);
    require(client.n_frames == 1, "the frame is handed out");
    report("A sender that sends natively, at rest", at_rest);
}

} // namespace

void held_memory_report()
{
    report_streams();
    for (const uint16_t n_pkts : kFrameSizes) {
        report_frame_queue(n_pkts);
    }
    for (const uint16_t n_pkts : kFrameSizes) {
        report_reorder_cache(n_pkts);
    }
    report_clients();
    for (const uint16_t n_pkts : kFrameSizes) {
        report_hand_out(n_pkts);
    }
}
