// Packets that no sane sender makes: sequences that once had the reorder cache read or write what was not there,
// leak, or count wrongly.

#include <gtest/gtest.h>

#include "packets.h"
#include "reorder_scene.h"

using namespace test_support;

namespace
{

// Packet 0x8003 is after 5 and before 0 at once, so the bounds of the frame and of the cache shrink to it alone. It
// stands in the slot of packet 3.
const std::vector<reorder_row> collapsed_range = {
    {K(0, 1), "kept"}, {K(1, 1), "kept"}, {K(2, 1), "kept"},      {K(3, 1), "kept"},
    {K(4, 1), "kept"}, {K(5, 1), "kept"}, {K(0x8003, 1), "kept"},
};

std::vector<reorder_row> after_collapsed_range(const std::vector<reorder_row> &rows)
{
    std::vector<reorder_row> all = collapsed_range;

    all.insert(all.end(), rows.begin(), rows.end());
    return all;
}

void run_all(ReorderScene &scene, const std::vector<reorder_row> &rows)
{
    for (const reorder_row &row : rows) {
        EXPECT_EQ(scene.run(row.step), row.out);
    }
}

size_t slots_in_use(const webrtc_video_cache_t &cache)
{
    size_t n = 0;

    for (size_t i = 0; i < WEBRTC_VIDEO_RING_SLOTS; i++) {
        n += cache.pkt_arr[i].state != WEBRTC_VIDEO_PKT_NONE || cache.pkt_arr[i].video.payload.values != nullptr;
    }
    return n;
}

} // namespace

TEST(ReorderCacheHostile, DeliversAReorderedKeyFrameWithMorePacketsThanItsTotal)
{
    play({
        {K(9, 1).m(), "kept, 1000:9 key"},
        {P(10, 2), "kept"},
        {K(13, 3).m(), "kept"}, // complete with a total of 1
        {K(12, 3), "kept"},
        {P(11, 2).m(), "kept, 1001:10-11, 1002:12[0/1] 13[1/1] key"}, // 11's marker moved its start to 12
    });
}

TEST(ReorderCacheHostile, HandsAPacketOverOnceALapWhenAMarkerMovesTheStartOfItsCompleteFrameAway)
{
    const std::vector<reorder_row> rows = {
        {K(0, 1), "kept"},
        {K(24580, 5).m(), "kept"},           // complete, in the slot of packet 4
        {P(3, 2).m(), "kept, asks packets"}, // the frame in slot 4 begins at 4 now
        {P(1, 1).m(), "kept, 1000:0-1 key"},
        {P(2, 2), "kept, 1001:2-3, 1002:24580[24576/1] key, 1002:24580[24576/1] key, 1002:24580[24576/1] key, "
                  "1002:24580[24576/1] key"}, // as packets 4, 8196, 16388 and itself
    };

    play(rows);
    play_to_a_taker(rows);
}

TEST(ReorderCacheHostile, HandsPacketsOfOtherFramesOverWithACompleteFrameWhoseStartWasMovedAway)
{
    const std::vector<reorder_row> rows = {
        {K(0, 1), "kept"},
        {K(24580, 5).m(), "kept"},
        {P(3, 2).m(), "kept, asks packets"},
        {P(6, 7), "kept, asks packets"}, // between the start and the end of the frame that was moved
        {P(1, 1).m(), "kept, 1000:0-1 key"},
        {P(2, 2), "kept, 1001:2-3, 1002:24580[24576/1] key, 1002:6[16386/1] 24580[24576/1] key, "
                  "1002:6[16386/1] 24580[24576/1] key, 1002:6[16386/1] 24580[24576/1] key"},
        {check().at(9000), ""}, // 6 is still held, but the bounds do not lead to it
        {reset(), ""},
        {K(9, 9).m(), "kept, 1000:9 key"},
    };

    play(rows);
    play_to_a_taker(rows);
}

TEST(ReorderCacheHostile, LeavesNoPacketBehindThatPointsAtAFrameGivenUp)
{
    play(after_collapsed_range({
        {check().at(2000), ""}, // the frame is freed; packets 0 to 5 were not in its range
        {P(0xA010, 2), "kept, asks packets"},
        {P(0xA003, 3).m(), "kept, asks packets"}, // its marker looks at slot 4, its start at slot 2
        {check().at(9000), ""},
        {reset(), ""},
        {K(0, 1).m(), "kept, 1000:0 key"},
    }));
}

