// What a packet costs on its way through the module, and the calls whose cost must not grow with what the
// stream holds: for those the pairs of rows below are to be compared within one run.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "bench_stream.h"

using namespace bench;

namespace
{

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
