// How frames leave the reorder cache: order, numbering, and how long a stuck head is waited for.

#include <gtest/gtest.h>

#include "packets.h"
#include "reorder_scene.h"

using namespace test_support;

namespace
{

constexpr uint32_t kUnknown = 0xFFFFFFFF;
constexpr uint64_t kUnknown64 = ~uint64_t{0};

// A complete frame at the head that intake did not deliver, since an older timestamp is held behind it:
// 0 delivered, 1 (ts 9) complete at the head, 3 (ts 5) incomplete.
void hold_complete_head(ReorderScene &scene)
{
    EXPECT_EQ(scene.run(K(0, 1).m()), "kept, 1000:0 key");
    EXPECT_EQ(scene.run(P(3, 5)), "kept, asks packets");
    EXPECT_EQ(scene.run(P(1, 9).m()), "kept");
}

} // namespace

// -- Numbering --

TEST(ReorderCacheDelivery, NumbersFramesFrom1000)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(1, 2), "kept"},
        {P(2, 2).m(), "kept, 1001:1-2"},
        {P(3, 3).m(), "kept, 1002:3"},
        {K(4, 4).m(), "kept, 1003:4 key"},
    });
}

TEST(ReorderCacheDelivery, RestartsTheNumberingBehindAGap)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(1, 2).m(), "kept, 1001:1"},
        {K(3, 4).at(40), "kept"},
        {K(4, 4).m().at(70), "kept, restart@40, 1000:3-4 key"}, // the time of the frame's first packet
        {P(5, 5).m(), "kept, 1001:5"},
    });
}

TEST(ReorderCacheDelivery, RestartsWithoutACallAfterReset)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(1, 2).m(), "kept, 1001:1"},
        {reset(), ""},
        {K(9, 3).m(), "kept, 1000:9 key"},
    });
}

TEST(ReorderCacheDelivery, WrapsTheFrameNumber)
{
    ReorderScene scene;

    scene.run(K(0, 1).m());
    scene.cache->last_deliver_frm_seq = 0xFFFFFFFE;
    EXPECT_EQ(scene.run(P(1, 2).m()), "kept, 4294967295:1");
    EXPECT_EQ(scene.cache->last_deliver_frm_seq, uint64_t{0xFFFFFFFF}); // a number, not "none"
    EXPECT_EQ(scene.run(P(2, 3).m()), "kept, 0:2");
    EXPECT_EQ(scene.run(P(3, 4).m()), "kept, 1:3");
}

TEST(ReorderCacheDelivery, RemembersTheFrameDeliveredLast)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1).m());
        scene.run(P(1, 2).at(30));
        EXPECT_EQ(scene.cache->last_deliver_frm_ts, scene.start);
        EXPECT_EQ(scene.cache->last_deliver_frm_seq, 1000u);
        EXPECT_EQ(scene.cache->last_deliver_pkt_seq, scene.seq(0));
        scene.run(P(2, 2).m().at(55));
        EXPECT_EQ(scene.cache->last_deliver_frm_ts, scene.start + 55);
        EXPECT_EQ(scene.cache->last_deliver_frm_seq, 1001u);
        EXPECT_EQ(scene.cache->last_deliver_pkt_seq, scene.seq(2));
    }
}

TEST(ReorderCacheDelivery, TellsPacket65535FromNoDelivery)
{
    ReorderScene scene({65535, 0});

    scene.run(K(0, 1).m());
    EXPECT_EQ(scene.cache->last_deliver_pkt_seq, 65535u);
    EXPECT_EQ(scene.run(P(1, 2).m()), "kept, 1001:1");
}

// -- Handing over --

TEST(ReorderCacheDelivery, HandsAFrameOverInSequenceOrderAcrossTheWrap)
{
    ReorderScene scene;

    scene.run(K(65535, 1));
    scene.run(P(1, 1).m());
    EXPECT_EQ(scene.run(P(0, 1)), "kept, 1000:65535-1 key");
    ASSERT_EQ(scene.world.added.size(), 3u);
    const seq_t seqs[] = {65535, 0, 1};
    for (uint16_t i = 0; i < 3; i++) {
        EXPECT_EQ(scene.world.added[i].seq, seqs[i]);
        EXPECT_EQ(scene.world.added[i].subseq, i);
        EXPECT_EQ(scene.world.added[i].n_pkts, 3);
        EXPECT_EQ(scene.world.added[i].frame_seq, 1000u);
        EXPECT_EQ(scene.world.added[i].stream, scene.stream);
        EXPECT_EQ(scene.world.added[i].now, scene.now);
    }
}

