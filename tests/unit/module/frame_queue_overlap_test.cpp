// Packets that meet a frame or a packet in their place: which are refused, and what makes room.
#include <gtest/gtest.h>

#include "frame_queue_fixture.h"

using namespace frame_queue_test;

namespace
{

using SlotOverlap = FrameQueueFrom;
using SlotOverlapEdge = FrameQueue;
using IndexOverlap = FrameQueueFrom;
using IndexOverlapEdge = FrameQueue;
using FrameReCreation = FrameQueueFrom;
using QueueDrift = FrameQueue;

INSTANTIATE_TEST_SUITE_P(From, SlotOverlap, ::testing::Values(start::somewhere, start::across_wraps), start_name);
INSTANTIATE_TEST_SUITE_P(From, IndexOverlap, ::testing::Values(start::somewhere, start::across_wraps), start_name);
INSTANTIATE_TEST_SUITE_P(From, FrameReCreation, ::testing::Values(start::somewhere, start::across_wraps), start_name);

} // namespace

// -- The slot holds a frame --

TEST_P(SlotOverlap, KeepsAFrameForPacketsInItsRangeOnly)
{
    const struct {
        int offset; // of the packet from the frame's first
        bool belongs;
    } rows[] = {{-1, false}, {0, true}, {1, true}, {4, true}, {5, false}};

    for (const auto &row : rows) {
        use(stream_kind::receiving);
        insert_frame(0, 20, 5, {2});
        native_fields fields = packet(0, 20, 5, 3);
        fields.seq = pkt(static_cast<seq_t>(20 + row.offset));
        logged();
        const video_frame *frame = insert(fields);
        ASSERT_EQ(frame, slot_of(0));
        EXPECT_EQ(frame->first_pkt_seq, row.belongs ? pkt(20) : pkt(static_cast<seq_t>(17 + row.offset)));
        EXPECT_EQ(frame->n_pkts_received, row.belongs ? 2 : 1) << row.offset;
        EXPECT_EQ(entry_of(22), row.belongs ? slot_index_of(0) : -1);
        EXPECT_EQ(stream->n_overlapped_frames_recent, row.belongs ? 0 : 1);
        EXPECT_EQ(q->count, 1);
        expect_bounds(0, 0);
        EXPECT_EQ(world.count_logged("overlap an old frame"), row.belongs ? 0u : 1u);
    }
}

// Of a frame of 0x8001 packets the last is half a circle from the first, which therefore is not in its range.
TEST_F(SlotOverlapEdge, DoesNotKnowTheFirstPacketOfAFrameOfHalfACircle)
{
    insert(packet(1, 100, 0x8000, 1));

    EXPECT_EQ(insert(packet(1, 100, 0x8000, 0))->n_pkts_received, 2);
    EXPECT_EQ(stream->n_overlapped_frames_recent, 0);
    const video_frame *frame = insert(packet(2, 0x9000, 0x8001, 1));
    EXPECT_EQ(insert(packet(2, 0x9000, 0x8001, 2))->n_pkts_received, 2);
    EXPECT_EQ(insert(packet(2, 0x9000, 0x8001, 0)), frame);
    EXPECT_EQ(frame->n_pkts_received, 1);
    EXPECT_EQ(stream->n_overlapped_frames_recent, 1);
}

TEST_P(SlotOverlap, RebuildsAFrameForAPacketOutsideItsRange)
{
    insert_frame(0, 0, 5, {0});
    const native_fields fields = packet(0, 5, 5, 0);
    now = 6000;
    logged();
    const video_frame *frame = insert(fields);

    EXPECT_EQ(frame->queued_ts, 6000u);
    EXPECT_EQ(frame->first_pkt_seq, pkt(5));
    EXPECT_EQ(frame->n_pkts_received, 1);
    EXPECT_EQ(entry_of(0), -1);
    EXPECT_EQ(stream->pkt_seq, pkt(5));
    EXPECT_EQ(stream->last_to_user_at, 5000u);
    EXPECT_EQ(logged(), (lines{vid(RTC_LOG_INFO, "insertQ: overlap an old frame"),
                               vid_chan(RTC_LOG_DEBUG, "auto fwd due to remove frame, index 5"),
                               rcv(RTC_LOG_INFO, "part of pkts, n_pkts_total 5, n_pkts_received 1, expect_seq " +
                                                     std::to_string(pkt(0)) + " --> " + std::to_string(pkt(0) + 5)),
                               update_line(fields)}));
}

