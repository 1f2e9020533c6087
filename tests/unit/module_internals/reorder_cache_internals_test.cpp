// Functions of the reorder cache that have no name outside the module, and states that no packets lead to. The module's
// source is part of this program.

#include "../../../rtc/video_stream.cpp" // NOLINT(bugprone-suspicious-include)

#include <gtest/gtest.h>

#include "packets.h"
#include "reorder_scene.h"

using namespace test_support;

namespace
{

// A cache with a ring whose slots are set by hand.
class ReorderCacheInternals : public testing::Test
{
  protected:
    ReorderCacheInternals()
    {
        EXPECT_EQ(webrtc_video_cache_alloc(cache), 0);
    }

    webrtc_video_packet_t &hold(uint16_t seq, uint32_t timestamp = 0)
    {
        webrtc_video_packet_t *pkt = ring_slot(cache, seq);

        pkt->state = WEBRTC_VIDEO_PKT_SET;
        pkt->pkt_seq = seq;
        pkt->timestamp = timestamp;
        count_packet_in(cache, seq);
        return *pkt;
    }

    webrtc_video_frame_t *insert_frame(uint32_t timestamp)
    {
        return find_or_create_frame(cache, timestamp);
    }

    ReorderScene scene;
    webrtc_video_cache_t *cache = scene.cache;
};

using ReorderCacheFrameMap = ReorderCacheInternals;
using ReorderCacheOrder = ReorderCacheInternals;
using ReorderCacheEnds = ReorderCacheInternals;
using ReorderCacheRemovalInternals = ReorderCacheInternals;
using ReorderCacheHandover = ReorderCacheInternals;

std::vector<uint32_t> timestamps_walked(const World &world)
{
    std::vector<uint32_t> timestamps;

    for (const log_line &line : world.log) {
        const size_t at = line.text.find(" ts=");
        if (at != std::string::npos) {
            timestamps.push_back(static_cast<uint32_t>(std::stoul(line.text.substr(at + 4))));
        }
    }
    return timestamps;
}

} // namespace

// -- The frame map --

TEST_F(ReorderCacheFrameMap, WalkListsFramesByTimestampWithoutWrap)
{
    insert_frame(0xFFFFFFF0)->state = WEBRTC_VIDEO_FRM_COMPLETE;
    insert_frame(5)->state = WEBRTC_VIDEO_FRM_INCOMPLETE;
    insert_frame(5)->ts = 77; // the time that is not listed
    scene.world.log.clear();
    webrtc_video_frame_walk(cache);
    EXPECT_EQ(scene.world.log, (std::vector<log_line>{
                                   {6, "[NOTICE][RCV_VID] --------frm_map dump Start--------\n"},
                                   {6, "[NOTICE][RCV_VID] ts=5 state=1\n"},
                                   {6, "[NOTICE][RCV_VID] ts=4294967280 state=2\n"},
                                   {6, "[NOTICE][RCV_VID] --------frm_map dump End----------\n"},
                               }));
}

TEST_F(ReorderCacheFrameMap, WalkListsManyFramesAndAnEmptyMap)
{
    const std::vector<uint32_t> ascending = {0, 1, 0x7FFFFFFF, 0x80000000, 0x80000001, 0xFFFFFFFE, 0xFFFFFFFF};

    webrtc_video_frame_walk(cache);
    EXPECT_TRUE(timestamps_walked(scene.world).empty());
    EXPECT_EQ(scene.world.log.size(), 2u);
    for (const size_t i : {3u, 6u, 0u, 5u, 1u, 4u, 2u}) {
        insert_frame(ascending[i]);
    }
    webrtc_video_frame_walk(cache);
    EXPECT_EQ(timestamps_walked(scene.world), ascending);
}

TEST_F(ReorderCacheFrameMap, WalkSaysNothingBelowItsLevel)
{
    insert_frame(1);
    g_log_mod_arr[LM_RCV_VID].m_level = RTC_LOG_WARNING;
    webrtc_video_frame_walk(cache);
    EXPECT_TRUE(scene.world.log.empty());
    EXPECT_EQ(webrtc_video_frame_walk_impl(&insert_frame(1)->node, nullptr), 0);
}