// Each frame lost its second packet to one a lap later, so that each has fewer packets than it received.
TEST(ReorderCacheHostile, GivesUpManyFramesThatLostPacketsAtOnce)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        constexpr int first = 2; // behind a gap
        constexpr int n_frames = 25;
        scene.run(K(0, 1).m());
        for (int i = 0; i < 2 * n_frames; i++) {
            scene.run(P(first + i, 2 + i / 2));
        }
        for (int i = 1; i < 2 * n_frames; i += 2) {
            scene.run(P(first + WEBRTC_VIDEO_RING_SLOTS + i, 1000));
        }
        EXPECT_EQ(scene.cache->frm_cur_cnt, n_frames + 1u);
        EXPECT_EQ(scene.cache->pkt_cur_cnt, 2u * n_frames);
        scene.run(check().at(2000));
        EXPECT_EQ(scene.cache->pkt_cur_cnt, 0u);
        EXPECT_EQ(slots_in_use(*scene.cache), 0u);
        EXPECT_EQ(scene.cache->frm_cur_cnt, 1u) << "the packets of the last one went with the others' ranges";
        scene.run(reset());
        EXPECT_EQ(scene.cache->frm_cur_cnt, 0u);
    }
}

TEST(ReorderCacheHostile, KeepsThePacketsThatAFreedFrameLeavesBehind)
{
    for (const numbering &base : numberings()) {
        ReorderScene scene(base);
        run_all(scene, collapsed_range);
        EXPECT_EQ(scene.cache->pkt_cur_cnt, 6u);
        scene.run(check().at(2000));
        EXPECT_EQ(scene.cache->pkt_cur_cnt, 5u);
        EXPECT_EQ(scene.cache->frm_cur_cnt, 0u);
        for (const int seq : {0, 1, 2, 4, 5}) {
            EXPECT_EQ(scene.slot(seq).state, WEBRTC_VIDEO_PKT_SET) << seq;
            EXPECT_EQ(scene.slot(seq).frm_ptr, nullptr) << seq;
        }
    }
}

TEST(ReorderCacheHostile, ResetFindsPacketsOutsideTheKnownRange)
{
    for (const bool times_out : {false, true}) {
        for (const numbering &base : numberings()) {
            ReorderScene scene(base);
            run_all(scene, collapsed_range);
            if (times_out) {
                scene.run(check().at(2000));
            }
            scene.run(reset());
            EXPECT_EQ(scene.cache->pkt_cur_cnt, 0u);
            EXPECT_EQ(slots_in_use(*scene.cache), 0u);
        }
    }
}

TEST(ReorderCacheHostile, FiniFindsPacketsOutsideTheKnownRange)
{
    for (const bool times_out : {false, true}) {
        for (const numbering &base : numberings()) {
            ReorderScene scene(base);
            const size_t without_cache = scene.world.live.size();
            run_all(scene, collapsed_range);
            if (times_out) {
                scene.run(check().at(2000));
            }
            webrtc_video_cache_fini(scene.cache);
            EXPECT_EQ(scene.world.live.size(), without_cache);
        }
    }
}

TEST(ReorderCacheHostile, HasNothingToDoAfterFini)
{
    for (const bool was_filled : {false, true}) {
        ReorderScene scene;
        if (was_filled) {
            scene.run(K(0, 1));
            scene.run(P(1, 2));
        }
        webrtc_video_cache_fini(scene.cache);
        scene.world.log.clear();
        EXPECT_EQ(scene.run(check().at(9000)), "");
        EXPECT_EQ(scene.run(reset()), "");
        webrtc_video_cache_fini(scene.cache);
        EXPECT_EQ(scene.run(check().at(9001)), "");
        EXPECT_TRUE(scene.world.log.empty());
    }
}

TEST(ReorderCacheHostile, TakesPacketsIntoANewRingAfterFini)
{
    play({{K(0, 1), "kept"}, {P(1, 2), "kept"}});
    ReorderScene scene;

    scene.run(K(0, 1));
    scene.run(P(1, 2));
    webrtc_video_cache_fini(scene.cache);
    EXPECT_EQ(scene.run(P(2, 3)), "kept");
    EXPECT_EQ(scene.cache->pkt_cur_cnt, 1u);
    EXPECT_EQ(scene.cache->pkt_min_seq, 2u);
    EXPECT_EQ(scene.cache->frm_cur_cnt, 1u);
}