TEST(ReorderCacheDelivery, MarksEveryPacketOfAKeyFrameAsKey)
{
    play({{K(0, 1), "kept"}, {P(1, 1), "kept"}, {P(2, 1).m(), "kept, 1000:0-2 key"}, {P(3, 2).m(), "kept, 1001:3"}});
}

TEST(ReorderCacheDelivery, MarksEachPacketByItselfAsARetransmission)
{
    play({
        {K(0, 1).again(), "kept"},
        {P(2, 1).m(), "kept, asks packets"},
        {P(1, 1).again(), "kept, 1000:0-2 key again 0 again 1"},
        {P(3, 2).m(), "kept, 1001:3"},
    });
}

TEST(ReorderCacheDelivery, ReleasesPayloadsWhetherTheChannelTakesThemOrNot)
{
    const std::vector<reorder_row> rows = {
        {K(0, 1), "kept"},
        {P(2, 1).m(), "kept, asks packets"},
        {P(1, 1), "kept, 1000:0-2 key"},
        {P(4, 3).m(), "kept, asks packets"},
        {P(3, 2).m(), "kept, 1001:3, 1002:4"},
        {P(6, 5), "kept, asks packets"},
    };

    play(rows);
    play_to_a_taker(rows);
}

TEST(ReorderCacheDelivery, FreesTheSlotsAndTheNode)
{
    for (const bool takes_payload : {false, true}) {
        ReorderScene scene;
        scene.world.takes_payload = takes_payload;
        scene.run(K(0, 1));
        const size_t without = scene.world.live.size() - 2; // a payload and a node
        EXPECT_EQ(scene.run(P(1, 1).m()), "kept, 1000:0-1 key");
        EXPECT_EQ(scene.world.live.size(), without);
        EXPECT_EQ(scene.slot(0).state, WEBRTC_VIDEO_PKT_NONE);
        EXPECT_EQ(scene.slot(1).state, WEBRTC_VIDEO_PKT_NONE);
        EXPECT_EQ(scene.cache->frm_cur_cnt, 0u);
        EXPECT_EQ(scene.cache->pkt_cur_cnt, 0u);
    }
}

TEST(ReorderCacheDelivery, DeliversCompleteFramesThatWaitedBehindTheHead)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(2, 2).m(), "kept, asks packets"},
        {P(3, 3), "kept, asks packets"},
        {P(4, 3).m(), "kept, asks packets"},
        {P(5, 4).m(), "kept, asks packets"},
        {check().at(1999), ""},
        {P(1, 2), "kept, 1001:1-2, 1002:3-4, 1003:5"},
    });
}

TEST(ReorderCacheDelivery, StopsBehindTheFirstFrameThatIsNotComplete)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(2, 2).m(), "kept, asks packets"},
        {P(3, 3), "kept, asks packets"},
        {P(1, 2), "kept, 1001:1-2"},
        {P(4, 3).m(), "kept, 1002:3-4"},
    });
}

TEST(ReorderCacheDelivery, DoesNotWaitAtAGapOnceItDelivers)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(2, 2).m(), "kept, asks packets"},
        {K(5, 4).m().at(30), "kept"},
        {P(1, 2).at(60), "kept, restart@30, 1001:1-2, 1000:5 key"},
    });
}

TEST(ReorderCacheDelivery, DeliversAKeyFrameBehindAGapAtOnceWhenIntakeCompletesIt)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {K(9, 4).m().at(1), "kept, restart@1, 1000:9 key"},
    });
}

TEST(ReorderCacheDelivery, SkipsAFreeSlotInsideACompleteFrame)
{
    ReorderScene scene;

    // Two key frames interleaved. Giving the first up clears slots 0 to 2; the second has three packets of three.
    scene.run(K(0, 1));
    scene.run(K(1, 2));
    scene.run(P(2, 1));
    scene.run(P(3, 2).m());
    EXPECT_EQ(scene.run(P(4, 2)), "kept");
    scene.world.log.clear();
    EXPECT_EQ(scene.run(check().at(2000)), "1000:3[2/3] key");
    EXPECT_EQ(scene.world.log_at(5),
              std::vector<log_line>(2, log_line{5, "[WARNING][RCV_VID] pkt is null !!!!!!!!\n"}));
    EXPECT_EQ(scene.cache->pkt_cur_cnt, 0u);
    EXPECT_EQ(scene.cache->frm_cur_cnt, 0u);
}

