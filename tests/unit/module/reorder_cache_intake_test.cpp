// How a received RTP packet enters the reorder cache: the gate, the ring, the frames and their ends.

#include <gtest/gtest.h>

#include "packets.h"
#include "reorder_scene.h"

using namespace test_support;

namespace
{

constexpr uint32_t kUnknown = 0xFFFFFFFF;

// Hands over one packet whose bytes are written by hand; what the cache did not take is released.
bool is_kept(ReorderScene &scene, seq_t seq, uint8_t video_type, const std::vector<uint8_t> &payload)
{
    PVideoData4 video = packet_with(payload);
    const uint32_t held = scene.cache->pkt_cur_cnt;

    video.common.seq = seq;
    video.header.video_type = video_type;
    webrtc_video_cache_process(scene.cache, &video, false, &scene.now);
    release(&video);
    scene.expect_invariants();
    return scene.cache->pkt_cur_cnt == held + 1;
}

} // namespace

// -- The gate --

TEST(ReorderCacheIntake, DropsEveryPacketBeforeTheFirstKeyFrameAndAsksForOneEachTime)
{
    play({
        {P(0, 1), "dropped, asks key"},
        {P(1, 1).m(), "dropped, asks key"},
        {P(1, 1).m().again(), "dropped, asks key"},
        {K(2, 2), "kept"},
        {P(3, 2), "kept"},
    });
}

TEST(ReorderCacheIntake, LearnsNothingFromPacketsBeforeTheFirstKeyFrame)
{
    ReorderScene scene;

    scene.run(P(500, 7));
    EXPECT_EQ(scene.cache->pkt_exp_seq, kUnknown);
    EXPECT_EQ(scene.cache->pkt_cur_cnt, 0u);
    EXPECT_EQ(scene.cache->frm_cur_cnt, 0u);
    EXPECT_EQ(scene.run(K(10, 8)), "kept");
    EXPECT_EQ(scene.cache->pkt_exp_seq, 11u);
}

TEST(ReorderCacheIntake, OpensTheGateWithoutTouchingOtherFlags)
{
    ReorderScene scene;

    scene.cache->frm_flag = 0xF1;
    scene.run(P(0, 1));
    EXPECT_EQ(scene.cache->frm_flag, 0xF1u);
    scene.run(K(0, 1));
    EXPECT_EQ(scene.cache->frm_flag, 0xF0u);
}

TEST(ReorderCacheIntake, OpensTheGateForAKeyFramePacketThatIsThenRefused)
{
    ReorderScene scene;

    scene.cache->last_removed_timestamp = scene.timestamp(1);
    EXPECT_EQ(scene.run(K(0, 1)), "dropped");
    EXPECT_EQ(scene.cache->frm_flag & 1u, 0u);
    EXPECT_EQ(scene.run(P(5, 2)), "kept");
}

TEST(ReorderCacheIntake, ClosesTheGateOnReset)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(1, 2).m(), "kept, 1001:1"},
        {reset(), ""},
        {P(2, 3).m(), "dropped, asks key"},
        {K(3, 4).m(), "kept, 1000:3 key"},
    });
}

TEST(ReorderCacheIntake, TellsKeyFramesByTheFrameTypeAlone)
{
    const struct {
        uint8_t video_type;
        bool is_key;
    } rows[] = {{0x00, true},  {0x01, true},  {0x0F, true},  {0x10, false}, {0x1F, false},
                {0x20, false}, {0x80, false}, {0xF0, false}, {0xFF, false}};

    for (const auto &row : rows) {
        ReorderScene scene;
        EXPECT_EQ(is_kept(scene, 1, row.video_type, rtp_bytes({1, 1, false, 96})), row.is_key) << +row.video_type;
    }
}

// -- The ring --

TEST(ReorderCacheIntake, AllocatesTheRingForTheFirstPacketOnly)
{
    ReorderScene scene;

    EXPECT_EQ(scene.cache->pkt_arr, nullptr);
    scene.run(P(0, 1)); // the gate comes after the ring
    EXPECT_NE(scene.cache->pkt_arr, nullptr);
    scene.run(K(1, 1));
    scene.run(reset());
    scene.run(K(2, 1));
    EXPECT_EQ(scene.world.count_of("webrtc_video_cache_alloc"), 1u);
}