TEST(ReorderCacheHostile, FilesAPacketWithoutARingAndProvesNothing)
{
    ReorderScene scene;
    webrtc_video_frame_t frame;
    webrtc_video_packet_t packet = {};

    webrtc_video_frame_init(&frame);
    packet.is_key = 1;
    packet.endmark = 1;
    packet.pkt_seq = 7;
    EXPECT_EQ(webrtc_video_frame_add_pkt(scene.cache, &frame, &packet), 0);
    EXPECT_EQ(packet.frm_ptr, &frame);
    EXPECT_EQ(frame.n_pkts_received, 1);
    EXPECT_EQ(frame.is_key, 1);
    EXPECT_EQ(frame.state, WEBRTC_VIDEO_FRM_INCOMPLETE);
    EXPECT_EQ(frame.cur_min_seq, 7u);
    EXPECT_EQ(frame.min_seq, 0xFFFFFFFFu);
    EXPECT_EQ(frame.max_seq, 0xFFFFFFFFu);
}

TEST(ReorderCacheHostile, CountsAFramesPacketsInSixteenBits)
{
    ReorderScene scene;
    webrtc_video_frame_t frame;
    webrtc_video_packet_t packet = {};

    webrtc_video_frame_init(&frame);
    for (uint32_t n = 1; n <= 65538; n++) {
        webrtc_video_frame_add_pkt(scene.cache, &frame, &packet);
        ASSERT_EQ(frame.n_pkts_received, n % 65536);
    }
}

// The count comes round to the frame's total, and a frame is complete when the two are equal.
TEST(ReorderCacheHostile, CompletesAFrameWhosePacketCountCameRoundToItsTotal)
{
    ReorderScene scene;
    webrtc_video_frame_t frame;
    webrtc_video_packet_t packet = {};

    webrtc_video_frame_init(&frame);
    frame.n_pkts_received = 65535;
    frame.min_seq = 0;
    frame.max_seq = 1;
    webrtc_video_frame_add_pkt(scene.cache, &frame, &packet);
    EXPECT_EQ(frame.state, WEBRTC_VIDEO_FRM_INCOMPLETE);
    packet.pkt_seq = 1;
    webrtc_video_frame_add_pkt(scene.cache, &frame, &packet);
    EXPECT_EQ(frame.state, WEBRTC_VIDEO_FRM_INCOMPLETE);
    webrtc_video_frame_add_pkt(scene.cache, &frame, &packet);
    EXPECT_EQ(frame.n_pkts_received, 2);
    EXPECT_EQ(frame.state, WEBRTC_VIDEO_FRM_COMPLETE);
}

TEST(ReorderCacheHostile, ReadsBytesThatAPacketDoesNotHaveAsZero)
{
    const std::vector<uint8_t> bytes = {0x80, 0xE0, 0x00, 0x07, 0x12, 0x34, 0x56, 0x78};
    const struct {
        size_t size;
        uint8_t marker;
        uint32_t timestamp;
    } rows[] = {
        {0, 0, 0},          {1, 0, 0},          {2, 1, 0},          {4, 1, 0},
        {5, 1, 0x12000000}, {6, 1, 0x12340000}, {7, 1, 0x12345600}, {8, 1, 0x12345678},
    };

    for (const auto &row : rows) {
        ReorderScene scene;
        PVideoData4 video = packet_with({bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(row.size)});
        video.common.seq = 7;
        scene.world.refuse_tag("webrtc_video_insert_frm_map"); // keeps the packet in its slot
        webrtc_video_cache_process(scene.cache, &video, false, &scene.now);
        EXPECT_EQ(scene.cache->pkt_arr[7].state, WEBRTC_VIDEO_PKT_SET);
        EXPECT_EQ(scene.cache->pkt_arr[7].endmark, row.marker) << row.size;
        EXPECT_EQ(scene.cache->pkt_arr[7].timestamp, row.timestamp) << row.size;
        EXPECT_EQ(scene.cache->pkt_arr[7].video.payload.count, row.size);
        scene.expect_invariants();
    }
}