TEST_F(ReorderCacheFrameMap, OrdersFramesAndKeysByPlainTimestamps)
{
    const uint32_t values[] = {0, 5, 0x7FFFFFFF, 0x80000000, 0xFFFFFFF0, 0xFFFFFFFF};
    const auto compare = [](const zeb_rb_node *lhs, const zeb_rb_node *rhs, int unused, ...) {
        va_list keys;
        va_start(keys, unused);
        const int order = webrtc_video_frame_cmp(lhs, rhs, keys);
        va_end(keys);
        return order;
    };

    for (const uint32_t left : values) {
        for (const uint32_t right : values) {
            webrtc_video_frame_t lhs = {};
            webrtc_video_frame_t rhs = {};
            const int order = left > right ? 1 : left < right ? -1 : 0;
            lhs.timestamp = left;
            rhs.timestamp = right;
            EXPECT_EQ(compare(&lhs.node, &rhs.node, 0), order) << left << ' ' << right;
            EXPECT_EQ(compare(&lhs.node, nullptr, 0, right), order) << left << ' ' << right;
        }
    }
}

// "Not known" is all ones in 64 bits and nothing else: whatever else stands there is compared by its low 32 bits.
TEST_F(ReorderCacheFrameMap, WidensTimestampBoundsUnlessOneIsNotKnown)
{
    constexpr uint64_t unknown = ~uint64_t{0};
    constexpr uint64_t two_to_32 = uint64_t{1} << 32;
    const struct {
        uint64_t min, max;
        uint32_t timestamp;
        uint64_t new_min, new_max;
    } rows[] = {
        {unknown, unknown, 7, 7, 7},
        {5, unknown, 7, 7, 7},
        {unknown, 5, 7, 7, 7},
        {5, 5, 7, 5, 7},
        {5, 9, 7, 5, 9},
        {5, 9, 3, 3, 9},
        {0xFFFFFFFF, 0xFFFFFFFF, 2, 0xFFFFFFFF, 2},
        {two_to_32, two_to_32, 7, two_to_32, 7},
        {two_to_32 + 9, 20, 7, 7, 20},
        {5, two_to_32 + 9, 7, 5, two_to_32 + 9},
        {unknown - 1, unknown - 1, 7, unknown - 1, 7},
        {unknown - 1, unknown, 7, 7, 7},
    };

    for (const auto &row : rows) {
        cache->frm_min_timestamp = row.min;
        cache->frm_max_timestamp = row.max;
        widen_timestamp_bounds(cache, row.timestamp);
        EXPECT_EQ(cache->frm_min_timestamp, row.new_min) << row.min << '-' << row.max << ' ' << row.timestamp;
        EXPECT_EQ(cache->frm_max_timestamp, row.new_max) << row.min << '-' << row.max << ' ' << row.timestamp;
    }
}

// -- Order --

TEST_F(ReorderCacheOrder, ClassifiesSequenceNumbers)
{
    EXPECT_EQ(webrtc_video_check_expect_seq(cache, 100, 1), 1);
    EXPECT_EQ(cache->pkt_exp_seq, 100u);
    scene.world.log.clear();
    EXPECT_EQ(webrtc_video_check_expect_seq(cache, 99, 1), -1);
    EXPECT_EQ(webrtc_video_check_expect_seq(cache, 102, 1), 2);
    EXPECT_EQ(webrtc_video_check_expect_seq(cache, 100, 1), 1);
    EXPECT_EQ(cache->pkt_exp_seq, 100u);
    EXPECT_EQ(scene.world.log, (std::vector<log_line>{{7, "[INFO][RCV_VID] time-out pkt 99 < 100\n"},
                                                      {7, "[INFO][RCV_VID] time-exceed pkt 102 > 100\n"}}));
}

TEST_F(ReorderCacheOrder, ClassifiesByTheNearerWayRound)
{
    const struct {
        int offset; // from the expected number
        int order;
    } rows[] = {{0, 1}, {1, 2}, {0x7FFF, 2}, {0x8000, 1}, {0x8001, -1}, {0xFFFF, -1}};

    const uint16_t expected_seqs[] = {0, 1, 0x7FFF, 0x8000, 65534, 65535};

    for (const uint16_t expected : expected_seqs) {
        for (const auto &row : rows) {
            cache->pkt_exp_seq = expected;
            EXPECT_EQ(webrtc_video_check_expect_seq(cache, static_cast<uint16_t>(expected + row.offset), 1), row.order)
                << expected << '+' << row.offset;
            EXPECT_EQ(cache->pkt_exp_seq, expected);
        }
    }
}