TEST_P(SlotOverlap, DropsAnOlderFrame)
{
    const uint32_t newer = sharing_slot(0);
    insert_frame(0, 0, 2, {0, 1});
    insert_frame(1, 2, 1, {0});
    const native_fields fields = packet(newer, 100, 2, 1);

    logged();
    const video_frame *frame = insert(fields);
    ASSERT_EQ(frame, slot_of(newer));
    EXPECT_EQ(frame, slot_of(0));
    EXPECT_EQ(frame->frame_seq, frame_seq(newer));
    EXPECT_EQ(frame->n_pkts_received, 1);
    EXPECT_EQ(q->count, 2);
    expect_bounds(1, newer);
    EXPECT_EQ(q->min_ts, ts_of(1));
    EXPECT_EQ(q->max_ts, ts_of(newer));
    EXPECT_EQ(entry_of(0), -1);
    EXPECT_EQ(entry_of(1), -1);
    EXPECT_EQ(entry_of(101), slot_index_of(0));
    EXPECT_EQ(stream->n_overlapped_frames_recent, 1);
    EXPECT_EQ(stream->pkt_seq, pkt(3)); // over frames 0 and 1, which are whole
}

TEST_P(SlotOverlap, RefusesAPacketOfAnOlderFrame)
{
    for (const auto kind : {stream_kind::receiving, stream_kind::sending}) {
        use(kind);
        const uint32_t newer = sharing_slot(0);
        const video_frame *frame = insert_frame(newer, 100, 2, {0});
        const std::string way = is_receiving ? "in" : "out";
        logged();
        EXPECT_EQ(insert(packet(0, 0, 2, 1)), nullptr);
        EXPECT_EQ(logged(), (lines{vid(RTC_LOG_INFO, "insertQ: overlap an old frame"),
                                   vid(RTC_LOG_WARNING,
                                       "insertQ: Ignore an outdated " + way + " pkt " + std::to_string(pkt(1)))}));
        EXPECT_EQ(frame->frame_seq, frame_seq(newer));
        EXPECT_EQ(frame->n_pkts_received, 1);
        EXPECT_EQ(entry_of(1), -1);
        EXPECT_EQ(q->count, 1);
        expect_bounds(newer, newer);
        EXPECT_EQ(stream->n_overlapped_frames_recent, 0);
        EXPECT_EQ(stream->pkt_seq, pkt(100));
    }
}

// The frames of slot 0 on either side of half a circle from frame 0.
TEST_F(SlotOverlapEdge, TellsOlderFromNewerByTheShorterWayRound)
{
    insert(packet(0, 100, 1, 0));
    EXPECT_EQ(insert(packet(2147483680, 200, 1, 0)), nullptr);
    EXPECT_EQ(q->video_frames[0].frame_seq, 0u);
    EXPECT_NE(insert(packet(2147483640, 200, 1, 0)), nullptr);
    EXPECT_EQ(q->video_frames[0].frame_seq, 2147483640u);
}

// Unlike a frame found through the index, one in the way is dropped even when it cannot be counted out.
TEST_P(SlotOverlap, DropsAFrameThatIsOutsideTheQueuesBounds)
{
    insert_frame(0, 0, 1, {0});
    insert_frame(0x80000000, 10, 2, {0});
    logged();
    const video_frame *frame = insert_frame(0x80000000, 20, 2, {1});
    EXPECT_EQ(frame->first_pkt_seq, pkt(20));
    EXPECT_EQ(entry_of(10), -1);
    EXPECT_EQ(q->count, 3);
    EXPECT_EQ(stream->n_overlapped_frames_recent, 1);
    EXPECT_EQ(stream->pkt_seq, pkt(0));
    EXPECT_EQ(logged(RTC_LOG_INFO),
              (lines{vid(RTC_LOG_INFO, "insertQ: overlap an old frame"),
                     vid_chan(RTC_LOG_CRIT, "remove frame fail, frame_seq [" + std::to_string(frame_seq(0x80000000)) +
                                                "], but min/max frame_seq[" + std::to_string(frame_seq(0)) + "/" +
                                                std::to_string(frame_seq(0)) + "]")}));
}

