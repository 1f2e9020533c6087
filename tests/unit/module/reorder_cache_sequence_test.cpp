// What the reorder cache expects next, and how it gives frames up.

#include <gtest/gtest.h>

#include "packets.h"
#include "reorder_scene.h"

using namespace test_support;

namespace
{

constexpr uint32_t kUnknown = 0xFFFFFFFF;
constexpr uint64_t kUnknown64 = ~uint64_t{0};

void expect_empty(const webrtc_video_cache_t &cache)
{
    EXPECT_EQ(cache.pkt_cur_cnt, 0u);
    EXPECT_EQ(cache.pkt_min_seq, kUnknown);
    EXPECT_EQ(cache.pkt_max_seq, kUnknown);
    EXPECT_EQ(cache.frm_min_timestamp, kUnknown64);
    EXPECT_EQ(cache.frm_max_timestamp, kUnknown64);
}

void expect_ordered(const ReorderScene &scene, int expected, int ordered, int ordered_ts)
{
    EXPECT_EQ(scene.cache->pkt_exp_seq, scene.seq(expected));
    EXPECT_EQ(scene.cache->last_ordered_pkt_seq, scene.seq(ordered));
    EXPECT_EQ(scene.cache->last_ordered_timestamp, scene.timestamp(ordered_ts));
}

} // namespace

// -- The expected packet --

TEST(ReorderCacheSequence, RefusesOlderPacketsAndTakesNewerOnes)
{
    // 100 is stored, 101 expected.
    const struct {
        int seq;
        const char *out;
        const char *log; // null: none
    } rows[] = {
        {101, "kept", nullptr},
        {102, "kept, asks packets", "[INFO][RCV_VID] time-exceed pkt 102 > 101\n"},
        {100, "dropped", "[INFO][RCV_VID] time-out pkt 100 < 101\n"},
        {99, "dropped", "[INFO][RCV_VID] time-out pkt 99 < 101\n"},
        {101 + 0x7FFF, "kept, asks packets", "[INFO][RCV_VID] time-exceed pkt 32868 > 101\n"},
        {101 + 0x8000, "kept", nullptr}, // half a circle away counts as in order
        {101 + 0x8001, "dropped", "[INFO][RCV_VID] time-out pkt 32870 < 101\n"},
    };

    for (const auto &row : rows) {
        ReorderScene scene;
        scene.run(K(100, 1));
        scene.world.log.clear();
        EXPECT_EQ(scene.run(P(row.seq, 1)), row.out) << row.seq;
        EXPECT_EQ(scene.world.count_logged("time-"), row.log == nullptr ? 0u : 1u) << row.seq;
        EXPECT_TRUE(row.log == nullptr || scene.world.has_logged(7, row.log)) << row.seq;
    }
}

TEST(ReorderCacheSequence, ComparesAcrossTheWrap)
{
    const struct {
        int seq;
        const char *out;
        const char *log;
    } rows[] = {
        {0, "kept, asks packets", "[INFO][RCV_VID] time-exceed pkt 0 > 65535\n"},
        {65534, "dropped", "[INFO][RCV_VID] time-out pkt 65534 < 65535\n"},
    };

    for (const auto &row : rows) {
        ReorderScene scene;
        scene.run(K(65534, 1));
        EXPECT_EQ(scene.cache->pkt_exp_seq, 65535u);
        EXPECT_EQ(scene.run(P(row.seq, 1)), row.out);
        EXPECT_TRUE(scene.world.has_logged(7, row.log));
    }
}

TEST(ReorderCacheSequence, StartsWithTheFirstPacketStored)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        EXPECT_EQ(scene.run(K(0, 1)), "kept");
        expect_ordered(scene, 1, 0, 1);
    }
}

TEST(ReorderCacheSequence, JumpsOverPacketsThatWaitedForTheExpectedOne)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        scene.run(P(2, 1));
        scene.run(P(3, 2));
        scene.run(P(4, 3));
        expect_ordered(scene, 1, 0, 1);
        EXPECT_EQ(scene.run(P(1, 1)), "kept");
        expect_ordered(scene, 5, 4, 3);
    }
}

TEST(ReorderCacheSequence, StopsAtTheNextHole)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        scene.run(P(2, 2));
        scene.run(P(4, 3));
        scene.run(P(1, 1));
        expect_ordered(scene, 3, 2, 2);
        scene.run(P(6, 4)); // ahead: moves nothing
        expect_ordered(scene, 3, 2, 2);
    }
}

