// What a packet costs on its way through the module, and the calls whose cost must not grow with what the
// stream holds: for those the pairs of rows below are to be compared within one run.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "video_stream.h"

namespace
{

constexpr uint16_t kPacketSize = 1200; // bytes, RTP header included
constexpr uint16_t kPacketsPerFrame = 10;
constexpr uint32_t kTicksPerFrame = 3000; // of the 90 kHz clock at 30 frames a second

// A stream of a remote user that nobody reads from.
class BenchStream
{
  public:
    BenchStream() : stream_(std::make_unique<user_video_stream>())
    {
        rtc_list_init(&service_.free_user_video_streams);
        channel_.service = &service_;
        video_stream_init(stream_.get(), 0, &user_, &channel_);
    }

    ~BenchStream()
    {
        video_stream_reset(stream_.get(), true);
        webrtc_video_cache_fini(&stream_->video_cache_q);
        net_rcv_analyzer_del(&stream_->current_net_rcv_quality);
    }

    BenchStream(const BenchStream &) = delete;
    BenchStream &operator=(const BenchStream &) = delete;

    user_video_stream *get()
    {
        return stream_.get();
    }

  private:
    rtc_service service_ = {};
    rtc_channel channel_ = {};
    rtc_user user_ = {};
    std::unique_ptr<user_video_stream> stream_;
};

// Packet `index` of frame `frame`, under both numberings, with a single NAL unit inside.
PVideoData4 make_packet(uint32_t frame, uint16_t index)
{
    PVideoData4 video = {};
    const auto seq = static_cast<seq_t>(frame * kPacketsPerFrame + index);
    const uint32_t timestamp = frame * kTicksPerFrame;
    auto *bytes = static_cast<uint8_t *>(zeb_malloc_impl_dbg(kPacketSize, "bench", __LINE__));

    std::memset(bytes, 0x55, kPacketSize);
    bytes[0] = 0x80;
    bytes[1] = static_cast<uint8_t>(index + 1 == kPacketsPerFrame ? 0x80 | 96 : 96);
    bytes[2] = static_cast<uint8_t>(seq >> 8);
    bytes[3] = static_cast<uint8_t>(seq);
    for (unsigned i = 0; i < 4; i++) {
        bytes[4 + i] = static_cast<uint8_t>(timestamp >> (24 - 8 * i));
    }
    bytes[12] = 0x41;
    video.payload.values = bytes;
    video.payload.count = kPacketSize;
    video.payload.allocated = kPacketSize;
    video.common.seq = seq;
    video.header.frame_seq = frame;
    video.header.n_pkts = kPacketsPerFrame;
    video.header.subseq = index;
    video.header.video_type = frame == 0 ? KEY_FRAME : DELTA_FRAME << 4;
    video.header.codec = VIDEO_TYPE_H264;
    video.header.protocol_version = 10;
    return video;
}

video_frame *insert_frame(user_video_stream *stream, uint32_t frame, zeb_ts_t now)
{
    video_frame *inserted = nullptr;

    for (uint16_t i = 0; i < kPacketsPerFrame; i++) {
        PVideoData4 video = make_packet(frame, i);
        inserted = video_stream_insert_video_packet(stream, &video, 0, &now);
    }
    return inserted;
}

void count_packets(benchmark::State &state)
{
    state.SetItemsProcessed(state.iterations() * kPacketsPerFrame);
}

void native_insert_and_remove(benchmark::State &state)
{
    BenchStream bench;
    uint32_t frame = 0;

    for ([[maybe_unused]] auto _ : state) {
        video_stream_remove_frame(bench.get(), insert_frame(bench.get(), frame++, 1000));
    }
    count_packets(state);
}
BENCHMARK(native_insert_and_remove);

void rtp_intake_through_delivery(benchmark::State &state)
{
    BenchStream bench;
    const zeb_ts_t now = 1000;
    uint32_t frame = 0;

    for ([[maybe_unused]] auto _ : state) {
        for (uint16_t i = 0; i < kPacketsPerFrame; i++) {
            PVideoData4 video = make_packet(frame, i);
            webrtc_video_cache_process(&bench.get()->video_cache_q, &video, false, &now);
            zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &video.payload);
        }
        frame++;
    }
    count_packets(state);
}
BENCHMARK(rtp_intake_through_delivery);

void parse_and_regroup(benchmark::State &state)
{
    BenchStream bench;
    video_frame *frame = insert_frame(bench.get(), 0, 1000);

    for ([[maybe_unused]] auto _ : state) {
        video_frame parsed;
        size_t size = 0;
        video_frame_parse_payload(frame, &parsed);
        uint8_t *bitstream = video_frame_regroup_pkts(&parsed, PACKETIZER_TYPE_H264, &size);
        benchmark::DoNotOptimize(bitstream);
        zeb_free_impl(bitstream);
        zeb_free_impl(parsed.pkts);
    }
    count_packets(state);
}
BENCHMARK(parse_and_regroup);

// The next frame is looked for among the slots, not among the sequence numbers in between: a gap of two
// billion costs what a gap of one does.
void next_frame_over_gap(benchmark::State &state)
{
    BenchStream bench;
    video_frame *first = insert_frame(bench.get(), 0, 1000);

    insert_frame(bench.get(), static_cast<uint32_t>(state.range(0)), 1000);
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(video_frames_q_next_frame(&bench.get()->video_frames_q, first));
    }
}
BENCHMARK(next_frame_over_gap)->Arg(1)->Arg(0x7FFFFFFE);

// With an empty or a waiting cache the periodic check looks at the head alone.
void periodic_check(benchmark::State &state)
{
    BenchStream bench;
    const zeb_ts_t now = 1000;

    for (uint32_t frame = 0; frame < static_cast<uint32_t>(state.range(0)); frame++) {
        PVideoData4 video = make_packet(frame, 0); // never complete
        webrtc_video_cache_process(&bench.get()->video_cache_q, &video, false, &now);
    }
    for ([[maybe_unused]] auto _ : state) {
        webrtc_video_cache_check_deliver(&bench.get()->video_cache_q, &now);
    }
}
BENCHMARK(periodic_check)->Arg(0)->Arg(1)->Arg(500);

} // namespace