// -- The packet's index entry is taken --

TEST_P(IndexOverlap, RefusesAPacketThatIsHere)
{
    for (const auto kind : {stream_kind::receiving, stream_kind::sending}) {
        use(kind);
        const video_frame *frame = insert_frame(0, 0, 3, {0, 1});
        const video_frame before = *frame;
        logged();
        EXPECT_EQ(insert(packet(0, 0, 3, 1)), nullptr);
        EXPECT_EQ(logged(),
                  (lines{vid(RTC_LOG_WARNING, std::string("insertQ: Ignore an duplicated ") +
                                                  (is_receiving ? "in" : "out") + " pkt " + std::to_string(pkt(1)))}));
        EXPECT_EQ(frame->n_pkts_received, 2);
        EXPECT_EQ(frame->min_seq, before.min_seq);
        EXPECT_EQ(frame->max_seq, before.max_seq);
        EXPECT_EQ(q->count, 1);
        EXPECT_EQ(stream->n_overlapped_frames_recent, 0);
    }
}

TEST_P(IndexOverlap, RefusesAPacketThatIsHereWhateverItsHeaderSays)
{
    const video_frame *frame = insert_frame(0, 0, 3, {0, 1});
    native_fields fields = packet(0, 0, 3, 1);

    fields.n_pkts = 4;
    EXPECT_EQ(insert(fields), nullptr);
    fields.subseq = 2;
    EXPECT_EQ(insert(fields), nullptr);
    EXPECT_EQ(frame->n_pkts_total, 3);
    EXPECT_EQ(frame->n_pkts_received, 2);
}

TEST_P(IndexOverlap, DropsTheOlderFrameThatHoldsTheEntry)
{
    const seq_t later = sharing_entry(0);
    insert_frame(0, 0, 2, {0});
    insert_frame(1, 2, 1, {0});
    const native_fields fields = packet(5, later, 2, 0);
    q->video_frames[fields.frame_seq % 40].frame_seq = 4711; // of an earlier tenant

    logged();
    const video_frame *frame = insert(fields);
    ASSERT_EQ(frame, slot_of(5));
    EXPECT_EQ(frame->n_pkts_received, 1);
    expect_is_empty(slot_of(0));
    EXPECT_EQ(entry_of(later), slot_index_of(5));
    EXPECT_EQ(q->count, 2);
    expect_bounds(1, 5);
    EXPECT_EQ(stream->n_overlapped_frames_recent, 1);
    EXPECT_EQ(logged(RTC_LOG_WARNING),
              (lines{vid(RTC_LOG_CRIT, std::to_string(frame_seq(0))),
                     vid(RTC_LOG_WARNING, "insertQ: Frame 4711 overlapped " + std::to_string(frame_seq(0)))}));
}

TEST_P(IndexOverlap, NamesThePacketsFrameWhenItIsInItsSlotAlready)
{
    const seq_t later = sharing_entry(0);
    insert_frame(0, 0, 1, {0});
    const video_frame *frame = insert_frame(5, static_cast<seq_t>(later - 1), 2, {0});

    logged();
    EXPECT_EQ(insert_frame(5, static_cast<seq_t>(later - 1), 2, {1}), frame);
    EXPECT_EQ(frame->n_pkts_received, 2);
    EXPECT_EQ(frame->is_complete, 1);
    EXPECT_EQ(q->count, 1);
    expect_bounds(5, 5);
    EXPECT_EQ(logged(RTC_LOG_WARNING),
              (lines{vid(RTC_LOG_CRIT, std::to_string(frame_seq(0))),
                     vid(RTC_LOG_WARNING, "insertQ: Frame " + std::to_string(frame_seq(5)) + " overlapped " +
                                              std::to_string(frame_seq(0)))}));
}