TEST_F(ReorderCacheOrder, HasAHeadFrameOnlyWhilePacketsAreHeld)
{
    EXPECT_EQ(webrtc_video_get_head_frame(nullptr), nullptr);
    EXPECT_EQ(webrtc_video_get_head_frame(cache), nullptr);
    webrtc_video_frame_t *frm = insert_frame(1);
    hold(8191).frm_ptr = frm;
    EXPECT_EQ(webrtc_video_get_head_frame(cache), frm);
    ring_slot(cache, 8191)->state = WEBRTC_VIDEO_PKT_NONE; // the state is not tested
    EXPECT_EQ(webrtc_video_get_head_frame(cache), frm);
    ring_slot(cache, 8191)->frm_ptr = nullptr;
    EXPECT_EQ(webrtc_video_get_head_frame(cache), nullptr);
}

TEST_F(ReorderCacheOrder, FindsTheNextPacketUpToTheNewest)
{
    hold(65530);
    hold(65534);
    hold(2);
    EXPECT_EQ(webrtc_video_get_next_recved_pkt(cache, 65529)->pkt_seq, 65530);
    EXPECT_EQ(webrtc_video_get_next_recved_pkt(cache, 65530)->pkt_seq, 65534);
    EXPECT_EQ(webrtc_video_get_next_recved_pkt(cache, 65534)->pkt_seq, 2);
    EXPECT_EQ(webrtc_video_get_next_recved_pkt(cache, 1)->pkt_seq, 2);
    EXPECT_EQ(webrtc_video_get_next_recved_pkt(cache, 2), nullptr);
    ring_slot(cache, 3)->state = WEBRTC_VIDEO_PKT_SET; // beyond the newest
    EXPECT_EQ(webrtc_video_get_next_recved_pkt(cache, 2), nullptr);
}

TEST_F(ReorderCacheOrder, MovesOnInAnEmptyCache)
{
    webrtc_video_move_expect_seq(cache, 65535, 7);
    EXPECT_EQ(cache->pkt_exp_seq, 0u);
    EXPECT_EQ(cache->last_ordered_pkt_seq, 65535u);
    EXPECT_EQ(cache->last_ordered_timestamp, 7u);
}

TEST_F(ReorderCacheOrder, MovesOverPacketsHeld)
{
    const struct {
        bool is_ordered_known;
        uint32_t ordered_seq;
        uint64_t ordered_timestamp;
    } rows[] = {{false, 100, 1}, {true, 103, 30}};

    hold(100, 1);
    hold(101, 10);
    hold(102, 20);
    hold(103, 30);
    hold(105, 50);
    for (const auto &row : rows) {
        cache->last_ordered_pkt_seq = row.is_ordered_known ? 99 : 0xFFFFFFFF;
        webrtc_video_move_expect_seq(cache, 100, 1);
        EXPECT_EQ(cache->pkt_exp_seq, 104u);
        EXPECT_EQ(cache->last_ordered_pkt_seq, row.ordered_seq);
        EXPECT_EQ(cache->last_ordered_timestamp, row.ordered_timestamp);
    }
}

TEST_F(ReorderCacheOrder, KeepsWhatIsOrderedWhenAllPacketsHeldAreNewer)
{
    hold(200);
    cache->last_ordered_pkt_seq = 50;
    cache->last_ordered_timestamp = 5;
    webrtc_video_move_expect_seq(cache, 100, 1);
    EXPECT_EQ(cache->pkt_exp_seq, 101u);
    EXPECT_EQ(cache->last_ordered_pkt_seq, 50u);
    EXPECT_EQ(cache->last_ordered_timestamp, 5u);
}

// -- The ends of a frame --

TEST_F(ReorderCacheEnds, CompletesAFrameWhoseCountIsReached)
{
    constexpr uint32_t unknown = 0xFFFFFFFF;
    const struct {
        uint8_t state;
        uint32_t min, max;
        uint16_t received;
        uint16_t total; // out, 99: not written
        uint8_t new_state;
    } rows[] = {
        {1, 5, 5, 1, 1, 2},
        {1, 5, 7, 2, 3, 1},
        {1, 5, 7, 3, 3, 2},
        {1, 5, 7, 4, 3, 1}, // more than there are does not complete it
        {1, 65535, 1, 3, 3, 2},
        {1, 0, 0x7FFF, 0x8000, 0x8000, 2},
        {1, 0, 0x8000, 0x8001, 0x8001, 2},
        {1, 7, 5, 3, 3, 2}, // ends the wrong way round are as far apart
        {1, unknown, 7, 1, 99, 1},
        {1, 5, unknown, 1, 99, 1},
        {0, 5, 5, 1, 99, 0},
        {2, 5, 9, 1, 99, 2}, // a complete frame never goes back
    };

    for (const auto &row : rows) {
        webrtc_video_frame_t frm = {};
        frm.state = row.state;
        frm.min_seq = row.min;
        frm.max_seq = row.max;
        frm.n_pkts_received = row.received;
        frm.n_pkts_total = 99;
        webrtc_video_frame_fix_state(&frm);
        EXPECT_EQ(frm.n_pkts_total, row.total) << row.min << '-' << row.max;
        EXPECT_EQ(frm.state, row.new_state) << row.min << '-' << row.max;
    }
    webrtc_video_frame_fix_state(nullptr);
}

