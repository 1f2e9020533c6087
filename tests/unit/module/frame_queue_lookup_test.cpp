// The frame queue's initialisation, its lookups and the release of a frame's storage.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

#include "frame_queue_fixture.h"

using namespace frame_queue_test;

namespace
{

static_assert(VIDEO_FRAMES_Q_SLOTS == 40 && VIDEO_FRAMES_Q_PKT_INDEX == 1280);

using FrameQueueInit = FrameQueue;
using FrameLookup = FrameQueueFrom;
using FrameLookupEdge = FrameQueue;
using FrameRelease = FrameQueueFrom;
using FrameReleaseEdge = FrameQueue;

INSTANTIATE_TEST_SUITE_P(From, FrameLookup, ::testing::Values(start::somewhere, start::across_wraps), start_name);
INSTANTIATE_TEST_SUITE_P(From, FrameRelease, ::testing::Values(start::somewhere, start::across_wraps), start_name);

// A list of packet sequence numbers written as plain numbers.
std::vector<seq_t> seqs(std::initializer_list<int> values)
{
    std::vector<seq_t> result;

    for (const int value : values) {
        result.push_back(static_cast<seq_t>(value));
    }
    return result;
}

std::unique_ptr<rtc_video_frames_t> queue_of_bytes(int byte)
{
    auto bytes_queue = std::make_unique<rtc_video_frames_t>();

    std::memset(static_cast<void *>(bytes_queue.get()), byte, sizeof(rtc_video_frames_t));
    return bytes_queue;
}

// The record as bytes, padding included.
std::vector<uint8_t> bytes_of(const rtc_video_frames_t &frames)
{
    const auto *first = reinterpret_cast<const uint8_t *>(&frames);

    return {first, first + sizeof(frames)};
}

// A queue of frames without packets, for the walks, which look at nothing else.
class FrameWalk : public ::testing::Test
{
  protected:
    FrameWalk()
    {
        clear();
    }

    void clear()
    {
        *q = {};
        rtc_video_frames_init(q.get());
    }

    void add(uint32_t seq)
    {
        q->video_frames[seq % 40].frame_seq = seq;
        q->video_frames[seq % 40].n_pkts_total = 1;
        q->count++;
    }

    void bound(uint32_t min, uint32_t max)
    {
        q->min_frame_seq = min;
        q->max_frame_seq = max;
    }

    // The frame sequence found, or -1.
    int64_t next_of(uint32_t seq)
    {
        video_frame from = {};

        from.frame_seq = seq;
        return seq_of(video_frames_q_next_frame(q.get(), &from));
    }

    int64_t prev_of(uint32_t seq)
    {
        video_frame from = {};

        from.frame_seq = seq;
        return seq_of(video_frames_q_prev_frame(q.get(), &from));
    }

    // One sequence number at a time: the slow, plain form of the same search.
    int64_t walk(uint32_t seq, bool is_forward) const
    {
        for (;;) {
            seq = is_forward ? seq + 1 : seq - 1;
            if (is_forward ? is_after(seq, q->max_frame_seq) : is_after(q->min_frame_seq, seq)) {
                return -1;
            }
            const video_frame &slot = q->video_frames[seq % 40];
            if (slot.n_pkts_total != 0 && slot.frame_seq == seq) {
                return seq;
            }
        }
    }

    std::unique_ptr<rtc_video_frames_t> q = std::make_unique<rtc_video_frames_t>();

  private:
    int64_t seq_of(const video_frame *frame) const
    {
        if (frame == nullptr) {
            return -1;
        }
        EXPECT_EQ(frame, &q->video_frames[frame->frame_seq % 40]);
        return frame->frame_seq;
    }

    static bool is_after(uint32_t a, uint32_t b)
    {
        const int64_t steps = (int64_t{a} - int64_t{b} + (int64_t{1} << 32)) % (int64_t{1} << 32);

        return steps >= 1 && steps <= 0x7FFFFFFF;
    }
};

} // namespace

// -- Initialisation --