TEST_P(IndexOverlap, RefusesAPacketWhoseEntryANewerFrameHolds)
{
    for (const auto kind : {stream_kind::receiving, stream_kind::sending}) {
        use(kind);
        const seq_t later = sharing_entry(0);
        const video_frame *newer = insert_frame(5, later, 1, {0});
        logged();
        EXPECT_EQ(insert(packet(4, 0, 1, 0)), nullptr);
        EXPECT_EQ(logged(), (lines{vid(RTC_LOG_CRIT, std::to_string(frame_seq(5))),
                                   vid(RTC_LOG_WARNING, std::string("insertQ: Ignore an outdated ") +
                                                            (is_receiving ? "in" : "out") + " pkt " +
                                                            std::to_string(pkt(0)) + " from receiving")}));
        EXPECT_EQ(newer->n_pkts_received, 1);
        EXPECT_EQ(entry_of(later), slot_index_of(5));
        EXPECT_EQ(q->count, 1);
        EXPECT_EQ(stream->n_overlapped_frames_recent, 0);
        EXPECT_EQ(slot_of(4)->n_pkts_total, 0);
    }
}

TEST_F(IndexOverlapEdge, ReadsAPacket1280LaterByItsEntry)
{
    insert(packet(7, 100, 1, 0));
    EXPECT_NE(insert(packet(9, 1380, 1, 0)), nullptr);
    expect_is_empty(slot_of(7));
    EXPECT_EQ(q->pkt_frame_pos[100], 9);
    EXPECT_EQ(insert(packet(8, 100, 1, 0)), nullptr);
    EXPECT_EQ(world.count_logged("insertQ: Ignore an outdated in pkt 100 from receiving\n"), 1u);
    EXPECT_EQ(q->pkt_frame_pos[100], 9);
    EXPECT_EQ(insert(packet(10, 1379, 1, 0)), slot_of(10)); // the entries beside it are free
    EXPECT_EQ(insert(packet(11, 1381, 1, 0)), slot_of(11));
}

TEST_F(IndexOverlapEdge, TellsOlderFromNewerByTheShorterWayRound)
{
    const struct {
        uint32_t distance; // of the packet's frame from the one that holds the entry
        bool gets_in;
    } rows[] = {{1, true},           {0x7FFFFFFF, true},  {0x80000000, false},
                {0x80000001, false}, {0xFFFFFFFF, false}, {39, true}};

    for (const uint32_t base : {uint32_t{20}, uint32_t{0xFFFFFFF0}}) {
        for (const auto &row : rows) {
            use(stream_kind::receiving);
            origin.frame = base;
            insert(packet(0, 100, 1, 0));
            EXPECT_EQ(insert(packet(row.distance, 1380, 1, 0)) != nullptr, row.gets_in) << base << "+" << row.distance;
        }
    }
}

// It stays in its slot, and only its hold on the entry is lost.
TEST_P(IndexOverlap, KeepsAnOlderFrameThatCannotBeCountedOut)
{
    const seq_t later = sharing_entry(10);
    insert_frame(0, 10, 1, {0});
    insert_frame(1, 11, 1, {0});
    insert_frame(2, 12, 1, {0});
    q->min_frame_seq = frame_seq(1);
    logged();
    const video_frame *frame = insert_frame(5, later, 1, {0});
    EXPECT_EQ(frame->n_pkts_received, 1);
    EXPECT_EQ(entry_of(later), slot_index_of(5));
    EXPECT_EQ(slot_of(0)->n_pkts_received, 1);
    EXPECT_EQ(q->count, 4);
    EXPECT_EQ(stream->n_overlapped_frames_recent, 1);
    EXPECT_EQ(world.count_logged("remove frame fail"), 1u);

    drop(slot_of(0)); // frees the entry that it has lost
    EXPECT_EQ(entry_of(later), -1);
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(later)), nullptr);
}