TEST_F(ReorderCacheEnds, AMarkerProvesTheStartOfAnyFrameBehindItThatHasPackets)
{
    for (const uint8_t state : {WEBRTC_VIDEO_FRM_NONE, WEBRTC_VIDEO_FRM_INCOMPLETE, WEBRTC_VIDEO_FRM_COMPLETE}) {
        webrtc_video_frame_t frm;
        webrtc_video_frame_t behind;
        webrtc_video_frame_init(&frm);
        webrtc_video_frame_init(&behind);
        behind.state = state;
        frm.cur_max_seq = 65535;
        hold(65535).endmark = 1;
        hold(0).frm_ptr = &behind;
        webrtc_video_frame_fix_max(cache, &frm);
        EXPECT_EQ(frm.max_seq, 65535u);
        EXPECT_EQ(behind.min_seq, state == WEBRTC_VIDEO_FRM_NONE ? 0xFFFFFFFFu : 0u);
        ring_slot(cache, 0)->frm_ptr = nullptr;
    }
}

TEST_F(ReorderCacheEnds, AMarkerProvesNothingBeyondTheNewestPacketOrAFreeSlot)
{
    webrtc_video_frame_t frm;
    webrtc_video_frame_t behind;

    webrtc_video_frame_init(&frm);
    webrtc_video_frame_init(&behind);
    behind.state = WEBRTC_VIDEO_FRM_INCOMPLETE;
    frm.cur_max_seq = 10;
    hold(10).endmark = 1;
    hold(11).frm_ptr = &behind;
    cache->pkt_max_seq = 10;
    webrtc_video_frame_fix_max(cache, &frm);
    EXPECT_EQ(behind.min_seq, 0xFFFFFFFFu);
    cache->pkt_max_seq = 12;
    ring_slot(cache, 11)->state = WEBRTC_VIDEO_PKT_NONE;
    webrtc_video_frame_fix_max(cache, &frm);
    EXPECT_EQ(behind.min_seq, 0xFFFFFFFFu);
    EXPECT_EQ(frm.max_seq, 10u);
    *ring_slot(cache, 11) = {};
}

// -- Removal --

TEST_F(ReorderCacheRemovalInternals, LeavesBoundsThatTheFrameDoesNotReach)
{
    webrtc_video_frame_t *frm = insert_frame(1);

    frm->cur_min_seq = frm->cur_max_seq = 50;
    hold(100, 9);
    hold(101, 10);
    cache->pkt_exp_seq = 102;
    cache->frm_min_timestamp = 3;
    cache->frm_max_timestamp = 4;
    departed_frames departed = {};
    webrtc_video_remove_frame(cache, frm, &departed);
    free_departed(cache, &departed);
    EXPECT_EQ(cache->pkt_cur_cnt, 2u);
    EXPECT_EQ(cache->pkt_min_seq, 100u);
    EXPECT_EQ(cache->pkt_max_seq, 101u);
    EXPECT_EQ(cache->frm_min_timestamp, 3u);
    EXPECT_EQ(cache->frm_max_timestamp, 4u);
    EXPECT_EQ(cache->pkt_exp_seq, 102u);
    EXPECT_EQ(cache->frm_cur_cnt, 0u);
}

// -- Handing over --