TEST_F(FrameQueueInit, EmptiesTheQueueAndTouchesNothingElse)
{
    const auto initialised = queue_of_bytes(0xA5);
    const auto expected = queue_of_bytes(0xA5);

    expected->count = 0;
    for (int16_t &entry : expected->pkt_frame_pos) {
        entry = -1;
    }
    for (rtc_timer_counter_pair_t &pair : expected->pkt_tc_pairs) {
        pair.n = 0;
    }
    for (video_frame &frame : expected->video_frames) {
        frame.n_pkts_total = 0;
        frame.pkts = nullptr;
        frame.is_complete = 0;
    }
    rtc_video_frames_init(initialised.get());
    EXPECT_TRUE(bytes_of(*initialised) == bytes_of(*expected));
}

// -- Lookups --

TEST_P(FrameLookup, FindsNothingInAnEmptyQueueWhateverTheSlotsHold)
{
    video_frame *frame = insert_frame(0, 0, 2, {0, 1});
    insert_frame(1, 2, 1, {0});

    q->count = 0;
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(0)), nullptr);
    EXPECT_EQ(video_frames_q_get_min_frame_seq(q), -1);
    EXPECT_EQ(video_frames_q_get_max_frame_seq(q), -1);
    EXPECT_EQ(video_frames_q_get_min_seq_frame(q), nullptr);
    EXPECT_EQ(video_frames_q_get_max_seq_frame(q), nullptr);
    EXPECT_EQ(video_frames_q_next_frame(q, frame), nullptr);
    EXPECT_EQ(video_frames_q_prev_frame(q, slot_of(1)), nullptr);
}

TEST_P(FrameLookup, FindsAFrameByEachPacketItHolds)
{
    const video_frame *first = insert_frame(0, 0, 4, {0, 1, 2, 3});
    const video_frame *second = insert_frame(1, 4, 3, {2, 0, 1});

    for (seq_t seq = 0; seq < 7; seq++) {
        EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(seq)), seq < 4 ? first : second) << seq;
    }
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(7)), nullptr);
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, static_cast<seq_t>(pkt(0) - 1)), nullptr);
    EXPECT_TRUE(logged(RTC_LOG_NOTICE).empty());
}

TEST_P(FrameLookup, DoesNotFindAPacketOutsideTheRangeReceived)
{
    const video_frame *frame = insert_frame(0, 0, 6, {2, 3});

    for (const seq_t seq : seqs({0, 1, 4, 5})) {
        entry_of(seq) = static_cast<int16_t>(slot_index_of(0));
        EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(seq)), nullptr) << seq;
        entry_of(seq) = -1;
    }
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(2)), frame);
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(3)), frame);
}

// What is stored outside of it, too.
TEST_P(FrameLookup, TakesTheRangeReceivedAtItsWord)
{
    video_frame *frame = insert_frame(0, 0, 5, {0, 1, 2, 3, 4});

    frame->min_seq = pkt(1);
    frame->max_seq = pkt(3);
    for (const seq_t seq : seqs({0, 4})) {
        EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(seq)), nullptr) << seq;
    }
    for (const seq_t seq : seqs({1, 2, 3})) {
        EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(seq)), frame) << seq;
    }
}

TEST_P(FrameLookup, DoesNotFindAPacketWithoutBytes)
{
    const video_frame *frame = insert_frame(0, 0, 3, {0, 2});

    insert_bytes(packet(0, 0, 3, 1), {});
    EXPECT_EQ(entry_of(1), slot_index_of(0));
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(0)), frame);
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(1)), nullptr);
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(2)), frame);
}

TEST_P(FrameLookup, DoesNotFindALaterPacketOfTheSameIndexEntry)
{
    insert_frame(0, 0, 1, {0});
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(sharing_entry(0))), nullptr);
}

TEST_P(FrameLookup, DoesNotFindAPacketWhoseEntryIsFreeOrNamesNoSlot)
{
    const video_frame *frame = insert_frame(0, 0, 1, {0});

    for (const int pos : {-1, -2, -32768, 40, 41, 32767}) {
        entry_of(0) = static_cast<int16_t>(pos);
        EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(0)), nullptr) << pos;
    }
    entry_of(0) = static_cast<int16_t>(slot_index_of(0));
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(0)), frame);
}