TEST_P(IndexOverlap, RepointsAStaleEntryOfAnEmptyQueue)
{
    insert_bytes(packet(0, 0, 1, 0), {});
    remove(slot_of(0));
    EXPECT_EQ(q->count, 0);
    EXPECT_EQ(entry_of(0), slot_index_of(0));
    logged();
    EXPECT_EQ(insert(packet(3, 0, 1, 0)), slot_of(3));
    EXPECT_EQ(entry_of(0), slot_index_of(3));
    EXPECT_EQ(q->count, 1);
    EXPECT_EQ(stream->n_overlapped_frames_recent, 1);
    EXPECT_EQ(logged(RTC_LOG_WARNING).size(), 2u); // the two lines of an overlap: a removal from nothing is silent
}

TEST_P(IndexOverlap, MayRefuseAPacketAfterItsSlotWasCleared)
{
    const uint32_t newer = sharing_slot(0);
    insert_frame(0, 0, 1, {0});
    insert_frame(newer + 3, 100, 1, {0});
    native_fields fields = packet(newer, 100, 1, 0);

    EXPECT_EQ(insert(fields), nullptr);
    expect_is_empty(slot_of(0));
    EXPECT_EQ(q->count, 1);
    expect_bounds(newer + 3, newer + 3);
    EXPECT_EQ(stream->n_overlapped_frames_recent, 1);
    EXPECT_EQ(slot_of(newer + 3)->n_pkts_received, 1);
}

TEST_P(IndexOverlap, TakesThePacketThatADroppedFrameHeld)
{
    const uint32_t newer = sharing_slot(0);
    insert_frame(0, 0, 1, {0});
    const video_frame *frame = insert(packet(newer, 0, 1, 0));
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->frame_seq, frame_seq(newer));
    EXPECT_EQ(entry_of(0), slot_index_of(newer));
    EXPECT_EQ(q->count, 1);
}

TEST_P(IndexOverlap, RefusesThePacketThatADroppedFrameNeverStored)
{
    const uint32_t newer = sharing_slot(0);
    insert_bytes(packet(0, 0, 1, 0), {});
    logged();
    EXPECT_EQ(insert(packet(newer, 0, 1, 0)), nullptr);
    EXPECT_EQ(q->count, 0);
    EXPECT_EQ(world.count_logged("Ignore an duplicated in pkt"), 1u);
}

// -- The same frame with another packet count --

TEST_P(FrameReCreation, FollowsAChangedPacketCount)
{
    for (const uint16_t n_pkts : {uint16_t{3}, uint16_t{5}}) {
        use(stream_kind::receiving);
        now = 5000;
        native_fields fields = packet(0, 0, 4, 0);
        fields.video_type = test_support::kKey;
        insert(fields);
        insert_frame(1, 4, 1, {0});
        insert_frame(0, 0, 4, {1});
        now = 6000;
        fields = packet(0, 0, n_pkts, 2);
        fields.sent_ts = 1;
        logged();
        const video_frame *frame = insert(fields);
        ASSERT_EQ(frame, slot_of(0));
        EXPECT_EQ(frame->n_pkts_total, n_pkts);
        EXPECT_EQ(frame->n_pkts_received, 1);
        EXPECT_EQ(frame->n_pkts_received_media, 1);
        EXPECT_EQ(frame->is_key_frame, 0);
        EXPECT_EQ(frame->queued_ts, 6000u);
        EXPECT_EQ(frame->min_seq, pkt(2));
        EXPECT_EQ(frame->max_seq, pkt(2));
        EXPECT_EQ(frame->ts, 1);
        EXPECT_EQ(entry_of(0), -1);
        EXPECT_EQ(entry_of(1), -1);
        EXPECT_EQ(entry_of(2), slot_index_of(0));
        EXPECT_EQ(q->count, 2);
        expect_bounds(0, 1);
        EXPECT_EQ(q->min_ts, ts_of(0)); // of the first creation
        EXPECT_EQ(stream->n_key_recent, 1);
        EXPECT_EQ(stream->n_overlapped_frames_recent, 0);
        EXPECT_EQ(stream->pkt_seq, pkt(0));
        EXPECT_EQ(stream->last_to_user_at, 5000u);
        EXPECT_EQ(logged(), (lines{update_line(fields)}));
    }
}