TEST(ReorderCacheIntake, DropsPacketsWithoutARingAndTriesAgainWithTheNext)
{
    ReorderScene scene;

    scene.world.refuse_tag("webrtc_video_cache_alloc");
    EXPECT_EQ(scene.run(K(0, 1).m()), "dropped");
    EXPECT_EQ(scene.run(P(1, 2)), "dropped"); // not even a key-frame request
    EXPECT_EQ(scene.cache->frm_flag, 1u);
    EXPECT_EQ(scene.world.log, (std::vector<log_line>{
                                   {5, "[WARNING][RCV_VID] malloc for pkt_arr failed\n"},
                                   {4, "[ERROR][RCV_VID] webrtc_video_cache_alloc failed\n"},
                                   {5, "[WARNING][RCV_VID] malloc for pkt_arr failed\n"},
                                   {4, "[ERROR][RCV_VID] webrtc_video_cache_alloc failed\n"},
                               }));
    scene.world.refuse = nullptr;
    EXPECT_EQ(scene.run(K(2, 3).m()), "kept, 1000:2 key");
}

TEST(ReorderCacheIntake, MovesThePacketIntoItsSlot)
{
    ReorderScene scene;
    PVideoData4 video = rtp_packet(8197, 0x01020304, true, true);
    const void *bytes = video.payload.values;

    video.common.cid = 11;
    video.common.uid = 22;
    video.common.sent_ts = 33;
    video.header.codec = VIDEO_TYPE_H265;
    video.header.flags = 44;
    video.header.reserved = 55;
    video.extension.tag = 66;
    scene.cache->pkt_exp_seq = 8190; // a gap: the packet stays
    scene.cache->frm_flag = 0;
    video.header.video_type = 0x03;
    scene.world.refuse = [](size_t, const allocation &request) { return request.size == sizeof(webrtc_video_frame_t); };
    webrtc_video_cache_process(scene.cache, &video, true, &scene.now);

    const webrtc_video_packet_t &slot = scene.cache->pkt_arr[5];
    EXPECT_EQ(slot.ts, scene.now);
    EXPECT_EQ(slot.state, WEBRTC_VIDEO_PKT_SET);
    EXPECT_EQ(slot.is_retrans, 1);
    EXPECT_EQ(slot.is_key, 1);
    EXPECT_EQ(slot.endmark, 1);
    EXPECT_EQ(slot.timestamp, 0x01020304u);
    EXPECT_EQ(slot.pkt_seq, 8197);
    EXPECT_EQ(slot.video.payload.values, bytes);
    EXPECT_EQ(slot.video.payload.count, 13);
    EXPECT_EQ(slot.video.common.cid, 11u);
    EXPECT_EQ(slot.video.common.uid, 22u);
    EXPECT_EQ(slot.video.common.seq, 8197);
    EXPECT_EQ(slot.video.common.sent_ts, 33);
    EXPECT_EQ(slot.video.header.video_type, 3);
    EXPECT_EQ(slot.video.header.codec, VIDEO_TYPE_H265);
    EXPECT_EQ(slot.video.header.flags, 44);
    EXPECT_EQ(slot.video.header.reserved, 55u);
    EXPECT_EQ(slot.video.extension.tag, 66);
    EXPECT_EQ(video.payload.values, nullptr);
    EXPECT_EQ(video.common.cid, 0u);
    EXPECT_EQ(video.extension.tag, 0);
}

TEST(ReorderCacheIntake, ReadsMarkerAndTimestampFromTheBytesAndTheSequenceNumberFromTheRecord)
{
    const struct {
        std::vector<uint8_t> payload;
        uint8_t marker;
        uint32_t timestamp;
    } rows[] = {
        {rtp_bytes({999, 0x12345678, true, 0x7F}), 1, 0x12345678},
        {rtp_bytes({999, 0x12345678, false, 0x7F}), 0, 0x12345678},
        {rtp_bytes({999, 0xFFFFFFFF, true, 0}), 1, 0xFFFFFFFF},
        {rtp_bytes({999, 0, false, 0}), 0, 0},
    };

    for (const auto &row : rows) {
        ReorderScene scene;
        scene.cache->pkt_exp_seq = 1; // a gap in front of the packet keeps its timestamp's frame readable
        scene.world.refuse = [](size_t, const allocation &request) {
            return request.size == sizeof(webrtc_video_frame_t); // and so it is not delivered
        };
        EXPECT_TRUE(is_kept(scene, 77, kKey, row.payload));
        EXPECT_EQ(scene.cache->pkt_arr[77].pkt_seq, 77);
        EXPECT_EQ(scene.cache->pkt_arr[77].endmark, row.marker);
        EXPECT_EQ(scene.cache->pkt_arr[77].timestamp, row.timestamp);
        EXPECT_EQ(scene.cache->pkt_arr[999].state, WEBRTC_VIDEO_PKT_NONE);
    }
}