TEST_F(FrameLookupEdge, ReachesTheFirstAndTheLastSlot)
{
    const video_frame *first = insert(packet(40, 100, 1, 0));
    const video_frame *last = insert(packet(79, 200, 1, 0));

    EXPECT_EQ(first, &q->video_frames[0]);
    EXPECT_EQ(last, &q->video_frames[39]);
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, 100), first);
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, 200), last);
}

TEST_P(FrameLookup, DoesNotFindAPacketOfAnEmptiedSlot)
{
    video_frame *frame = insert_frame(0, 0, 1, {0});

    insert_frame(1, 1, 1, {0});
    drop(frame);
    entry_of(0) = static_cast<int16_t>(slot_index_of(0));
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(0)), nullptr);
}

// The range received may stand beyond the frame's packets after a packet whose index was out of range.
TEST_P(FrameLookup, DoesNotFindAPacketBeyondTheFramesIndices)
{
    video_frame *frame = insert_frame(0, 10, 3, {0, 1, 2});

    for (const seq_t seq : seqs({8, 9, 13, 14})) {
        entry_of(seq) = static_cast<int16_t>(slot_index_of(0));
    }
    frame->min_seq = pkt(8);
    frame->max_seq = pkt(14);
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(8)), nullptr);
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(9)), nullptr);
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(10)), frame);
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(12)), frame);
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(13)), nullptr);
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, pkt(14)), nullptr);
}

// 0x8000 packets after the lowest received: neither after it nor after or equal.
TEST_F(FrameLookupEdge, DoesNotFindAPacketHalfACircleFromTheRange)
{
    video_frame *frame = insert(packet(1, 0, 0x9000, 0));
    const uint16_t far = 0x8000;

    insert(packet(1, 0, 0x9000, 0x7FFF));
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, 0x7FFF), frame);
    q->pkt_frame_pos[far % 1280] = 1;
    frame->max_seq = far;
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, far), nullptr);
    frame->min_seq = 1;
    frame->max_seq = 0;
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, far), nullptr);
}

TEST_F(FrameLookupEdge, UsesEntriesAroundTheWrapAndSkipsTheOnesAbove)
{
    insert(packet(1, 65534, 4, 1));
    insert(packet(1, 65534, 4, 2));
    insert(packet(2, 1278, 2, 0));
    insert(packet(2, 1278, 2, 1));
    for (int entry = 0; entry < 1280; entry++) {
        const bool is_of_first = entry == 255 || entry == 0;
        const bool is_of_second = entry == 1278 || entry == 1279;
        EXPECT_EQ(q->pkt_frame_pos[entry], is_of_first ? 1 : is_of_second ? 2 : -1) << entry;
    }
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, 65535), slot_of(1));
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, 0), slot_of(1));
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, 1279), slot_of(2));
}

TEST_P(FrameLookup, GivesBoundsAsUnsignedNumbers)
{
    insert_frame(1, 0, 1, {0});
    EXPECT_EQ(video_frames_q_get_min_frame_seq(q), int64_t{frame_seq(1)});
    EXPECT_EQ(video_frames_q_get_max_frame_seq(q), int64_t{frame_seq(1)});
    insert_frame(4, 10, 1, {0});
    insert_frame(0, 5, 1, {0});
    EXPECT_EQ(video_frames_q_get_min_frame_seq(q), int64_t{frame_seq(0)});
    EXPECT_EQ(video_frames_q_get_max_frame_seq(q), int64_t{frame_seq(4)});
    EXPECT_EQ(video_frames_q_get_min_seq_frame(q), slot_of(0));
    EXPECT_EQ(video_frames_q_get_max_seq_frame(q), slot_of(4));
}