TEST(ReorderCacheDelivery, StopsAtAHeadWithoutAFrame)
{
    ReorderScene scene;

    scene.world.refuse_tag("webrtc_video_insert_frm_map");
    scene.run(K(0, 1).m());
    scene.world.refuse = nullptr;
    scene.world.log.clear();
    EXPECT_EQ(scene.run(K(1, 2).m()), "kept");
    EXPECT_EQ(scene.world.log_at(4), (std::vector<log_line>{{4, "[ERROR][RCV_VID] frm_ptr is null\n"}}));
    EXPECT_EQ(scene.frame(2)->state, WEBRTC_VIDEO_FRM_COMPLETE);
    EXPECT_EQ(scene.cache->pkt_cur_cnt, 2u);
    EXPECT_EQ(scene.run(check().at(9000)), "");
    EXPECT_EQ(scene.run(K(2, 3).m()), "kept"); // the frame of timestamp 2 is the oldest
    EXPECT_EQ(scene.cache->pkt_cur_cnt, 3u);
}

TEST(ReorderCacheDelivery, LogsEachFrame)
{
    ReorderScene scene;

    scene.run(K(7, 1));
    scene.world.log.clear();
    scene.run(P(8, 1).m());
    EXPECT_EQ(scene.world.log, (std::vector<log_line>{
                                   {7, "[INFO][RCV_VID] restrans=0 key=0 timestamp=3000 pkt_seq=8 rtp.end=1\n"},
                                   {7, "[INFO][RCV_VID] deliver: key:1 [1000] [3000] [7, 8] 2/2\n"},
                                   {7, "[INFO][RCV_VID] remove frm: state=2 key=1 3000 [7, 8][7, 8] 2/2\n"},
                               }));
}

// -- The periodic check --

TEST(ReorderCacheCheck, IgnoresANullAnEmptyAndARinglessCache)
{
    ReorderScene scene;

    webrtc_video_cache_check_deliver(nullptr, &scene.now);
    EXPECT_EQ(scene.run(check()), ""); // no ring yet
    scene.run(P(0, 1));
    EXPECT_EQ(scene.run(check().at(5000)), ""); // a ring, but nothing in it
    EXPECT_EQ(scene.world.log.size(), 1u);      // of the packet
}

TEST(ReorderCacheCheck, WaitsForAnIncompleteHead)
{
    play({
        {K(0, 1).at(100), "kept"},
        {P(2, 1).at(1500), "kept, asks packets"}, // the first packet counts, not the last
        {check().at(2099), ""},
        {check().at(2100), "asks key"},
    });
    play({
        {K(0, 1).at(100), "kept"},
        {check().at(2101), "asks key"},
    });
}

TEST(ReorderCacheCheck, GivesAnIncompleteHeadUpWithItsBounds)
{
    ReorderScene scene;

    scene.run(K(10, 1));
    scene.run(P(12, 1).m());
    scene.world.log.clear();
    scene.run(check().at(1999));
    EXPECT_TRUE(scene.world.log.empty());
    scene.run(check().at(2000));
    EXPECT_TRUE(scene.world.has_logged(6, "[NOTICE][RCV_VID] in-compelete frame[10, 12][10, 12] timeout, clear!!!\n"));
    EXPECT_EQ(scene.world.count_logged("in-compelete"), 1u);
}

TEST(ReorderCacheCheck, DeliversACompleteHeadThatIntakeLeft)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        hold_complete_head(scene);
        EXPECT_EQ(scene.run(check()), "1001:1");
        EXPECT_EQ(scene.run(check().at(1999)), "");
        EXPECT_EQ(scene.run(check().at(2000)), "asks key");
    }
}