TEST(ReorderCacheIntake, FindsSlotsByTheLowThirteenBits)
{
    const struct {
        int seq;
        size_t slot;
    } rows[] = {{0, 0}, {5, 5}, {8191, 8191}, {8192, 0}, {8197, 5}, {0xFFFF, 0x1FFF}};

    for (const auto &row : rows) {
        ReorderScene scene;
        EXPECT_EQ(scene.run(K(row.seq, 1)), "kept");
        EXPECT_EQ(scene.cache->pkt_arr[row.slot].state, WEBRTC_VIDEO_PKT_SET) << row.seq;
        EXPECT_EQ(scene.cache->pkt_arr[row.slot].pkt_seq, row.seq);
    }
}

TEST(ReorderCacheIntake, KeepsTheStoredCopyOfADuplicate)
{
    ReorderScene scene;

    scene.run(K(0, 1));
    scene.run(P(2, 1));
    const webrtc_video_packet_t before = scene.slot(2);
    scene.now += 10;
    scene.world.log.clear();
    EXPECT_EQ(scene.run(K(2, 9).m().again()), "dropped");
    EXPECT_EQ(scene.world.log, (std::vector<log_line>{
                                   {7, "[INFO][RCV_VID] restrans=1 key=1 timestamp=27000 pkt_seq=2 rtp.end=1\n"},
                                   {7, "[INFO][RCV_VID] time-exceed pkt 2 > 1\n"},
                               }));
    EXPECT_EQ(scene.slot(2).video.payload.values, before.video.payload.values);
    EXPECT_EQ(scene.slot(2).ts, before.ts);
    EXPECT_EQ(scene.slot(2).timestamp, before.timestamp);
    EXPECT_EQ(scene.slot(2).is_key + scene.slot(2).endmark + scene.slot(2).is_retrans, 0);
    EXPECT_EQ(scene.cache->pkt_cur_cnt, 2u);
    EXPECT_EQ(scene.cache->frm_cur_cnt, 1u);
}

TEST(ReorderCacheIntake, AsksForNothingOnADuplicate)
{
    play({
        {K(0, 1), "kept"},
        {P(2, 1), "kept, asks packets"},
        {P(2, 1), "dropped"},
        {P(2, 1).again(), "dropped"},
        {P(0, 1), "dropped"},
    });
}

TEST(ReorderCacheIntake, EvictsAnOlderPacketThatSharesTheSlot)
{
    for (const int distance : {8192, 16384, 24576}) {
        ReorderScene scene;
        scene.run(K(0, 1));
        scene.run(P(1, 1));
        scene.world.log.clear();
        EXPECT_EQ(scene.run(P(distance, 5)), "kept, asks packets");
        EXPECT_TRUE(scene.world.has_logged(5, "[WARNING][RCV_VID] pkt_pos has been set before !!!!!!\n"));
        EXPECT_EQ(scene.slot(0).pkt_seq, distance);
        EXPECT_EQ(scene.slot(0).frm_ptr, scene.frame(5));
        EXPECT_EQ(scene.cache->pkt_cur_cnt, 2u);
        EXPECT_EQ(scene.cache->pkt_min_seq, 0u); // the bounds still count the evicted packet
        EXPECT_EQ(scene.cache->pkt_max_seq, static_cast<uint32_t>(distance));
        ASSERT_NE(scene.frame(1), nullptr);
        EXPECT_EQ(scene.frame(1)->n_pkts_received, 2); // and so does its frame
        EXPECT_EQ(scene.frame(1)->cur_min_seq, 0u);
    }
}

TEST(ReorderCacheIntake, StartsTheBoundsAnewWhenTheOnlyPacketIsEvicted)
{
    ReorderScene scene({100, 0});

    scene.run(K(0, 1));
    scene.run(P(8192, 2));
    EXPECT_EQ(scene.cache->pkt_cur_cnt, 1u);
    EXPECT_EQ(scene.cache->pkt_min_seq, 8292u);
    EXPECT_EQ(scene.cache->pkt_max_seq, 8292u);
    EXPECT_EQ(scene.cache->frm_cur_cnt, 2u);
}

TEST(ReorderCacheIntake, RefusesAPacketOneRingOlderThanTheStoredOne)
{
    ReorderScene scene({10000, 0});

    scene.run(K(0, 1));
    EXPECT_EQ(scene.run(K(-8192, 2)), "dropped");
    EXPECT_EQ(scene.slot(0).pkt_seq, 10000);
    EXPECT_EQ(scene.world.count_logged("has been set before"), 0u);
}