TEST_F(FrameLookupEdge, TellsTheHighestFrameSequenceFromNone)
{
    insert(packet(0xFFFFFFFF, 0, 1, 0));
    EXPECT_EQ(video_frames_q_get_min_frame_seq(q), 4294967295);
    EXPECT_EQ(video_frames_q_get_max_frame_seq(q), 4294967295);
}

TEST_P(FrameLookup, GivesTheBoundsSlotEvenWhenItIsEmptyOrHoldsAnotherFrame)
{
    insert_frame(0, 0, 1, {0});
    insert_frame(1, 1, 1, {0});
    drop(slot_of(0));
    drop(slot_of(1));
    EXPECT_EQ(video_frames_q_get_min_seq_frame(q), slot_of(0));
    EXPECT_EQ(video_frames_q_get_max_seq_frame(q), slot_of(1));

    insert_frame(sharing_slot(0), 2, 1, {0});
    q->min_frame_seq = frame_seq(0);
    EXPECT_EQ(video_frames_q_get_min_seq_frame(q)->frame_seq, frame_seq(sharing_slot(0)));
}

TEST(VideoFrame, EndsAtItsLastPacketAcrossTheWrap)
{
    video_frame frame = {};

    frame.first_pkt_seq = 100;
    frame.n_pkts_total = 5;
    EXPECT_EQ(video_frame_last_pkt_seq(&frame), 104);
    frame.n_pkts_total = 1;
    EXPECT_EQ(video_frame_last_pkt_seq(&frame), 100);
    frame.n_pkts_total = 0;
    EXPECT_EQ(video_frame_last_pkt_seq(&frame), 99);
    frame.first_pkt_seq = 65530;
    frame.n_pkts_total = 10;
    EXPECT_EQ(video_frame_last_pkt_seq(&frame), 3);
    frame.n_pkts_total = 65535;
    EXPECT_EQ(video_frame_last_pkt_seq(&frame), 65528);
}

// -- Next and previous frame --

TEST_F(FrameWalk, SkipsMissingFrames)
{
    for (const uint32_t seq : {10u, 13u, 14u, 30u}) {
        add(seq);
    }
    bound(10, 30);
    EXPECT_EQ(next_of(10), 13);
    EXPECT_EQ(next_of(13), 14);
    EXPECT_EQ(next_of(14), 30);
    EXPECT_EQ(next_of(30), -1);
    EXPECT_EQ(prev_of(30), 14);
    EXPECT_EQ(prev_of(14), 13);
    EXPECT_EQ(prev_of(13), 10);
    EXPECT_EQ(prev_of(10), -1);
}

TEST_F(FrameWalk, StartsFromAFrameThatIsNotInTheQueue)
{
    add(10);
    add(20);
    bound(10, 20);
    EXPECT_EQ(next_of(3), 10);
    EXPECT_EQ(next_of(15), 20);
    EXPECT_EQ(next_of(25), -1);
    EXPECT_EQ(prev_of(25), 20);
    EXPECT_EQ(prev_of(15), 10);
    EXPECT_EQ(prev_of(3), -1);
}

TEST_F(FrameWalk, DoesNotTakeTheOtherFrameOfASlot)
{
    add(5);
    add(46);
    bound(5, 46);
    EXPECT_EQ(next_of(44), 46); // 45 belongs where 5 is
    EXPECT_EQ(prev_of(46), 5);
}

TEST_F(FrameWalk, PassesOverEmptySlots)
{
    add(10);
    add(11);
    add(12);
    bound(10, 12);
    q->video_frames[11].n_pkts_total = 0;
    EXPECT_EQ(next_of(10), 12);
    EXPECT_EQ(prev_of(12), 10);
}

// Only the bound ahead ends the search.
TEST_F(FrameWalk, FindsFramesOnTheNearSideOfTheOtherBound)
{
    add(5);
    add(10);
    add(20);
    add(26);
    bound(10, 20);
    EXPECT_EQ(next_of(3), 5);
    EXPECT_EQ(next_of(20), -1);
    EXPECT_EQ(prev_of(28), 26);
    EXPECT_EQ(prev_of(10), -1);
}