TEST(ReorderCacheCheck, WaitsAtAGapSinceTheLastDelivery)
{
    play({
        {K(0, 1).m().at(100), "kept, 1000:0 key"},
        {P(7, 3).at(200), "kept, asks packets"},
        {K(5, 9).m().at(300), "kept"}, // complete at the head, but an older timestamp is held
        {check().at(2099), ""},
        {check().at(2100), "1000:5 key"}, // the drop cleared the history: no restart
    });
}

TEST(ReorderCacheCheck, DropsAFrameBehindAGapThatIsNoKeyFrame)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        hold_complete_head(scene);
        scene.cache->last_deliver_pkt_seq = scene.seq(40);
        EXPECT_EQ(scene.run(check().at(1999)), "");
        EXPECT_EQ(scene.run(check().at(2000)), "asks key");
        EXPECT_EQ(scene.cache->pkt_cur_cnt, 0u);
        EXPECT_EQ(scene.cache->last_deliver_frm_seq, kUnknown64);
        EXPECT_EQ(scene.cache->last_deliver_pkt_seq, kUnknown);
    }
}

TEST(ReorderCacheCheck, GivesAFrameBehindAGapUpWithItsBounds)
{
    ReorderScene scene;

    hold_complete_head(scene);
    scene.cache->last_deliver_pkt_seq = 40;
    scene.world.log.clear();
    scene.run(check().at(2000));
    ASSERT_FALSE(scene.world.log.empty());
    EXPECT_EQ(scene.world.log[0],
              (log_line{6, "[NOTICE][RCV_VID] no-continuous frame[1, 1][1, 1] timeout, clear!!!\n"}));
}

TEST(ReorderCacheCheck, StopsAtAnIncompleteKeyFrameBehindAGap)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1).m());
        scene.run(P(7, 3));
        scene.run(P(8, 3)); // not the head
        scene.run(K(10, 4));
        scene.run(P(1, 9).m());
        scene.cache->last_deliver_pkt_seq = scene.seq(40);
        EXPECT_EQ(scene.run(check().at(2000)), "");
        EXPECT_EQ(scene.cache->pkt_min_seq, scene.seq(10));
        EXPECT_EQ(scene.cache->pkt_cur_cnt, 1u);
    }
}

TEST(ReorderCacheCheck, TestsContinuityOnlyOfACompleteHead)
{
    ReorderScene scene;

    scene.run(K(0, 1).m());
    scene.run(P(5, 2).at(1000));
    EXPECT_EQ(scene.run(check().at(2500)), ""); // the gap is old enough, the frame is not
    EXPECT_EQ(scene.world.count_logged("no-continuous"), 0u);
}

TEST(ReorderCacheCheck, AsksNoContinuityAfterADrop)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(5, 2).at(100), "kept, asks packets"},
        {K(9, 3).m().at(100), "kept"},
        {check().at(2100), "1000:9 key"},
    });
}

TEST(ReorderCacheCheck, TakesAClockThatRunsBackForATimeout)
{
    play({
        {K(0, 1).at(100), "kept"},
        {check().at(100), ""},
        {check().at(99), "asks key"}, // the unsigned difference is huge
    });
}

TEST(ReorderCacheCheck, CountsBothPatiencesFromTheirOwnStart)
{
    play({
        {K(0, 1).m().at(0), "kept, 1000:0 key"},
        {P(2, 2).m().at(1500), "kept, asks packets"},
        {check().at(2000), ""}, // the head is incomplete, and 500 ms old
        {check().at(3499), ""},
        {P(1, 2).at(3499), "kept, 1001:1-2"},
    });
}

TEST(ReorderCacheDelivery, EndsWithTheDropThatAGapMadeNecessary)
{
    ReorderScene scene;

    scene.run(K(0, 1).m());
    scene.run(K(2, 2));
    scene.world.refuse_tag("webrtc_video_insert_frm_map");
    scene.run(P(3, 3)); // stays without a frame
    scene.world.refuse = nullptr;
    webrtc_video_frame_t *head = scene.frame(2);
    head->max_seq = head->min_seq;
    head->state = WEBRTC_VIDEO_FRM_COMPLETE;
    scene.world.log.clear();
    EXPECT_EQ(scene.run(check().at(2000)), "");
    EXPECT_EQ(scene.world.log_at(4), (std::vector<log_line>{{4, "[ERROR][RCV_VID] frm_ptr is null\n"}}));
}