TEST_F(ReorderCacheHandover, LeavesFramesThatAreNotCompleteAlone)
{
    const struct {
        uint8_t state;
        uint32_t min, max;
        const char *text;
    } rows[] = {
        {1, 5, 5, "[WARNING][RCV_VID] not complete video frame, state=1 key=1 77 [5, 5]\n"},
        {0, 5, 5, "[WARNING][RCV_VID] not complete video frame, state=0 key=1 77 [5, 5]\n"},
        {2, 0xFFFFFFFF, 5, "[WARNING][RCV_VID] not complete video frame, state=2 key=1 77 [4294967295, 5]\n"},
        {2, 5, 0xFFFFFFFF, "[WARNING][RCV_VID] not complete video frame, state=2 key=1 77 [5, 4294967295]\n"},
    };

    webrtc_video_packet_t &pkt = hold(5);
    for (const auto &row : rows) {
        webrtc_video_frame_t frm = {};
        frm.state = row.state;
        frm.min_seq = row.min;
        frm.max_seq = row.max;
        frm.timestamp = 77;
        frm.is_key = 1;
        frm.frm_seq = 1000;
        scene.world.log.clear();
        webrtc_video_frm_fix_video(cache, &frm);
        EXPECT_EQ(scene.world.log, (std::vector<log_line>{{5, row.text}}));
        EXPECT_EQ(pkt.frm_seq, 0u);
        EXPECT_EQ(pkt.video.header.n_pkts, 0);
    }
    g_log_mod_arr[LM_RCV_VID].m_level = RTC_LOG_ERROR;
    scene.world.log.clear();
    webrtc_video_frame_t frm = {};
    webrtc_video_frm_fix_video(cache, &frm);
    EXPECT_TRUE(scene.world.log.empty());
}

TEST_F(ReorderCacheHandover, WritesTheNativeNumberingIntoEverySlotOfTheFrame)
{
    webrtc_video_frame_t frm = {};

    frm.state = WEBRTC_VIDEO_FRM_COMPLETE;
    frm.min_seq = 65534;
    frm.max_seq = 1;
    frm.frm_seq = 0xFFFFFFFF;
    frm.n_pkts_total = 4;
    webrtc_video_frm_fix_video(cache, &frm);
    for (uint16_t i = 0; i < 4; i++) {
        const webrtc_video_packet_t &pkt = *ring_slot(cache, static_cast<uint16_t>(65534 + i));
        EXPECT_EQ(pkt.frm_seq, 0xFFFFFFFFu);
        EXPECT_EQ(pkt.sub_seq, i);
        EXPECT_EQ(pkt.video.header.frame_seq, 0xFFFFFFFFu);
        EXPECT_EQ(pkt.video.header.subseq, i);
        EXPECT_EQ(pkt.video.header.n_pkts, 4);
    }
    EXPECT_EQ(ring_slot(cache, 65533)->frm_seq, 0u);
    EXPECT_EQ(ring_slot(cache, 2)->frm_seq, 0u);
}

TEST_F(ReorderCacheHandover, PassesFlagsAsZeroOrOne)
{
    webrtc_video_frame_t frm = {};

    frm.min_seq = frm.max_seq = 5;
    frm.is_key = 2;
    hold(5).is_retrans = 4;
    EXPECT_EQ(webrtc_video_do_deliver_frame(cache, &frm, &scene.now), 0);
    ASSERT_EQ(scene.world.added.size(), 1u);
    EXPECT_EQ(scene.world.added[0].is_retrans, 1);
    EXPECT_EQ(scene.world.added[0].is_key, 1);
}

TEST_F(ReorderCacheHandover, NumbersFramesByContinuity)
{
    const struct {
        uint64_t last_frame;
        uint32_t last_packet;
        uint32_t min;
        uint32_t number;
        bool restarts;
    } rows[] = {
        {~uint64_t{0}, 0xFFFFFFFF, 7, 1000, false},
        {~uint64_t{0}, 6, 7, 1000, false},
        {1000, 6, 7, 1001, false},
        {1000, 65535, 0, 1001, false},
        {0xFFFFFFFF, 6, 7, 0, false},
        {1005, 6, 8, 1000, true},
        {1005, 6, 6, 1000, true},
    };

    for (const auto &row : rows) {
        webrtc_video_frame_t frm = {};
        frm.min_seq = row.min;
        frm.ts = 4242;
        cache->last_deliver_frm_seq = row.last_frame;
        cache->last_deliver_pkt_seq = row.last_packet;
        scene.world.reset_states.clear();
        webrtc_video_fix_frm_seq(cache, &frm);
        EXPECT_EQ(frm.frm_seq, row.number);
        EXPECT_EQ(cache->last_deliver_frm_seq, row.number);
        EXPECT_EQ(scene.world.reset_states, std::vector<zeb_ts_t>(row.restarts ? 1 : 0, 4242));
    }
}