TEST_F(FrameWalk, FindsFramesAcrossTheWrap)
{
    add(0xFFFFFFF5);
    add(0xFFFFFFFF);
    add(0);
    add(3);
    bound(0xFFFFFFF5, 3);
    EXPECT_EQ(next_of(0xFFFFFFF5), 0xFFFFFFFF);
    EXPECT_EQ(next_of(0xFFFFFFFF), 0);
    EXPECT_EQ(next_of(0), 3);
    EXPECT_EQ(prev_of(3), 0);
    EXPECT_EQ(prev_of(0), 0xFFFFFFFF);
    EXPECT_EQ(prev_of(0xFFFFFFFF), 0xFFFFFFF5);
}

TEST_F(FrameWalk, EndsWhereTheBoundIsMoreThanHalfACircleAway)
{
    const struct {
        uint32_t bound;
        int64_t next_of_0; // with `bound` the newest frame
        int64_t prev_of_0; // with `bound` the oldest frame
    } rows[] = {
        {0x7FFFFFFE, 0x7FFFFFFE, -1},         {0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF},
        {0x80000000, 0x80000000, 0x80000000}, {0x80000001, 0x80000001, 0x80000001},
        {0x80000002, -1, 0x80000002},
    };

    for (const auto &row : rows) {
        clear();
        add(row.bound);
        bound(row.bound, row.bound);
        EXPECT_EQ(next_of(0), row.next_of_0) << row.bound;
        EXPECT_EQ(prev_of(0), row.prev_of_0) << row.bound;
    }
}

// Walked one by one this is 2^31 numbers a call.
TEST_F(FrameWalk, CrossesHalfACircleAtOnce)
{
    add(0);
    add(0x7FFFFFFE);
    bound(0, 0x7FFFFFFE);
    for (int i = 0; i < 1000; i++) {
        ASSERT_EQ(next_of(0), 0x7FFFFFFE);
        ASSERT_EQ(prev_of(0x7FFFFFFE), 0);
        ASSERT_EQ(next_of(1), 0x7FFFFFFE);
        ASSERT_EQ(prev_of(0x7FFFFFFD), 0);
    }
    q->video_frames[0].n_pkts_total = 0;
    q->video_frames[0x7FFFFFFE % 40].n_pkts_total = 0;
    for (int i = 0; i < 1000; i++) {
        ASSERT_EQ(next_of(0), -1);
        ASSERT_EQ(prev_of(0x7FFFFFFE), -1);
    }
}

TEST_F(FrameWalk, AgreesWithAWalkOneByOne)
{
    std::mt19937 random(test_support::test_seed());

    for (int round = 0; round < 3000; round++) {
        const uint32_t min =
            round % 2 == 0 ? static_cast<uint32_t>(random()) : 0u - static_cast<uint32_t>(random() % 60);
        const auto length = static_cast<uint32_t>(random() % 60);
        clear();
        for (uint32_t i = 0; i < random() % 30; i++) {
            add(min - 10 + static_cast<uint32_t>(random() % (length + 20)));
        }
        bound(min, min + length);
        q->count = random() % 50 == 0 ? 0 : 1;
        const uint32_t from = min - 30 + static_cast<uint32_t>(random() % (length + 60));
        ASSERT_EQ(next_of(from), q->count == 0 ? -1 : walk(from, true)) << min << " from " << from;
        ASSERT_EQ(prev_of(from), q->count == 0 ? -1 : walk(from, false)) << min << " from " << from;
    }
}

// -- Release of a frame's storage --

