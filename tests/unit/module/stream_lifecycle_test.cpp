#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include "log_gate.h"
#include "packets.h"
#include "test_stream.h"

using namespace test_support;

namespace
{

// A record in no list, full of what a former life left, with a user and a channel to bind it to.
struct bare_record {
    rtc_user user = {};
    rtc_channel channel = {};
    std::unique_ptr<user_video_stream> stream = std::make_unique<user_video_stream>();

    bare_record()
    {
        memset(static_cast<void *>(stream.get()), 0xA5, sizeof(*stream));
    }

    void release_owned()
    {
        if (stream->current_net_rcv_quality != nullptr) {
            net_rcv_analyzer_del(&stream->current_net_rcv_quality);
        }
        if (stream->bcm_stat != nullptr) {
            KelvraBcmStat_Destroy(stream->bcm_stat);
        }
    }
};

// -- Init: what is created for whom --

struct creation_case {
    const char *name;
    bool is_remote;
    uint8_t id;
    bool estimates_downlink;
    bool has_analyzer;
    bool has_statistics;
};

const creation_case kCreations[] = {
    {"RemoteMainStreamEstimating", true, 0, true, true, true},
    {"RemoteMainStream", true, 0, false, true, false},
    {"RemoteSecondStreamEstimating", true, 1, true, true, false},
    {"RemoteLastStreamEstimating", true, 255, true, true, false},
    {"RemoteSecondStream", true, 1, false, true, false},
    {"LocalMainStreamEstimating", false, 0, true, false, false},
    {"LocalMainStream", false, 0, false, false, false},
    {"LocalSecondStreamEstimating", false, 1, true, false, false},
};

TEST(StreamInit, CreatesAnalyzerAndStatisticsByUserIdAndChannel)
{
    for (const creation_case &row : kCreations) {
        SCOPED_TRACE(row.name);
        World world;
        bare_record record;
        record.channel.bandwidth_est_opt.enable_bandwidth_est_downlink = row.estimates_downlink;

        video_stream_init(record.stream.get(), row.id, row.is_remote ? &record.user : nullptr, &record.channel);

        EXPECT_EQ(row.has_analyzer, record.stream->current_net_rcv_quality != nullptr);
        EXPECT_EQ(row.has_analyzer ? 1u : 0u, world.analyzers_made);
        EXPECT_EQ(nullptr, record.stream->old_net_rcv_quality);
        EXPECT_EQ(row.has_statistics, record.stream->bcm_stat != nullptr);
        EXPECT_EQ(row.has_statistics ? std::vector<void *>{record.stream.get()} : std::vector<void *>{},
                  world.statistics_configs);
        EXPECT_TRUE(world.log.empty());
        EXPECT_EQ("", broken_invariants(*record.stream));
        record.release_owned();
    }
}

TEST(StreamInit, AllocatesNothingItself)
{
    World world;
    TestStream t(stream_kind::sending);

    EXPECT_TRUE(world.allocations.empty());
}

TEST(StreamInit, GoesOnWithoutAnalyzer)
{
    World world;
    world.no_analyzer = true;
    TestStream t(stream_kind::receiving, 0, true);

    EXPECT_EQ(nullptr, t.stream->current_net_rcv_quality);
    EXPECT_NE(nullptr, t.stream->bcm_stat);
    EXPECT_EQ(-1, t.stream->second_rcv_key_frame_seq);
    EXPECT_TRUE(world.log.empty());
    video_stream_reset(t.stream, true);
    EXPECT_EQ(0u, world.analyzers_reset);
}

TEST(StreamInit, MakesNoStatisticsWithoutChannel)
{
    World world;
    bare_record record;

    video_stream_init(record.stream.get(), 0, &record.user, nullptr);
    EXPECT_EQ(nullptr, record.stream->channel);
    EXPECT_EQ(nullptr, record.stream->bcm_stat);
    EXPECT_NE(nullptr, record.stream->current_net_rcv_quality);
    record.release_owned();
}

// -- Init: no statistics object --

#if GTEST_HAS_DEATH_TEST

[[noreturn]] void init_without_statistics(const log_gate &gate)
{
    World world;
    world.echo_log = true;
    world.no_statistics = true;
    gate.set(LM_MIN);
    TestStream t(stream_kind::receiving, 0, true);
    _exit(0);
}

TEST(StreamInitDeathTest, EndsTheProcessWhenStatisticsCannotBeHadAndLogsOnlyWhereItMay)
{
    for (const log_gate &gate : log_gates(RTC_LOG_ERROR)) {
        SCOPED_TRACE(gate.name);
        EXPECT_EXIT(init_without_statistics(gate), ::testing::KilledBySignal(SIGABRT),
                    gate.is_open ? "^<4> \\[ERROR\\] Check \\(stream->bcm_stat\\) error\n$" : "^$");
    }
}

#endif

// -- Reset --

// Native packets of two frames, one of them not whole, and RTP packets that wait in the reorder cache.
void fill(TestStream *t)
{
    const zeb_ts_t now = 1000;
    const native_fields packets[] = {{10, 1, 0, 100}, {11, 3, 0, 101}, {11, 3, 2, 103}};

    for (const native_fields &fields : packets) {
        PVideoData4 video = native_packet(fields);
        ASSERT_NE(nullptr, video_stream_insert_video_packet(t->stream, &video, 0, &now));
        release(&video);
    }
    const PVideoData4 rtp[] = {rtp_packet(500, 9000, true, false), rtp_packet(501, 9000, true, false),
                               rtp_packet(504, 12000, false, false)};
    for (PVideoData4 video : rtp) {
        webrtc_video_cache_process(t->cache, &video, false, &now);
        release(&video);
    }
}

TEST(StreamReset, IgnoresNull)
{
    World world;

    video_stream_reset(nullptr, true);
    video_stream_reset(nullptr, false);
    EXPECT_TRUE(world.log.empty());
    EXPECT_TRUE(world.allocations.empty());
}

TEST(StreamReset, ReleasesBothPathsAndKeepsTheRing)
{
    World world;
    TestStream t;
    ASSERT_NO_FATAL_FAILURE(fill(&t));
    ASSERT_EQ(2, t.q->count);
    ASSERT_EQ(3u, t.cache->pkt_cur_cnt);
    webrtc_video_packet_t *ring = t.cache->pkt_arr;

    video_stream_reset(t.stream, false);

    EXPECT_EQ(0, t.q->count);
    for (const video_frame &frame : t.q->video_frames) {
        EXPECT_EQ(0, frame.n_pkts_total);
        EXPECT_EQ(nullptr, frame.pkts);
        EXPECT_EQ(nullptr, frame.pkts_status);
    }
    EXPECT_EQ(0u, t.cache->pkt_cur_cnt);
    EXPECT_EQ(0u, t.cache->frm_cur_cnt);
    EXPECT_EQ(ring, t.cache->pkt_arr);
    EXPECT_EQ(2u, world.live.size()) << "the ring and the analyser";
    EXPECT_EQ("", broken_invariants(*t.stream));
}

TEST(StreamReset, GivesBackTheIndexEntriesOfStoredPackets)
{
    World world;
    TestStream t;
    ASSERT_NO_FATAL_FAILURE(fill(&t));
    ASSERT_EQ(10, t.q->pkt_frame_pos[100]);
    ASSERT_EQ(11, t.q->pkt_frame_pos[103]);

    video_stream_reset(t.stream, true);
    for (const int16_t pos : t.q->pkt_frame_pos) {
        EXPECT_EQ(-1, pos);
    }
}

TEST(StreamReset, LeavesTheRestOfTheFrameQueueAsItIs)
{
    World world;
    TestStream t;
    ASSERT_NO_FATAL_FAILURE(fill(&t));
    t.q->pkt_tc_pairs[7] = {11, 22};
    t.q->pkt_frame_pos[1279] = 12; // an entry without a packet behind it
    t.q->min_ts = 33;
    t.q->max_ts = 44;

    video_stream_reset(t.stream, true);
    EXPECT_EQ(11u, t.q->pkt_tc_pairs[7].at);
    EXPECT_EQ(22u, t.q->pkt_tc_pairs[7].n);
    EXPECT_EQ(12, t.q->pkt_frame_pos[1279]);
    EXPECT_EQ(33, t.q->min_ts);
    EXPECT_EQ(44, t.q->max_ts);
    EXPECT_EQ(10u, t.q->min_frame_seq);
    EXPECT_EQ(11u, t.q->max_frame_seq);
    EXPECT_EQ(10u, t.q->video_frames[10].frame_seq);
}

TEST(StreamReset, MakesTheReorderCacheWaitForAKeyFrameAgain)
{
    World world;
    TestStream t;
    ASSERT_NO_FATAL_FAILURE(fill(&t));
    ASSERT_EQ(0u, t.cache->frm_flag & 1u);

    video_stream_reset(t.stream, false);
    EXPECT_EQ(1u, t.cache->frm_flag & 1u);
    EXPECT_EQ(0xFFFFFFFFu, t.cache->pkt_exp_seq);
}

// A cache that never had a packet is not touched, not even its counters.
TEST(StreamReset, LeavesACacheWithoutRingAsItIs)
{
    World world;
    TestStream t;
    t.cache->frm_flag = 0;
    t.cache->n_retrans_req_recent = 5;

    video_stream_reset(t.stream, true);
    EXPECT_EQ(0u, t.cache->frm_flag);
    EXPECT_EQ(5, t.cache->n_retrans_req_recent);
}

struct owned_case {
    bool has_current;
    bool has_old;
    size_t analyzers_reset;
};

TEST(StreamReset, ResetsEachAnalyzerThatIsThere)
{
    const owned_case cases[] = {{true, true, 2}, {true, false, 1}, {false, true, 1}, {false, false, 0}};

    for (const owned_case &row : cases) {
        SCOPED_TRACE(::testing::Message() << "current " << row.has_current << ", old " << row.has_old);
        World world;
        TestStream t;
        if (!row.has_current) {
            net_rcv_analyzer_del(&t.stream->current_net_rcv_quality);
        }
        t.stream->old_net_rcv_quality = row.has_old ? net_rcv_analyzer_new() : nullptr;
        const net_rcv_analyzer_t *current = t.stream->current_net_rcv_quality;
        const net_rcv_analyzer_t *old = t.stream->old_net_rcv_quality;
        const size_t n_made = world.analyzers_made;
        const size_t n_deleted = world.analyzers_deleted;

        video_stream_reset(t.stream, true);
        EXPECT_EQ(row.analyzers_reset, world.analyzers_reset);
        EXPECT_EQ(current, t.stream->current_net_rcv_quality);
        EXPECT_EQ(old, t.stream->old_net_rcv_quality);
        EXPECT_EQ(n_made, world.analyzers_made);
        EXPECT_EQ(n_deleted, world.analyzers_deleted);
    }
}

TEST(StreamReset, ResetsStatisticsInPlace)
{
    World world;
    TestStream t(stream_kind::receiving, 0, true);
    const KelvraBcmStatistics *stat = t.stream->bcm_stat;

    video_stream_reset(t.stream, false);
    EXPECT_EQ(1u, world.statistics_reset);
    EXPECT_EQ(stat, t.stream->bcm_stat);
    EXPECT_EQ(0u, world.statistics_destroyed);
    EXPECT_EQ(1u, world.statistics_configs.size());
}

TEST(StreamReset, ResetsNoStatisticsWhereNoneAre)
{
    World world;
    TestStream t;

    video_stream_reset(t.stream, true);
    EXPECT_EQ(0u, world.statistics_reset);
}

TEST(StreamReset, ExpectsTheSamePacketAsBeforeOrTheFirstThatComes)
{
    const zeb_ts_t now = 1000;

    for (const bool reset_seq : {false, true}) {
        SCOPED_TRACE(reset_seq ? "sequences reset" : "sequences kept");
        World world;
        TestStream t;
        PVideoData4 first = native_packet({10, 1, 0, 100});
        ASSERT_NE(nullptr, video_stream_insert_video_packet(t.stream, &first, 0, &now));
        ASSERT_EQ(100u, t.stream->pkt_seq);

        video_stream_reset(t.stream, reset_seq);
        PVideoData4 later = native_packet({90, 2, 1, 201});
        ASSERT_NE(nullptr, video_stream_insert_video_packet(t.stream, &later, 0, &now));
        EXPECT_EQ(reset_seq ? 200u : 100u, t.stream->pkt_seq);
        EXPECT_EQ("", broken_invariants(*t.stream));
    }
}

TEST(StreamReset, ChangesNothingMoreWhenRepeated)
{
    World world;
    TestStream t(stream_kind::receiving, 0, true);
    ASSERT_NO_FATAL_FAILURE(fill(&t));

    video_stream_reset(t.stream, true);
    const std::vector<uint8_t> once(reinterpret_cast<uint8_t *>(t.stream),
                                    reinterpret_cast<uint8_t *>(t.stream) + sizeof(*t.stream));
    video_stream_reset(t.stream, true);
    EXPECT_EQ(0, memcmp(once.data(), t.stream, once.size()));
    EXPECT_EQ(2u, world.statistics_reset);
    EXPECT_EQ("", broken_invariants(*t.stream));
}

TEST(StreamReset, WorksWithoutChannel)
{
    World world;
    TestStream t;
    ASSERT_NO_FATAL_FAILURE(fill(&t));
    t.stream->channel = nullptr;

    video_stream_reset(t.stream, true);
    EXPECT_EQ(0, t.q->count);
    EXPECT_EQ(nullptr, t.stream->channel);
}

TEST(StreamInit, IgnoresANullRecord)
{
    World world;

    video_stream_init(nullptr, 0, nullptr, nullptr);
    rtc_video_frames_init(nullptr);
    EXPECT_TRUE(world.allocations.empty());
    EXPECT_TRUE(world.log.empty());
}

} // namespace