TEST(ReorderCacheSequence, GoesOnAfterDelivery)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(1, 2).m(), "kept, 1001:1"},
        {P(0, 1).m(), "dropped"},
        {P(1, 2).m(), "dropped"},
        {P(3, 4).m(), "kept, asks packets"},
        {P(2, 3).m(), "kept, 1002:2, 1003:3"},
    });
}

TEST(ReorderCacheSequence, TakesAnyPacketInASlotForTheOneExpected)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1).m());
        scene.run(P(8194, 5)); // in the slot of 2
        EXPECT_EQ(scene.run(P(1, 2)), "kept");
        // Packet 2 counts as received, and the packet in its slot as the newest in order.
        expect_ordered(scene, 3, 8194, 5);
        EXPECT_EQ(scene.run(P(2, 2)), "dropped");
    }
}

TEST(ReorderCacheSequence, TestsTheFirstSlotBeforeTheBound)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        scene.cache->pkt_exp_seq = scene.seq(8191);
        EXPECT_EQ(scene.run(P(8191, 2)), "kept");
        // 8192 has not come; 0 is in its slot.
        EXPECT_EQ(scene.cache->pkt_exp_seq, scene.seq(8193));
    }
}

TEST(ReorderCacheSequence, KeepsTheLastOrderedPacketWhenTheOneBeforeTheExpectedIsOlderThanAllHeld)
{
    ReorderScene scene;

    scene.run(K(0, 1).m());
    scene.run(P(5, 3));
    scene.cache->last_removed_timestamp = scene.timestamp(2);
    EXPECT_EQ(scene.run(P(1, 2)), "dropped"); // given up, so 2 is expected; the oldest held is 5
    expect_ordered(scene, 2, 0, 1);
}

// -- Frames given up from outside --

TEST(ReorderCacheSequence, RefusesPacketsOfTheRemovedTimestamp)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        scene.cache->last_removed_timestamp = scene.timestamp(2);
        scene.world.log.clear();
        EXPECT_EQ(scene.run(P(2, 2)), "dropped"); // not the expected one: nothing moves
        expect_ordered(scene, 1, 0, 1);
        EXPECT_EQ(scene.run(P(3, 3)), "kept, asks packets");
        EXPECT_EQ(scene.run(P(1, 2)), "dropped"); // the expected one: the gap must not stall the cache
        EXPECT_EQ(scene.cache->pkt_exp_seq, scene.seq(2));
        EXPECT_EQ(scene.run(P(2, 2)), "dropped");
        expect_ordered(scene, 4, 3, 3);
        EXPECT_EQ(scene.world.count_logged("time-out"), 0u);
    }
}

TEST(ReorderCacheSequence, MovesPastRefusedPacketsOfAnEmptyCache)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1).m());
        scene.cache->last_removed_timestamp = scene.timestamp(2);
        EXPECT_EQ(scene.run(P(1, 2)), "dropped");
        expect_ordered(scene, 2, 1, 2);
        EXPECT_EQ(scene.run(P(2, 3).m()), "kept, restart@0, 1000:2");
    }
}

TEST(ReorderCacheSequence, TellsTheRemovedTimestampAllOnesFromNone)
{
    ReorderScene scene({0, 0xFFFFFFFF});

    EXPECT_EQ(scene.run(K(0, 0)), "kept");
    scene.cache->last_removed_timestamp = 0xFFFFFFFF;
    EXPECT_EQ(scene.run(P(1, 0)), "dropped");
}

TEST(ReorderCacheSequence, TellsPacket65535FromAnUnknownExpectedOne)
{
    ReorderScene scene;

    scene.cache->last_removed_timestamp = scene.timestamp(1);
    EXPECT_EQ(scene.run(K(65535, 1)), "dropped");
    EXPECT_EQ(scene.cache->pkt_exp_seq, kUnknown);
    EXPECT_EQ(scene.cache->last_ordered_pkt_seq, kUnknown);
}

TEST(ReorderCacheSequence, KeepsTheRemovedTimestampAsItIs)
{
    ReorderScene scene;

    scene.run(K(0, 1));
    scene.run(check().at(2000));
    EXPECT_EQ(scene.cache->last_removed_timestamp, kUnknown64);
}

// -- Removal of one frame --

TEST(ReorderCacheRemoval, EmptiesTheCacheWithItsOnlyFrame)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        scene.run(P(2, 1));
        EXPECT_EQ(scene.cache->pkt_exp_seq, scene.seq(1));
        EXPECT_EQ(scene.run(check().at(2000)), "asks key");
        expect_empty(*scene.cache);
        EXPECT_EQ(scene.cache->frm_cur_cnt, 0u);
        EXPECT_EQ(scene.frame(1), nullptr);
        expect_ordered(scene, 3, 2, 1); // past the last packet of the frame
    }
}