TEST(ReorderCacheIntake, WidensTheSequenceBoundsInWrappingOrder)
{
    // Packets 0 and 1 are held and 2 is expected. Exactly half a circle away is neither before nor after.
    const struct {
        int seq;
        const char *out;
        int min, max;
    } rows[] = {
        {2, "kept", 0, 2},
        {5, "kept, asks packets", 0, 5},
        {0x7FFF, "kept, asks packets", 0, 0x7FFF},
        {0x8000, "kept, asks packets", 0, 0x8000},
        {0x8001, "kept, asks packets", 0x8001, 1},
        {0x8002, "kept", 0x8002, 1},
        {0x8003, "dropped", 0, 1},
        {0xFFFF, "dropped", 0, 1},
    };

    for (const numbering &base : numberings()) {
        for (const auto &row : rows) {
            ReorderScene scene(base);
            scene.run(K(0, 1));
            scene.run(P(1, 1));
            EXPECT_EQ(scene.run(P(row.seq, 2)), row.out) << row.seq;
            EXPECT_EQ(scene.cache->pkt_min_seq, scene.seq(row.min)) << row.seq;
            EXPECT_EQ(scene.cache->pkt_max_seq, scene.seq(row.max)) << row.seq;
        }
    }
}

TEST(ReorderCacheIntake, LowersTheBoundForAPacketBetweenTheExpectedAndTheOldest)
{
    ReorderScene scene({65532, 0});

    scene.run(K(0, 1).m());
    scene.run(P(6, 2));
    EXPECT_EQ(scene.cache->pkt_min_seq, 2u);
    scene.run(P(3, 2));
    EXPECT_EQ(scene.cache->pkt_min_seq, 65535u);
    EXPECT_EQ(scene.cache->pkt_max_seq, 2u);
    scene.run(P(4, 2));
    EXPECT_EQ(scene.cache->pkt_min_seq, 65535u);
    EXPECT_EQ(scene.cache->pkt_max_seq, 2u);
}

// -- Requests --

TEST(ReorderCacheIntake, AsksForPacketsOnAGapUnlessAKeyFramePacketJumpsAhead)
{
    play({{K(0, 1), "kept"},
          {P(2, 1), "kept, asks packets"},
          {P(4, 1), "kept, asks packets"},
          {P(3, 1), "kept, asks packets"}});
    play({{K(0, 1), "kept"}, {P(3, 1), "kept, asks packets"}});
    play({{K(0, 1), "kept"}, {K(2, 1), "kept"}});
    play({{K(0, 1), "kept"}, {K(3, 1), "kept"}});
    play({{K(0, 1), "kept"}, {P(1, 1), "kept"}, {P(2, 1).again(), "kept"}});
}

// -- Frames --

TEST(ReorderCacheIntake, DeliversASinglePacketKeyFrameAtOnce)
{
    ReorderScene scene;

    EXPECT_EQ(scene.run(K(0, 1).m()), "kept, 1000:0 key");
    EXPECT_TRUE(scene.world.has_logged(7, "[INFO][RCV_VID] deliver: key:1 [1000] [3000] [0, 0] 1/1\n"));
}

TEST(ReorderCacheIntake, TakesTheLowestPacketOfAKeyFrameAsItsFirst)
{
    play({{K(0, 1), "kept"}, {K(1, 1), "kept"}, {K(2, 1).m(), "kept, 1000:0-2 key"}});
    // Packet 1 may be missing in front; nobody waits for it.
    play({{K(0, 1).m(), "kept, 1000:0 key"}, {K(2, 2), "kept"}, {K(3, 2).m(), "kept, restart@0, 1000:2-3 key"}});
}

TEST(ReorderCacheIntake, NeverCompletesAKeyFrameWhoseLowestPacketCameSecond)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {K(5, 2), "kept"},
        {K(4, 2), "kept"},
        {K(6, 2).m(), "kept"},
        {check().at(1999), ""},
        {check().at(2000), "asks key"},
    });
}

TEST(ReorderCacheIntake, KnowsTheStartOfAFrameThatFollowsTheLastOrderedPacket)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(1, 2), "kept"},
        {P(2, 2).m(), "kept, 1001:1-2"},
        {P(3, 3).m(), "kept, 1002:3"},
    });
}

TEST(ReorderCacheIntake, DoesNotTakeALatePacketOfTheLastOrderedTimestampForAStart)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(1, 1).m(), "kept"}, // timestamp 1 has been delivered
        {check().at(2000), "asks key"},
    });
}

TEST(ReorderCacheIntake, TakesTheNextPacketForAStartWhenNoTimestampIsOrderedYet)
{
    for (const uint64_t unknown : {~uint64_t{0}, uint64_t{0x100000000}}) {
        ReorderScene scene;
        scene.run(K(0, 1).m());
        scene.cache->last_ordered_timestamp = unknown;
        EXPECT_EQ(scene.run(P(1, 1).m()), "kept, 1001:1");
    }
}

