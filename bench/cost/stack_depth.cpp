// The stack below the caller is painted, and after the call it is looked where the paint ends. Nothing interrupts the
// board, so that the paint is the call's alone.
#include "stack_depth.h"

#include <algorithm>
#include <cstring>

#include "bench_client.h"
#include "full_stream.h"
#include "scenes.h"

using namespace bench;

namespace
{

constexpr uint32_t kPaint = 0xA5C3E17B;
constexpr size_t kPaintedWords = 4096;
constexpr zeb_ts_t kTooLate = kNow + 5000; // behind every patience

volatile uint32_t *stack_pointer()
{
    volatile uint32_t *sp = nullptr;

    __asm__ volatile("mov %0, sp" : "=r"(sp)::"memory");
    return sp;
}

__attribute__((noinline)) void paint_stack()
{
    volatile uint32_t *const end = stack_pointer();

    for (volatile uint32_t *word = end - kPaintedWords; word != end; word++) {
        *word = kPaint;
    }
}

// Bytes that the call takes, beyond what its caller does.
template <typename Call> __attribute__((noinline)) size_t depth_of(Call call)
{
    paint_stack();
    volatile uint32_t *const begin = stack_pointer();
    call();
    volatile uint32_t *word = begin - kPaintedWords;
    while (word != begin && *word == kPaint) {
        word++;
    }
    return static_cast<size_t>(begin - word) * sizeof(uint32_t);
}

// -- Scenes --

// Both paths hold all that they can, and there are records that nothing holds.
class FullStream : public BenchStream
{
  public:
    webrtc_video_packet_t spare_packet = {};
    webrtc_video_frame_t *spare_frame =
        static_cast<webrtc_video_frame_t *>(zeb_malloc_impl_dbg(sizeof(webrtc_video_frame_t), "bench", __LINE__));
    video_frame parsed = {};
    size_t size = 0;
    PVideoData4 evicting = native_packet(VIDEO_FRAMES_Q_SLOTS, 40 * (kHalfCircle - 1), UINT16_MAX);
    PVideoData4 missing = make_packet({1, 1, 0, 0, 0, false, true, kSmallPacket});

    FullStream() : BenchStream(true)
    {
        fill_queue(get());
        fill_ring(get());
        webrtc_video_frame_init(spare_frame);
        video_frame_parse_payload(oldest(), &parsed);
    }

    video_frame *oldest()
    {
        return video_frames_q_get_min_seq_frame(queue());
    }

    video_frame *newest()
    {
        return video_frames_q_get_max_seq_frame(queue());
    }

    webrtc_video_packet_t *packet()
    {
        return &cache()->pkt_arr[2];
    }

    webrtc_video_frame_t *frame()
    {
        return packet()->frm_ptr;
    }
};

// Streams in a list, as the channel layer has them.
class StreamList
{
  public:
    rtc_service service = {};
    rtc_list_t streams = {};
    rtc_user user = {};
    rtc_channel channel = {};

    StreamList()
    {
        rtc_list_init(&service.free_user_video_streams);
        rtc_list_init(&streams);
        channel.service = &service;
        channel.bandwidth_est_opt.enable_bandwidth_est_downlink = true;
    }

    user_video_stream *make()
    {
        return service_video_streams_get_video_stream(&service, &user, &channel, &streams, 0, 1, &kNow);
    }
};

struct function_depth {
    const char *name;
    size_t (*measure)();
};

// FUNCTION(SCENE, NAME, ARGUMENTS): the depth of NAME, called in a scene `s`.
#define FUNCTION(scene, name, ...)                                                                                     \
    {                                                                                                                  \
#name, [] {                                                                                                    \
            scene s;                                                                                                   \
            return depth_of([&] { (void)name(__VA_ARGS__); });                                                         \
        }       \
    }

size_t cleanup_depth()
{
    StreamList list;
    user_video_stream *stream = list.make();

    fill_queue(stream);
    fill_ring(stream);
    return depth_of([&] { service_video_streams_cleanup(&list.service, &list.streams, true); });
}

size_t sample_depth()
{
    BenchStream stream(true);
    size_t deepest = 0;

    for (uint32_t frame = 0; frame < 300; frame++) {
        const zeb_ts_t now = kNow + frame * 33;
        PVideoData4 video = make_packet(frame, 0);
        const size_t depth = depth_of([&] { video_stream_send_bandwidth_est(stream.get(), &video, true, &now); });
        deepest = std::max(deepest, depth);
        zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &video.payload);
    }
    return deepest;
}