TEST(ReorderCacheRemoval, LeavesTheExpectedPacketThatIsAheadAlready)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        scene.run(P(1, 1));
        scene.run(check().at(2000));
        expect_ordered(scene, 2, 1, 1);
    }
}

TEST(ReorderCacheRemoval, MovesTheLowerBoundsToTheNextPacketHeld)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        scene.run(P(2, 1));
        scene.run(K(6, 2)); // waits behind 3, 4 and 5
        scene.run(P(8, 3));
        EXPECT_EQ(scene.run(check().at(2000)), "");
        EXPECT_EQ(scene.cache->pkt_min_seq, scene.seq(6));
        EXPECT_EQ(scene.cache->pkt_max_seq, scene.seq(8));
        EXPECT_EQ(scene.cache->frm_min_timestamp, scene.timestamp(2));
        EXPECT_EQ(scene.cache->frm_max_timestamp, scene.timestamp(3));
        EXPECT_EQ(scene.cache->pkt_cur_cnt, 2u);
        EXPECT_EQ(scene.cache->frm_cur_cnt, 2u);
        // Past the removed frame, to the hole behind it; 2 is older than all held, so 0 stays the last in order.
        expect_ordered(scene, 3, 0, 1);
    }
}

TEST(ReorderCacheRemoval, TakesTheTimestampOfTheNextPacketForTheOldest)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        scene.run(K(2, 5)); // the next in sequence, not the next in time
        scene.run(P(3, 3));
        EXPECT_EQ(scene.run(check().at(2000)), "");
        EXPECT_EQ(scene.cache->frm_min_timestamp, scene.timestamp(5));
        EXPECT_EQ(scene.cache->frm_max_timestamp, scene.timestamp(5));
        EXPECT_EQ(scene.cache->frm_cur_cnt, 2u);
    }
}

TEST(ReorderCacheRemoval, MovesTheExpectedPacketOverWhatIsHeldBehindTheFrame)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        scene.run(P(2, 1));
        scene.run(K(3, 2));
        scene.run(P(4, 3));
        EXPECT_EQ(scene.run(check().at(2000)), "");
        expect_ordered(scene, 5, 4, 3);
    }
}

TEST(ReorderCacheRemoval, ClearsEverySlotInTheFramesRangeWhateverFrameItBelongsTo)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        EXPECT_EQ(scene.run(K(0, 1)), "kept");
        EXPECT_EQ(scene.run(P(1, 2)), "kept");
        EXPECT_EQ(scene.run(P(2, 1).m()), "kept");
        // The third packet of three, so packet 1 goes out in the frame of timestamp 1.
        EXPECT_EQ(scene.run(P(3, 1)), "kept, 1000:0-2 key");
        EXPECT_EQ(scene.cache->pkt_cur_cnt, 0u);
        EXPECT_EQ(scene.cache->frm_cur_cnt, 1u); // a frame without packets stays
        ASSERT_NE(scene.frame(2), nullptr);
        EXPECT_EQ(scene.frame(2)->n_pkts_received, 1);
        EXPECT_EQ(scene.frame(1), nullptr);
        EXPECT_EQ(scene.run(reset()), "");
        EXPECT_EQ(scene.cache->frm_cur_cnt, 0u);
    }
}

TEST(ReorderCacheRemoval, KeepsTheBoundsWhenNothingIsHeldBehindTheFrame)
{
    ReorderScene scene;

    scene.run(K(0, 1));
    scene.run(P(1, 1));
    scene.run(P(8192, 5)); // evicts 0 and is met at the head in its place
    scene.world.log.clear();
    EXPECT_EQ(scene.run(check().at(2000)), "");
    EXPECT_EQ(scene.world.log_at(3),
              (std::vector<log_line>{{3, "[CRIT][RCV_VID] no avaliable webrtc video packet ???\n"}}));
    EXPECT_EQ(scene.world.log_at(4), (std::vector<log_line>{{4, "[ERROR][RCV_VID] frm_ptr is null\n"}}));
    EXPECT_EQ(scene.cache->pkt_min_seq, 0u);
    EXPECT_EQ(scene.cache->pkt_max_seq, 8192u);
    EXPECT_EQ(scene.cache->frm_min_timestamp, scene.timestamp(1));
    EXPECT_EQ(scene.cache->frm_max_timestamp, scene.timestamp(5));
    EXPECT_EQ(scene.cache->pkt_cur_cnt, 1u);
    // Packet 1 stands in the slot behind the removed one.
    expect_ordered(scene, 8194, 1, 1);
}