TEST(ReorderCacheHostile, DeliversAnEmptyPacketAsAFrame)
{
    ReorderScene scene;
    PVideoData4 video = packet_with({0x80, 0xE0});

    webrtc_video_cache_process(scene.cache, &video, false, &scene.now);
    ASSERT_EQ(scene.world.added.size(), 1u);
    EXPECT_EQ(scene.world.added[0].payload, (std::vector<uint8_t>{0x80, 0xE0}));
    EXPECT_EQ(scene.world.added[0].frame_seq, 1000u);
}

TEST(ReorderCacheHostile, FilesFurtherPacketsIntoAFrameThatLostItsPackets)
{
    play({
        {K(0, 1), "kept"},
        {P(1, 2), "kept"},
        {P(2, 1).m(), "kept"},
        {P(3, 1), "kept, 1000:0-2 key"}, // takes packet 1 along
        {P(4, 2).at(10), "kept"},
        {check().at(1999), ""},
        {check().at(2000), "asks key"}, // since its first packet
        {P(5, 3).m(), "kept, 1000:5"},
    });
}

TEST(ReorderCacheHostile, StandsStillWhenTheHeadPacketIsEvictedUntilItIsReset)
{
    play({
        {K(0, 1), "kept"},
        {P(1, 1), "kept"},
        {P(8192, 5), "kept, asks packets"},
        {check().at(2000), ""},
        {check().at(4000), ""},
        {K(8195, 6).m(), "kept"}, // complete, but the head has no frame
        {check().at(9000), ""},
        {reset(), ""},
        {K(8196, 7).m(), "kept, 1000:8196 key"},
    });
}

TEST(ReorderCacheHostile, EndlessFrameFillsTheRingAndNoMore)
{
    ReorderScene scene;

    for (int seq = 0; seq < 70000; seq++) {
        scene.run_unchecked(K(seq, 1));
        scene.world.log.clear();
        scene.world.allocations.clear();
    }
    scene.expect_invariants();
    EXPECT_LE(scene.cache->pkt_cur_cnt, 8192u);
    EXPECT_EQ(scene.cache->frm_cur_cnt, 1u);
    EXPECT_LE(scene.world.live.size(), 8192u + 4u);
}

TEST(ReorderCacheHostile, SurvivesEveryAllocationFailingOnceOrForGood)
{
    const std::vector<reorder_step> steps = {
        K(0, 1).m(),     P(2, 2).m(),      P(1, 2),          K(5, 4),          P(6, 4).m(),
        P(7, 5).at(500), check().at(2000), check().at(4500), P(8192 + 7, 6),   reset(),
        K(20, 7).m(),    P(22, 8),         K(24, 9).m(),     check().at(9000), check().at(12000),
    };

    for (const bool for_good : {false, true}) {
        for (size_t failing = 0; failing < 12; failing++) {
            ReorderScene scene;
            size_t n = 0;
            scene.world.refuse = [&](size_t, const allocation &request) {
                const bool is_the_modules = request.tag != "test packet";
                return is_the_modules && (for_good ? n++ >= failing : n++ == failing);
            };
            for (const reorder_step &step : steps) {
                EXPECT_EQ(scene.run(step).find("DAMAGED"), std::string::npos);
            }
        }
    }
}

TEST(ReorderCacheHostile, LeavesNoPacketBehindWhenAFrameHadMorePacketsThanItsCounterHolds)
{
    constexpr int packets = 69636; // as many as it takes for the frame's range to shrink to one packet a fourth time
    constexpr int of_another_frame = packets - 65537; // so that a 16-bit count would read 1 at that moment
    ReorderScene scene;

    scene.run_unchecked(K(0, 1));
    for (int n = 1; n < packets; n++) {
        const bool is_of_another_frame = n >= 1000 && n < 1000 + of_another_frame;
        const auto expected = static_cast<int>(scene.cache->pkt_exp_seq);
        ASSERT_EQ(scene.run_unchecked(K(expected, is_of_another_frame ? 2 : 1)), "kept");
        scene.world.log.clear();
        scene.world.allocations.clear();
    }
    ASSERT_NE(scene.frame(1), nullptr);
    ASSERT_EQ(scene.frame(1)->cur_min_seq, scene.frame(1)->cur_max_seq);
    EXPECT_EQ(scene.run(check().at(2000)), "");
    EXPECT_EQ(scene.frame(1), nullptr);
    EXPECT_GT(scene.cache->pkt_cur_cnt, 8000u); // none of which points at the frame
}