TEST_P(FrameRelease, EmptiesTheSlotAndKeepsItsOtherFields)
{
    native_fields fields = packet(0, 0, 4, 1);
    fields.video_type = test_support::kKey;
    fields.reserved = 0x100;
    video_frame *frame = insert(fields);
    fields = packet(0, 0, 4, 3);
    insert(fields);
    const video_frame before = *frame;

    drop(frame);
    expect_is_empty(frame);
    EXPECT_EQ(frame->queued_ts, before.queued_ts);
    EXPECT_EQ(frame->frame_seq, frame_seq(0));
    EXPECT_EQ(frame->n_pkts_media, 3);
    EXPECT_EQ(frame->n_pkts_fec, 1);
    EXPECT_EQ(frame->n_pkts_received_media, 1);
    EXPECT_EQ(frame->n_pkts_received_fec, 1);
    EXPECT_EQ(frame->is_key_frame, 1);
    EXPECT_EQ(frame->first_pkt_seq, pkt(0));
    EXPECT_EQ(frame->min_seq, pkt(1));
    EXPECT_EQ(frame->max_seq, pkt(3));
    EXPECT_EQ(frame->ts, before.ts);
    EXPECT_EQ(frame->rexfer_cnt, 1);
    EXPECT_EQ(world.count_of(kArraysTag), 2u);
    for (const auto &[ptr, what] : world.live) {
        EXPECT_EQ(what.tag, "analyzer"); // all that the frame had is free
    }
}

TEST_P(FrameRelease, LeavesTheQueuesCountAndBounds)
{
    insert_frame(0, 0, 1, {0});
    insert_frame(1, 1, 1, {0});
    drop(slot_of(0));
    EXPECT_EQ(q->count, 2);
    expect_bounds(0, 1);
    EXPECT_TRUE(logged(RTC_LOG_NOTICE).empty());
}

TEST_P(FrameRelease, FreesTheEntriesOfStoredPacketsOnly)
{
    video_frame *frame = insert_frame(0, 0, 5, {0, 2, 4});

    insert_bytes(packet(0, 0, 5, 3), {});
    insert_frame(1, 5, 1, {0});
    drop(frame);
    for (const seq_t seq : seqs({0, 1, 2, 4})) {
        EXPECT_EQ(entry_of(seq), -1) << seq;
    }
    EXPECT_EQ(entry_of(3), slot_index_of(0)); // stale
    EXPECT_EQ(entry_of(5), slot_index_of(1));
}

TEST_P(FrameRelease, FreesAnEntryThatAnotherFrameHasTakenOver)
{
    video_frame *frame = insert_frame(0, 0, 1, {0});

    insert_frame(1, 1, 1, {0});
    entry_of(0) = static_cast<int16_t>(slot_index_of(1));
    drop(frame);
    EXPECT_EQ(entry_of(0), -1);
}

TEST_P(FrameRelease, LeavesAnEmptySlotAlone)
{
    video_packet_status_t stale = {1};
    video_frame *frame = slot_of(0);

    frame->pkts_status = &stale; // initialisation leaves it as it was
    frame->n_pkts_received = 3;
    frame->is_complete = 1;
    video_stream_delete_frame(stream, frame);
    EXPECT_EQ(frame->pkts_status, &stale);
    EXPECT_EQ(frame->n_pkts_received, 3);
    EXPECT_EQ(frame->is_complete, 1);
    frame->pkts_status = nullptr;
}

TEST_F(FrameReleaseEdge, FreesEntriesOnBothSidesOfTheWrap)
{
    video_frame *frame = insert_frame(1, 65534, 4, {0, 1, 2, 3});

    for (const int entry : {254, 255, 0, 1}) {
        EXPECT_EQ(q->pkt_frame_pos[entry], 1) << entry;
    }
    drop(frame);
    for (const int16_t entry : q->pkt_frame_pos) {
        ASSERT_EQ(entry, -1);
    }
}

TEST_F(FrameReleaseEdge, NeedsNoChannel)
{
    video_frame *frame = insert_frame(1, 0, 2, {0});

    stream->channel = nullptr;
    drop(frame);
    expect_is_empty(frame);
}

// What lies behind the last slot would pass for a frame.
TEST_F(FrameLookupEdge, FindsNoPacketBehindTheLastSlot)
{
    q->count = 1;
    q->pkt_frame_pos[0] = VIDEO_FRAMES_Q_SLOTS;
    stream->n_fec_recovered_frames = UINT64_MAX;
    EXPECT_EQ(video_stream_find_frame_by_pkt_seq(stream, 0), nullptr);
    q->pkt_frame_pos[0] = -1;
}