TEST(ReorderCacheIntake, TellsTheOrderedTimestampAllOnesFromAnUnknownOne)
{
    ReorderScene scene({0, 0xFFFFFFFFu - kTicksPerFrame});

    scene.run(K(0, 0).m());
    scene.cache->last_ordered_timestamp = scene.timestamp(1);
    EXPECT_EQ(scene.run(P(1, 1).m()), "kept");
    EXPECT_EQ(scene.frame(1)->timestamp, 0xFFFFFFFF);
    EXPECT_EQ(scene.frame(1)->min_seq, kUnknown);
}

TEST(ReorderCacheIntake, KnowsTheStartOfAFrameBehindAMarker)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        scene.run(P(2, 1).m());
        scene.run(P(3, 2)); // not next to the last ordered packet 0
        EXPECT_EQ(scene.frame(2)->min_seq, scene.seq(3));
    }
}

TEST(ReorderCacheIntake, DoesNotKnowTheStartOfAFrameBehindAPacketWithoutMarker)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        scene.run(P(2, 1));
        scene.run(P(3, 2));
        scene.run(P(7, 3)); // behind nothing
        EXPECT_EQ(scene.frame(2)->min_seq, kUnknown);
        EXPECT_EQ(scene.frame(3)->min_seq, kUnknown);
    }
}

TEST(ReorderCacheIntake, ReadsTheMarkerInFrontFromTheSlotWhateverPacketItHolds)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        scene.run(P(8194, 5).m()); // in the slot of packet 2
        scene.run(P(3, 2));
        EXPECT_EQ(scene.frame(2)->min_seq, scene.seq(3));
    }
}

TEST(ReorderCacheIntake, DoesNotLookInFrontOfTheOldestPacket)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1).m());
        scene.run(P(8194, 5).m());
        scene.run(P(3, 2)); // now the oldest, behind the slot with the marker
        EXPECT_EQ(scene.frame(2)->min_seq, kUnknown);
    }
}

TEST(ReorderCacheIntake, ProvesTheStartOfTheNextFrameByTheMarkerOfTheFormer)
{
    // 11 and 12 before 9 and 10
    play({
        {K(8, 1).m(), "kept, 1000:8 key"},
        {P(11, 3), "kept, asks packets"},
        {P(12, 3).m(), "kept, asks packets"},
        {P(9, 2), "kept"},
        {P(10, 2).m(), "kept, 1001:9-10, 1002:11-12"},
    });
}

TEST(ReorderCacheIntake, CompletesTheNextFrameWhileTheFormerStillMissesPackets)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(8, 1).m());
        scene.run(P(11, 3));
        scene.run(P(12, 3).m());
        EXPECT_EQ(scene.frame(3)->min_seq, kUnknown);
        EXPECT_EQ(scene.run(P(10, 2).m()), "kept, asks packets");
        EXPECT_EQ(scene.frame(3)->min_seq, scene.seq(11));
        EXPECT_EQ(scene.frame(3)->state, WEBRTC_VIDEO_FRM_COMPLETE);
        EXPECT_EQ(scene.frame(3)->n_pkts_total, 2);
        EXPECT_EQ(scene.frame(2)->state, WEBRTC_VIDEO_FRM_INCOMPLETE);
        EXPECT_EQ(scene.frame(2)->max_seq, scene.seq(10));
    }
}

TEST(ReorderCacheIntake, LetsTheMarkerOfTheFormerFrameCorrectAKeyFramesStart)
{
    play({
        {K(8, 1).m(), "kept, 1000:8 key"},
        {K(12, 3), "kept"},
        {K(11, 3), "kept"},
        {K(13, 3).m(), "kept"}, // believed to begin at 12, with three packets of two
        {P(9, 2), "kept"},
        {P(10, 2).m(), "kept, 1001:9-10, 1002:11-13 key"},
    });
}

TEST(ReorderCacheIntake, EndsAFrameOnlyAtTheMarkerOfItsHighestPacket)
{
    play({
        {K(0, 1), "kept"},
        {P(2, 1), "kept, asks packets"},
        {P(1, 1).m(), "kept"}, // in the middle: proves nothing
        {P(3, 1), "kept"},
        {P(4, 1).m(), "kept, 1000:0-4 key"},
    });
}

TEST(ReorderCacheIntake, KeepsTheFirstProvenEndOfAFrame)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1));
        scene.run(P(3, 1).m());
        scene.run(P(5, 1).m());
        EXPECT_EQ(scene.frame(1)->max_seq, scene.seq(3));
        EXPECT_EQ(scene.frame(1)->cur_max_seq, scene.seq(5));
        EXPECT_EQ(scene.frame(1)->n_pkts_total, 4);
    }
}