const function_depth kModule[] = {
    FUNCTION(FullStream, rtc_video_frames_init, s.queue()),
    {"service_video_streams_cleanup", cleanup_depth},
    FUNCTION(StreamList, service_video_streams_get_video_stream, &s.service, &s.user, &s.channel, &s.streams, 0, 1,
             &kNow),
    FUNCTION(StreamList, service_video_streams_get_video_stream_local, &s.service, &s.channel, &s.streams, 0, 1),
    FUNCTION(FullStream, video_codec_to_inner, VIDEO_DATA_TYPE_H264),
    FUNCTION(FullStream, video_codec_to_outer, VIDEO_TYPE_H264),
    FUNCTION(FullStream, video_frame_is_generic, &s.parsed),
    FUNCTION(FullStream, video_frame_parse_payload, s.oldest(), &s.parsed),
    FUNCTION(FullStream, video_frame_regroup_pkts, &s.parsed, PACKETIZER_TYPE_H265, &s.size),
    FUNCTION(FullStream, video_frames_q_get_max_frame_seq, s.queue()),
    FUNCTION(FullStream, video_frames_q_get_max_seq_frame, s.queue()),
    FUNCTION(FullStream, video_frames_q_get_min_frame_seq, s.queue()),
    FUNCTION(FullStream, video_frames_q_get_min_seq_frame, s.queue()),
    FUNCTION(FullStream, video_frames_q_next_frame, s.queue(), s.oldest()),
    FUNCTION(FullStream, video_frames_q_prev_frame, s.queue(), s.newest()),
    FUNCTION(FullStream, video_stream_check_send_goodbad_pic, s.get(), &kTooLate),
    FUNCTION(FullStream, video_stream_delete_frame, s.get(), s.oldest()),
    FUNCTION(FullStream, video_stream_find_frame_by_pkt_seq, s.get(), 0),
    FUNCTION(FullStream, video_stream_init, s.get(), 0, s.get()->user, s.get()->channel),
    FUNCTION(FullStream, video_stream_insert_video_packet, s.get(), &s.evicting, 1, &kNow),
    FUNCTION(FullStream, video_stream_pkt_seq_auto_forward, s.get(), s.oldest(), 0),
    FUNCTION(FullStream, video_stream_pkt_seq_move_forward, s.get(), kHalfCircle - 1),
    FUNCTION(FullStream, video_stream_remove_frame, s.get(), s.oldest()),
    FUNCTION(FullStream, video_stream_reset, s.get(), true),
    {"video_stream_send_bandwidth_est", sample_depth},
    FUNCTION(FullStream, video_stream_send_goodbad_pic, s.get(), s.oldest(), true, &kNow),
    FUNCTION(StreamList, video_streams_find_video_stream, &s.streams, 0),
    FUNCTION(FullStream, webrtc_video_cache_alloc, s.cache()),
    FUNCTION(FullStream, webrtc_video_cache_check_deliver, s.cache(), &kTooLate),
    FUNCTION(FullStream, webrtc_video_cache_dump, s.cache()),
    FUNCTION(FullStream, webrtc_video_cache_fini, s.cache()),
    FUNCTION(FullStream, webrtc_video_cache_init, s.cache(), s.get()),
    FUNCTION(FullStream, webrtc_video_cache_process, s.cache(), &s.missing, false, &kNow),
    FUNCTION(FullStream, webrtc_video_cache_reset, s.cache()),
    FUNCTION(FullStream, webrtc_video_frame_add_pkt, s.cache(), s.frame(), &s.spare_packet),
    FUNCTION(FullStream, webrtc_video_frame_fini, s.spare_frame),
    FUNCTION(FullStream, webrtc_video_frame_init, s.spare_frame),
    FUNCTION(FullStream, webrtc_video_frame_reset, s.spare_frame),
    FUNCTION(FullStream, webrtc_video_packet_init, &s.spare_packet),
    FUNCTION(FullStream, webrtc_video_packet_reset, s.packet()),
};

// -- Those of the C library, which is not compiled here, and of memory, which is the device's --