// The lowest packet is not before the highest one, so there is no range to clear.
TEST(ReorderCacheRemoval, LeavesThePacketsOfAFrameWhoseEndsAreHalfACircleApart)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        for (int seq = 1; seq <= 5; seq++) {
            scene.run(P(seq, 1));
        }
        EXPECT_EQ(scene.run(P(0x8005, 1)), "kept, asks packets"); // in the slot of packet 5
        EXPECT_EQ(scene.run(check().at(2000)), "");
        EXPECT_EQ(scene.frame(1), nullptr);
        EXPECT_EQ(scene.cache->pkt_cur_cnt, 6u);
        EXPECT_EQ(scene.slot(5).state, WEBRTC_VIDEO_PKT_SET);
        EXPECT_EQ(scene.slot(5).frm_ptr, nullptr);
    }
}

TEST(ReorderCacheRemoval, LeavesTheExpectedPacketThatIsTheFramesLast)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        scene.run(P(1, 1));
        scene.cache->pkt_exp_seq = scene.seq(1);
        EXPECT_EQ(scene.run(check().at(2000)), "asks key");
        EXPECT_EQ(scene.cache->pkt_exp_seq, scene.seq(1));
    }
}

// As many strangers are in the frame's range as the frame has packets, two of which lie outside.
TEST(ReorderCacheRemoval, UnlinksPacketsOutsideTheRangeHoweverManyStrangersAreInIt)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        for (int seq = 1; seq < 32; seq++) {
            scene.run(P(seq, 2));
        }
        scene.run(P(32, 1));
        scene.run(P(0x8001, 1)); // the frame's lowest packet, and its highest
        scene.run(P(0x8006, 1));
        EXPECT_EQ(scene.frame(1)->n_pkts_received, 4);
        EXPECT_EQ(scene.run(check().at(2000)), "");
        EXPECT_EQ(scene.frame(1), nullptr);
        EXPECT_EQ(scene.cache->pkt_cur_cnt, 27u);
        EXPECT_EQ(scene.slot(0).frm_ptr, nullptr);
        EXPECT_EQ(scene.slot(32).frm_ptr, nullptr);
    }
}

TEST(ReorderCacheRemoval, UnlinksTheOnePacketOutsideTheRange)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        for (int seq = 1; seq <= 40; seq++) {
            scene.run(P(seq, seq == 32 ? 1 : 2));
        }
        scene.run(P(0x8001, 1)); // the frame's lowest packet, and its highest
        scene.run(P(0x8024, 1)); // packet 32 is in a slot between the two
        EXPECT_EQ(scene.frame(1)->n_pkts_received, 4);
        EXPECT_EQ(scene.run(check().at(2000)), "");
        EXPECT_EQ(scene.frame(1), nullptr);
        EXPECT_EQ(scene.cache->pkt_cur_cnt, 5u);
        EXPECT_EQ(scene.slot(0).frm_ptr, nullptr);
    }
}

// -- The drop to a key frame --

TEST(ReorderCacheDrop, RemovesFramesUpToTheNextKeyFrame)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(2, 2), "kept, asks packets"},
        {P(5, 3).m(), "kept, asks packets"},
        {K(6, 4).m(), "kept"},
        {P(7, 5).m(), "kept, asks packets"},
        {check().at(1999), ""},
        {check().at(2000), "1000:6 key, 1001:7"},
    });
}

TEST(ReorderCacheDrop, AsksForAKeyFrameWhenNoneIsHeld)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(2, 2), "kept, asks packets"},
        {P(5, 3).m(), "kept, asks packets"},
        {check().at(2000), "asks key"},
        {check().at(2001), ""},
        {check().at(9000), ""},
    });
}

TEST(ReorderCacheDrop, RemovesTheStuckFrameEvenWhenItIsAKeyFrame)
{
    play({
        {K(0, 1), "kept"},
        {K(2, 2).m(), "kept"},
        {check().at(2000), "1000:2 key"},
    });
    play({
        {K(0, 1), "kept"},
        {check().at(2000), "asks key"},
    });
}