TEST(ReorderCacheIntake, CountsPacketsBehindTheProvenEndTowardsCompletion)
{
    play({
        {K(0, 1), "kept"},
        {P(2, 1).m(), "kept, asks packets"},
        {P(4, 1), "kept, asks packets, 1000:0[0/3] 2[2/3] key"}, // three of three, packet 1 is not there
    });
}

TEST(ReorderCacheIntake, CompletesAFrameWhenItsHolesAreFilledInAnyOrder)
{
    play({
        {K(0, 1), "kept"},
        {P(4, 1).m(), "kept, asks packets"},
        {P(2, 1).again(), "kept, asks packets"},
        {P(3, 1), "kept, asks packets"},
        {P(1, 1).again(), "kept, 1000:0-4 key again 1 again 2"},
    });
}

TEST(ReorderCacheIntake, FillsInAFrame)
{
    ReorderScene scene({65534, 0xFFFFFFFF});

    scene.run(K(0, 0));
    scene.run(P(3, 0).at(20));
    const webrtc_video_frame_t &frame = *scene.frame(0);
    EXPECT_EQ(frame.ts, scene.start); // when the first packet came
    EXPECT_EQ(frame.state, WEBRTC_VIDEO_FRM_INCOMPLETE);
    EXPECT_EQ(frame.is_key, 1);
    EXPECT_EQ(frame.timestamp, 0xFFFFFFFFu);
    EXPECT_EQ(frame.frm_seq, 0u);
    EXPECT_EQ(frame.min_seq, 65534u);
    EXPECT_EQ(frame.max_seq, kUnknown);
    EXPECT_EQ(frame.cur_min_seq, 65534u);
    EXPECT_EQ(frame.cur_max_seq, 1u);
    EXPECT_EQ(frame.n_pkts_received, 2);
    EXPECT_EQ(frame.n_pkts_total, 0);
    EXPECT_EQ(frame.n_pkts_media + frame.n_pkts_received_media + frame.n_pkts_received_fec + frame.n_pkts_fec, 0);
    EXPECT_EQ(frame.pkts.values, nullptr);
    EXPECT_EQ(scene.slot(0).frm_ptr, &frame);
    EXPECT_EQ(scene.slot(3).frm_ptr, &frame);
    EXPECT_EQ(scene.cache->frm_cur_cnt, 1u);
    EXPECT_EQ(scene.cache->frm_all_cnt, 0u);
}

TEST(ReorderCacheIntake, MakesAFrameAKeyFrameByAnyOfItsPackets)
{
    play({
        {K(0, 1).m(), "kept, 1000:0 key"},
        {P(1, 2), "kept"},
        {K(2, 2), "kept"},
        {P(3, 2).m(), "kept, 1001:1-3 key"},
    });
}

TEST(ReorderCacheIntake, DeliversOnlyWhenTheOldestFrameCompletes)
{
    play({
        {K(0, 1), "kept"},
        {P(2, 2), "kept, asks packets"},
        {P(3, 2).m(), "kept, asks packets"},
        {P(4, 3).m(), "kept, asks packets"}, // complete, but not the oldest
        {P(1, 1).m(), "kept, 1000:0-1 key, 1001:2-3, 1002:4"},
    });
}

TEST(ReorderCacheIntake, OrdersTheTimestampBoundsAcrossTheWrap)
{
    ReorderScene scene({100, 0xFFFFFFF0});
    const auto run_with = [&](seq_t seq, uint8_t type, uint32_t timestamp) {
        EXPECT_TRUE(is_kept(scene, seq, type, rtp_bytes({seq, timestamp, false, 96})));
    };

    run_with(100, kKey, 0xFFFFFFF0);
    run_with(101, kDelta, 0x00000010);
    EXPECT_EQ(scene.cache->frm_cur_cnt, 2u);
    EXPECT_EQ(scene.cache->frm_min_timestamp, 0xFFFFFFF0u);
    EXPECT_EQ(scene.cache->frm_max_timestamp, 0x00000010u);
}

TEST(ReorderCacheIntake, WidensTheTimestampBoundsByTheNearerWayRound)
{
    const struct {
        uint32_t offset;
        uint32_t min, max; // offsets too
    } rows[] = {{0, 0, 0},
                {1, 0, 1},
                {0x7FFFFFFF, 0, 0x7FFFFFFF},
                {0x80000000, 0, 0}, // half a circle away: neither
                {0x80000001, 0x80000001, 0},
                {0xFFFFFFFF, 0xFFFFFFFF, 0}};

    for (const numbering &base : numberings()) {
        for (const auto &row : rows) {
            ReorderScene scene;
            const uint32_t offset = base.timestamp + row.offset;
            is_kept(scene, 7, kKey, rtp_bytes({7, base.timestamp, false, 96}));
            EXPECT_TRUE(is_kept(scene, 8, kDelta, rtp_bytes({8, offset, false, 96})));
            EXPECT_EQ(scene.cache->frm_min_timestamp, base.timestamp + row.min) << row.offset;
            EXPECT_EQ(scene.cache->frm_max_timestamp, base.timestamp + row.max) << row.offset;
        }
    }
}