uint8_t g_bytes[64];
char g_text[64];
volatile int g_result;

class Library
{
  public:
    size_t size = g_bytes[0] + 61u; // not known to the compiler
    void *block = zeb_malloc_impl_dbg(8, "bench", __LINE__);
};

// Without its result the call would be left out.
size_t comparison_depth()
{
    const Library s;
    return depth_of([&] { g_result = memcmp(g_bytes, g_text, s.size); });
}

const function_depth kLibrary[] = {
    {"memcmp", comparison_depth},
    FUNCTION(Library, memcpy, g_bytes, g_text, s.size),
    FUNCTION(Library, memmove, g_bytes + 1, g_bytes, s.size),
    FUNCTION(Library, memset, g_bytes, 0, s.size),
    FUNCTION(Library, strncpy, g_text, "text", s.size),
    FUNCTION(Library, strnlen, g_text, s.size),
    FUNCTION(Library, zeb_malloc_impl_dbg, size_t{1} << 20, "bench", __LINE__),
    FUNCTION(Library, zeb_free_impl, s.block),
};

// -- The client's --

constexpr channel_feedback kAllFeedback = {true, true, true, false, false, true, true};

// Frames come, with a gap now and then, and the client asks for what is missing.
template <typename Measure> size_t deepest_of_call(Measure measure)
{
    BenchClient client(kAllFeedback);
    uint8_t packet[kPacketSize];
    size_t deepest = 0;

    for (uint32_t frame = 0; frame < 200; frame++) {
        for (uint16_t i = 0; i < kPacketsPerFrame; i++) {
            write_packet(packet, frame, i);
            if (frame % 20 != 10 || i != 5) {
                deepest = std::max(deepest, measure(&client, packet, frame % 100 == 99));
            }
        }
        client.now += 33;
    }
    require(client.n_frames > 0, "frames come out");
    return deepest;
}

size_t receive_rtp_depth()
{
    return deepest_of_call([](BenchClient *client, const uint8_t *packet, bool) {
        const size_t depth =
            depth_of([&] { rtc_channel_receive_rtp(client->channel, packet, kPacketSize, false, &client->now); });
        rtc_service_tick(client->service, &client->now);
        return depth;
    });
}

size_t tick_depth()
{
    return deepest_of_call([](BenchClient *client, const uint8_t *packet, bool has_stalled) {
        rtc_channel_receive_rtp(client->channel, packet, kPacketSize, false, &client->now);
        client->now += has_stalled ? 3000 : 0;
        return depth_of([&] { rtc_service_tick(client->service, &client->now); });
    });
}

size_t receive_native_depth()
{
    BenchClient client(kAllFeedback);
    size_t deepest = 0;

    for (uint16_t i = 0; i < kPacketsPerFrame; i++) {
        PVideoData4 video = make_packet(0, i);
        const size_t depth =
            depth_of([&] { rtc_channel_receive_native(client.channel, &video, 0, false, &client.now); });
        deepest = std::max(deepest, depth);
    }
    require(client.n_frames == 1, "the frame comes out");
    return deepest;
}

size_t receive_rtcp_depth()
{
    // A sender report without report blocks (RFC 3550, 6.4.1).
    const uint8_t report[28] = {0x80, 200, 0, 6, 0x55, 0x55, 0x55, 0x55};
    BenchClient client(kAllFeedback);
    uint8_t packet[kPacketSize];

    write_packet(packet, 0, 0);
    rtc_channel_receive_rtp(client.channel, packet, sizeof packet, false, &client.now);
    return depth_of([&] { rtc_channel_receive_rtcp(client.channel, report, sizeof report, &client.now); });
}

const function_depth kClient[] = {
    {"rtc_channel_receive_rtp", receive_rtp_depth},
    {"rtc_channel_receive_native", receive_native_depth},
    {"rtc_channel_receive_rtcp", receive_rtcp_depth},
    {"rtc_service_tick", tick_depth},
};

template <size_t n> void report(const char *part, const function_depth (&functions)[n])
{
    for (const function_depth &each : functions) {
        (void)std::printf("stack|%s|%s|%lu\n", part, each.name, static_cast<unsigned long>(each.measure()));
    }
}

} // namespace

void stack_depth_report()
{
    report("module", kModule);
    report("client", kClient);
    report("library", kLibrary);
}
