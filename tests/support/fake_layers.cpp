#include "fake_layers.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

struct net_rcv_analyzer_t {
    int unused;
};

int g_log_enable = 1;
log_mod_t g_log_mod_arr[LM_MAX];
const char *g_log_level_arr[] = {"DEFAULT", "EMERG", "ALERT", "CRIT", "ERROR", "WARNING", "NOTICE", "INFO", "DEBUG"};

namespace test_support
{

namespace
{

World *living = nullptr;

const char *module_name(int id)
{
    switch (id) {
    case LM_MIN:
        return "MIN";
    case LM_SND_VID:
        return "SND_VID";
    case LM_RCV_VID:
        return "RCV_VID";
    default:
        return "OTHER";
    }
}

std::vector<uint8_t> bytes_of(const rtn_bytes_t &bytes)
{
    const auto *first = static_cast<const uint8_t *>(bytes.values);

    return first == nullptr ? std::vector<uint8_t>() : std::vector<uint8_t>(first, first + bytes.count);
}

int depacketize(bool is_h265, uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr, size_t *frame_offset,
                size_t *frame_size)
{
    static const uint8_t start_code[] = {0, 0, 0, 1};
    World &world = World::now_living();
    const auto size = static_cast<size_t>(end_ptr - cur_ptr);

    world.depacketized.push_back({is_h265, std::vector<uint8_t>(cur_ptr, end_ptr), *frame_offset});
    if (world.depacketize) {
        return world.depacketize(world.depacketized.size() - 1, frame_data, cur_ptr, end_ptr, frame_offset, frame_size);
    }
    std::copy(start_code, start_code + sizeof(start_code), frame_data + *frame_offset);
    std::copy(cur_ptr, end_ptr, frame_data + *frame_offset + sizeof(start_code));
    *frame_offset += sizeof(start_code) + size;
    *frame_size += sizeof(start_code) + size;
    return 0;
}

} // namespace

World::World()
{
    living = this;
    g_log_enable = 1;
    for (int id = 0; id < LM_MAX; id++) {
        g_log_mod_arr[id] = {id, RTC_LOG_DEBUG, module_name(id)};
    }
}

World::~World()
{
    for (const auto &[ptr, what] : live) {
        ADD_FAILURE() << "still allocated at the end: " << what.size << " bytes by " << what.tag;
        std::free(ptr);
    }
    living = nullptr;
}

World &World::now_living()
{
    if (living == nullptr) {
        std::fputs("the module was called without a World\n", stderr);
        std::abort();
    }
    return *living;
}

void World::refuse_tag(const std::string &tag, size_t from)
{
    size_t seen = 0;

    refuse = [tag, from, seen](size_t, const allocation &request) mutable {
        return request.tag == tag && seen++ >= from;
    };
}

size_t World::count_of(const std::string &tag) const
{
    return static_cast<size_t>(std::count_if(allocations.begin(), allocations.end(),
                                             [&](const allocation &request) { return request.tag == tag; }));
}

std::vector<log_line> World::log_at(int level) const
{
    std::vector<log_line> lines;

    std::copy_if(log.begin(), log.end(), std::back_inserter(lines),
                 [&](const log_line &line) { return line.level == level; });
    return lines;
}

bool World::has_logged(int level, const std::string &text) const
{
    return std::find(log.begin(), log.end(), log_line{level, text}) != log.end();
}

size_t World::count_logged(const std::string &part) const
{
    return static_cast<size_t>(std::count_if(
        log.begin(), log.end(), [&](const log_line &line) { return line.text.find(part) != std::string::npos; }));
}

void World::silence_log()
{
    g_log_enable = 0;
}

} // namespace test_support

using test_support::World;

// -- Platform: memory --

void *zeb_malloc_impl_dbg(size_t size, const char *tag, int)
{
    World &world = World::now_living();
    const size_t index = world.allocations.size();

    world.allocations.push_back({size, tag});
    if (world.refuse && world.refuse(index, world.allocations.back())) {
        return nullptr;
    }
    void *ptr = std::malloc(size == 0 ? 1 : size);
    std::memset(ptr, 0xA5, size); // nothing may rely on fresh memory being zero
    world.live[ptr] = {size, tag};
    return ptr;
}

void zeb_free_impl(void *ptr)
{
    if (ptr == nullptr) {
        return;
    }
    if (World::now_living().live.erase(ptr) != 1) {
        ADD_FAILURE() << "freed what is not allocated";
        return;
    }
    std::free(ptr);
}

// -- Log --