TEST(ReorderCacheIntake, SetsBothTimestampBoundsWhileEitherIsUnknown)
{
    for (const bool forgets_min : {true, false}) {
        ReorderScene scene;
        scene.run(K(0, 1));
        (forgets_min ? scene.cache->frm_min_timestamp : scene.cache->frm_max_timestamp) = ~uint64_t{0};
        scene.run(P(1, 2));
        EXPECT_EQ(scene.cache->frm_min_timestamp, scene.timestamp(2));
        EXPECT_EQ(scene.cache->frm_max_timestamp, scene.timestamp(2));
    }
}

TEST(ReorderCacheIntake, TakesATimestampBoundOfMoreThan32BitsForAKnownOne)
{
    ReorderScene scene;

    scene.run(K(0, 1));
    scene.cache->frm_max_timestamp = uint64_t{1} << 32;
    scene.run(P(1, -1));
    EXPECT_EQ(scene.cache->frm_min_timestamp, scene.timestamp(-1));
    EXPECT_EQ(scene.cache->frm_max_timestamp, uint64_t{1} << 32);
}

TEST(ReorderCacheIntake, HoldsTheTimestampAllOnesForAKnownOne)
{
    play_to_a_taker({{K(0, 1).m(), "kept, 1000:0 key"}});
    ReorderScene scene({0, 0xFFFFFFFF});

    scene.run(K(0, 0));
    EXPECT_EQ(scene.cache->frm_min_timestamp, uint64_t{0xFFFFFFFF});
    EXPECT_EQ(scene.cache->frm_max_timestamp, uint64_t{0xFFFFFFFF});
    EXPECT_EQ(scene.run(P(1, 0).m()), "kept, 1000:0-1 key");
}

// -- Memory --

TEST(ReorderCacheIntake, KeepsAPacketInTheRingWhenItsFrameCannotBeHad)
{
    ReorderScene scene;

    scene.world.refuse_tag("webrtc_video_insert_frm_map");
    EXPECT_EQ(scene.run(K(0, 1).m()), "kept");
    EXPECT_EQ(scene.world.log_at(4), (std::vector<log_line>{
                                         {4, "[ERROR][RCV_VID] malloc for webrtc_frame_t failed\n"},
                                         {4, "[ERROR][RCV_VID] insert frm map failed\n"},
                                     }));
    EXPECT_EQ(scene.slot(0).state, WEBRTC_VIDEO_PKT_SET);
    EXPECT_EQ(scene.slot(0).frm_ptr, nullptr);
    EXPECT_EQ(scene.cache->pkt_cur_cnt, 1u);
    EXPECT_EQ(scene.cache->frm_cur_cnt, 0u);
    EXPECT_EQ(scene.cache->frm_map.rb_node, nullptr);
    EXPECT_EQ(scene.cache->pkt_exp_seq, 0u); // stored, but not accounted for
    EXPECT_EQ(scene.cache->frm_min_timestamp, ~uint64_t{0});
    EXPECT_EQ(scene.run(K(0, 1).m()), "dropped"); // a duplicate: the frame is not tried again
}

TEST(ReorderCacheIntake, TriesForTheFrameAgainWithItsNextPacket)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        scene.run(K(0, 1).m());
        scene.world.refuse_tag("webrtc_video_insert_frm_map");
        EXPECT_EQ(scene.run(P(1, 2)), "kept");
        scene.world.refuse = nullptr;
        EXPECT_EQ(scene.run(P(2, 2).m()), "kept, asks packets"); // 1 is still the expected one
        ASSERT_NE(scene.frame(2), nullptr);
        EXPECT_EQ(scene.frame(2)->n_pkts_received, 1);
        EXPECT_EQ(scene.slot(1).frm_ptr, nullptr);
        EXPECT_EQ(scene.slot(2).frm_ptr, scene.frame(2));
    }
}

TEST(ReorderCacheIntake, PassesOverAFramelessPacketWhenAMarkerLooksForTheNextFrame)
{
    ReorderScene scene;

    scene.run(K(0, 1).m());
    scene.world.refuse_tag("webrtc_video_insert_frm_map");
    scene.run(P(2, 3));
    scene.world.refuse = nullptr;
    EXPECT_EQ(scene.run(P(1, 2).m()), "kept, 1001:1");
    EXPECT_EQ(scene.slot(2).frm_ptr, nullptr);
}