TEST_P(FrameReCreation, CountsMediaAndFecAnew)
{
    native_fields fields = packet(0, 0, 4, 0);

    fields.reserved = 2 << 8;
    insert(fields);
    fields = packet(0, 0, 4, 3);
    EXPECT_EQ(insert(fields)->n_pkts_received_fec, 1);
    const video_frame *frame = insert(packet(0, 0, 5, 4));
    EXPECT_EQ(frame->n_pkts_received_media, 1);
    EXPECT_EQ(frame->n_pkts_received_fec, 0);
    EXPECT_EQ(frame->n_pkts_media, 5);
}

TEST_P(FrameReCreation, MayMoveTheFramesFirstPacket)
{
    insert_frame(0, 10, 4, {0, 3});
    native_fields fields = packet(0, 10, 6, 4);

    fields.seq = pkt(12);
    const video_frame *frame = insert(fields);
    EXPECT_EQ(frame->first_pkt_seq, pkt(8));
    EXPECT_EQ(entry_of(10), -1);
    EXPECT_EQ(entry_of(13), -1);
    EXPECT_EQ(entry_of(12), slot_index_of(0));
    EXPECT_EQ(insert_frame(0, 8, 6, {2, 5})->n_pkts_received, 3);
}

// -- A queue whose count has drifted from its slots --

// The stale entry of a packet without bytes makes a later frame count out one that is gone already.
TEST_F(QueueDrift, FillsAnOccupiedSlotAnewWithoutLosingItsStorage)
{
    insert_bytes(packet(10, 500, 1, 0), {});
    EXPECT_EQ(remove(slot_of(10)), 0);
    EXPECT_EQ(stream->pkt_seq, 501u);
    insert(packet(9, 400, 1, 0));
    insert(packet(12, 600, 2, 0));
    EXPECT_NE(insert(packet(11, 500, 1, 0)), nullptr);
    EXPECT_EQ(q->count, 2); // and three frames
    EXPECT_EQ(stream->n_overlapped_frames_recent, 1);
    EXPECT_EQ(remove(slot_of(9)), 0);
    EXPECT_EQ(remove(slot_of(11)), 0);
    EXPECT_EQ(q->count, 0);
    EXPECT_EQ(slot_of(12)->n_pkts_received, 1);

    const video_frame *frame = insert(packet(12, 600, 2, 1));
    ASSERT_EQ(frame, slot_of(12));
    EXPECT_EQ(q->count, 1);
    expect_bounds(12, 12);
    EXPECT_EQ(frame->n_pkts_received, 1);
    EXPECT_EQ(frame->first_pkt_seq, 600);
    EXPECT_EQ(q->pkt_frame_pos[600], -1);
    EXPECT_EQ(q->pkt_frame_pos[601], 12);
}

// The queue counts a frame that it has not, so that the new one has no predecessor and can not be removed.
TEST_F(QueueDrift, ReleasesAFrameWithoutMemoryThatCannotBeCountedOut)
{
    q->count = 1;
    q->min_frame_seq = frame_seq(7);
    q->max_frame_seq = frame_seq(7);
    world.refuse_tag(kArraysTag, 1);
    EXPECT_EQ(insert(packet(7, 100, 3, 1)), nullptr);
    EXPECT_EQ(q->count, 1);
    EXPECT_EQ(slot_of(7)->n_pkts_total, 0);
    EXPECT_EQ(slot_of(7)->pkts, nullptr);
}

// A walk from frame 0 to the next would take 2^31 steps, once for each of these packets.
TEST_F(QueueDrift, FindsTheNextOldestFrameHalfACircleAwayAtOnce)
{
    for (int round = 0; round < 200; round++) {
        use(stream_kind::receiving);
        insert(packet(0, 100, 1, 0));
        insert(packet(0x7FFFFFFE, 200, 1, 0));
        ASSERT_EQ(insert(packet(40, 300, 1, 0)), slot_of(0));
        ASSERT_EQ(q->count, 2);
        expect_bounds(40, 0x7FFFFFFE);
        ASSERT_EQ(stream->n_overlapped_frames_recent, 1);
    }
}