void kelvra_rtc_log(int level, const char *format, ...)
{
    char text[512];
    va_list args;

    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    World &world = World::now_living();
    world.log.push_back({level, text});
    if (world.echo_log) {
        std::fprintf(stderr, "<%d> %s", level, text);
    }
}

// -- Packets --

void video_data4_take(PVideoData4 *dst, PVideoData4 *src)
{
    *dst = *src;
    std::memset(src, 0, sizeof(*src));
}

// -- Channel and user layer --

void channel_on_video_stream_created(rtc_channel *channel, user_video_stream *stream)
{
    World &world = World::now_living();

    world.created.push_back(stream);
    if (world.on_created) {
        world.on_created(channel, stream);
    }
}

int rtc_video_add_packet(user_video_stream *stream, PVideoData4 *video, int is_retrans, int is_key,
                         const zeb_ts_t *now_p)
{
    World &world = World::now_living();

    world.added.push_back({stream, video->header.frame_seq, video->header.subseq, video->header.n_pkts,
                           video->common.seq, is_retrans, is_key, *now_p, test_support::bytes_of(video->payload)});
    if (world.takes_payload) {
        zeb_fini_typed_obj(&zeb_dynamic_bytes_type, &video->payload);
    }
    return 0;
}

void rtc_video_stream_reset_state(user_video_stream *, const zeb_ts_t *ts)
{
    World::now_living().reset_states.push_back(*ts);
}

void webrtc_video_send_intra_request(webrtc_video_cache_t *, const zeb_ts_t *)
{
    World::now_living().intra_requests++;
}

void webrtc_user_send_video_rexfer_req(webrtc_video_cache_t *, const zeb_ts_t *)
{
    World::now_living().rexfer_requests++;
}

// -- Analyser --

net_rcv_analyzer_t *net_rcv_analyzer_new(void)
{
    World &world = World::now_living();

    if (world.no_analyzer) {
        return nullptr;
    }
    world.analyzers_made++;
    return static_cast<net_rcv_analyzer_t *>(zeb_malloc_impl_dbg(sizeof(net_rcv_analyzer_t), "analyzer", __LINE__));
}

void net_rcv_analyzer_del(net_rcv_analyzer_t **analyzer_p)
{
    World::now_living().analyzers_deleted++;
    zeb_free_impl(*analyzer_p);
    *analyzer_p = nullptr;
}

void net_rcv_analyzer_reset(net_rcv_analyzer_t *)
{
    World::now_living().analyzers_reset++;
}

// -- Statistics --

KelvraBcmStatistics *KelvraBcmStat_Create(const KelvraBcmStatisticsConfig *config)
{
    World &world = World::now_living();

    world.statistics_configs.push_back(config->stream);
    if (world.no_statistics) {
        return nullptr;
    }
    void *stat = zeb_malloc_impl_dbg(sizeof(KelvraBcmStatistics), "statistics", __LINE__);
    std::memset(stat, 0, sizeof(KelvraBcmStatistics));
    return static_cast<KelvraBcmStatistics *>(stat);
}

void KelvraBcmStat_Destroy(KelvraBcmStatistics *stat)
{
    World::now_living().statistics_destroyed++;
    zeb_free_impl(stat);
}

void KelvraBcmStat_Reset(KelvraBcmStatistics *)
{
    World::now_living().statistics_reset++;
}

void KelvraBcmStat_OnRecvPacket(KelvraBcmStatistics *stat, uint16_t sequenceNumber, uint32_t timestamp, uint16_t size,
                                zeb_ts_t now, uint8_t retrans_flag)
{
    World::now_living().samples.push_back({stat, sequenceNumber, timestamp, size, now, retrans_flag});
}

void KelvraBcmStat_OnDecodeResult(KelvraBcmStatistics *stat, uint32_t frame_seq, uint16_t min_rtp_seq,
                                  uint16_t max_rtp_seq, uint8_t continuous, uint16_t wait_time, const zeb_ts_t *now_p)
{
    World::now_living().decode_results.push_back(
        {stat, frame_seq, min_rtp_seq, max_rtp_seq, continuous, wait_time, *now_p});
}

// -- Depacketizers --

int depacketizer_h264_packet(uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr, size_t *frame_offset,
                             size_t *frame_size)
{
    return test_support::depacketize(false, frame_data, cur_ptr, end_ptr, frame_offset, frame_size);
}

int depacketizer_h265_packet(uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr, size_t *frame_offset,
                             size_t *frame_size)
{
    return test_support::depacketize(true, frame_data, cur_ptr, end_ptr, frame_offset, frame_size);
}