// -- Filing by hand --

TEST(ReorderCacheFrameAddPkt, RefusesNullArguments)
{
    ReorderScene scene;
    webrtc_video_frame_t frame;
    webrtc_video_packet_t packet;

    webrtc_video_frame_init(&frame);
    webrtc_video_packet_init(&packet);
    EXPECT_EQ(webrtc_video_frame_add_pkt(nullptr, &frame, &packet), -1);
    EXPECT_EQ(webrtc_video_frame_add_pkt(scene.cache, nullptr, &packet), -1);
    EXPECT_EQ(webrtc_video_frame_add_pkt(scene.cache, &frame, nullptr), -1);
    EXPECT_EQ(scene.world.log, std::vector<log_line>(3, {4, "[ERROR][RCV_VID] Check param error\n"}));
    EXPECT_EQ(frame.n_pkts_received, 0);
    EXPECT_EQ(packet.frm_ptr, nullptr);
}

TEST(ReorderCacheFrameAddPkt, FilesThePacket)
{
    ReorderScene scene;
    webrtc_video_frame_t frame;

    ASSERT_EQ(webrtc_video_cache_alloc(scene.cache), 0);
    webrtc_video_frame_init(&frame);
    webrtc_video_packet_t &packet = scene.cache->pkt_arr[5];
    packet.state = WEBRTC_VIDEO_PKT_SET;
    packet.ts = 77;
    packet.timestamp = 88;
    packet.pkt_seq = 5;
    packet.is_key = 1;
    packet.endmark = 1;
    EXPECT_EQ(webrtc_video_frame_add_pkt(scene.cache, &frame, &packet), 0);
    EXPECT_EQ(packet.frm_ptr, &frame);
    EXPECT_EQ(frame.state, WEBRTC_VIDEO_FRM_COMPLETE);
    EXPECT_EQ(frame.ts, 77u);
    EXPECT_EQ(frame.timestamp, 88u);
    EXPECT_EQ(frame.is_key, 1);
    EXPECT_EQ(frame.n_pkts_received, 1);
    EXPECT_EQ(frame.n_pkts_total, 1);
    EXPECT_EQ(frame.min_seq, 5u);
    EXPECT_EQ(frame.max_seq, 5u);
    EXPECT_EQ(frame.cur_min_seq, 5u);
    EXPECT_EQ(frame.cur_max_seq, 5u);
}

TEST(ReorderCacheFrameAddPkt, WidensTheFrameByTheNearerWayRound)
{
    // The frame has packet 0 alone.
    const struct {
        uint16_t seq;
        uint16_t min, max;
    } rows[] = {{1, 0, 1}, {0x7FFF, 0, 0x7FFF}, {0x8000, 0, 0}, {0x8001, 0x8001, 0}, {0xFFFF, 0xFFFF, 0}};

    for (const numbering &base : numberings()) {
        for (const auto &row : rows) {
            ReorderScene scene(base);
            webrtc_video_frame_t frame;
            webrtc_video_packet_t packets[2] = {};
            ASSERT_EQ(webrtc_video_cache_alloc(scene.cache), 0);
            webrtc_video_frame_init(&frame);
            packets[0].pkt_seq = scene.seq(0);
            packets[1].pkt_seq = scene.seq(row.seq);
            webrtc_video_frame_add_pkt(scene.cache, &frame, &packets[0]);
            webrtc_video_frame_add_pkt(scene.cache, &frame, &packets[1]);
            EXPECT_EQ(frame.cur_min_seq, scene.seq(row.min)) << row.seq;
            EXPECT_EQ(frame.cur_max_seq, scene.seq(row.max)) << row.seq;
            EXPECT_EQ(frame.n_pkts_received, 2);
        }
    }
}

// The proof that came meanwhile is not looked for again.
TEST(ReorderCacheFrameAddPkt, ProvesTheEndsForALowerOrHigherPacketOnly)
{
    for (const bool is_start : {true, false}) {
        ReorderScene scene;
        webrtc_video_frame_t frame;
        ASSERT_EQ(webrtc_video_cache_alloc(scene.cache), 0);
        webrtc_video_frame_init(&frame);
        webrtc_video_packet_t &packet = scene.cache->pkt_arr[5];
        packet.pkt_seq = 5;
        webrtc_video_frame_add_pkt(scene.cache, &frame, &packet);
        (is_start ? packet.is_key : packet.endmark) = 1;
        webrtc_video_frame_add_pkt(scene.cache, &frame, &packet);
        EXPECT_EQ(frame.min_seq, 0xFFFFFFFFu);
        EXPECT_EQ(frame.max_seq, 0xFFFFFFFFu);
    }
}