TEST(ReorderCacheDrop, StopsAtAKeyFrameThatIsNotCompleteAndWaitsForIt)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(2, 2), "kept, asks packets"},
        {K(4, 3).at(500), "kept"},
        {P(6, 3).m(), "kept, asks packets"},
        {check().at(2000), ""},
        {check().at(2499), ""},
        {P(5, 3).at(2499), "kept, asks packets, 1000:4-6 key"}, // 3 is the expected one
    });
}

TEST(ReorderCacheDrop, DropsTheWaitingKeyFrameInItsTurn)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(2, 2), "kept, asks packets"},
        {K(4, 3).at(500), "kept"},
        {check().at(2000), ""},
        {check().at(2499), ""},
        {check().at(2500), "asks key"},
    });
}

TEST(ReorderCacheDrop, ReturnsTheStuckKeyFrameItselfWhileAnOlderTimestampIsHeld)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 5));
        scene.run(P(1, 3));
        for (const int64_t ms : {2000, 2001, 9000}) {
            scene.world.log.clear();
            EXPECT_EQ(scene.run(check().at(ms)), "");
            EXPECT_EQ(scene.world.log.size(), 3u); // given up, the dump, the drop
            EXPECT_EQ(scene.cache->pkt_cur_cnt, 2u);
        }
    }
}

TEST(ReorderCacheDrop, ForgetsTheDeliveryHistory)
{
    ReorderScene scene;

    scene.run(K(0, 1).m().at(10));
    EXPECT_EQ(scene.cache->last_deliver_frm_ts, scene.now);
    scene.run(P(2, 2));
    scene.run(check().at(2010));
    EXPECT_EQ(scene.cache->last_deliver_frm_ts, 0u);
    EXPECT_EQ(scene.cache->last_deliver_frm_seq, kUnknown64);
    EXPECT_EQ(scene.cache->last_deliver_pkt_seq, kUnknown);
    EXPECT_EQ(scene.run(K(3, 3).m()), "kept, 1000:3 key"); // no restart: the numbering is new
}

TEST(ReorderCacheDrop, LeavesTheGateOpen)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(2, 2), "kept, asks packets"},
        {check().at(2000), "asks key"},
        {P(3, 3).m(), "kept, 1000:3"}, // follows the removed frame's last packet, so it is taken for whole
    });
}

TEST(ReorderCacheDrop, StopsAtAPacketWithoutAFrame)
{
    ReorderScene scene;

    scene.run(K(0, 1));
    scene.world.refuse_tag("webrtc_video_insert_frm_map");
    scene.run(P(1, 2));
    scene.world.refuse = nullptr;
    scene.run(K(2, 3).m());
    scene.world.log.clear();
    EXPECT_EQ(scene.run(check().at(2000)), "");
    EXPECT_EQ(scene.world.log_at(4), (std::vector<log_line>{{4, "[ERROR][RCV_VID] frm_ptr is null\n"}}));
    EXPECT_EQ(scene.cache->pkt_min_seq, 1u);
    EXPECT_EQ(scene.cache->pkt_cur_cnt, 2u);
    scene.world.log.clear();
    EXPECT_EQ(scene.run(check().at(9000)), ""); // no head frame, nothing to say
    EXPECT_TRUE(scene.world.log.empty());
}

TEST(ReorderCacheDrop, LogsTheDumpTheDropAndEachFrame)
{
    ReorderScene scene;

    scene.run(K(100, 1).m());
    scene.run(P(102, 2));
    scene.run(P(105, 3).m());
    scene.run(K(106, 4).m());
    scene.world.log.clear();
    scene.run(check().at(2000));
    EXPECT_EQ(
        scene.world.log,
        (std::vector<log_line>{
            {6, "[NOTICE][RCV_VID] in-compelete frame[102, 102][4294967295, 4294967295] timeout, clear!!!\n"},
            {6, "[NOTICE][RCV_VID] video_cache: pkt_cnt=3 exp_seq=101 pkt_seq=[102, 106] frm_cnt=3 frm_ts=[6000, 12000]"
                " last_ordered=[3000, 100]\n"},
            {6, "[NOTICE][RCV_VID] remove_to_key_frame !!!!!!\n"},
            {7, "[INFO][RCV_VID] remove frm: state=1 key=0 6000 [102, 102][4294967295, 4294967295] 1/0\n"},
            {7, "[INFO][RCV_VID] remove frm: state=1 key=0 9000 [105, 105][4294967295, 105] 1/0\n"},
            {7, "[INFO][RCV_VID] deliver: key:1 [1000] [12000] [106, 106] 1/1\n"},
            {7, "[INFO][RCV_VID] remove frm: state=2 key=1 12000 [106, 106][106, 106] 1/1\n"},
        }));
}
