// Removal of frames: the queue's count and bounds, and when a removal fails.
#include <gtest/gtest.h>

#include "frame_queue_fixture.h"

using namespace frame_queue_test;

namespace
{

class FrameRemoval : public FrameQueueFrom
{
  protected:
    static std::string number(uint32_t value)
    {
        return std::to_string(value);
    }

    std::string fail_line(uint32_t frame, uint32_t min, uint32_t max) const
    {
        return vid_chan(RTC_LOG_CRIT, "remove frame fail, frame_seq [" + number(frame_seq(frame)) +
                                          "], but min/max frame_seq[" + number(frame_seq(min)) + "/" +
                                          number(frame_seq(max)) + "]");
    }

    std::string absent_line(uint32_t min, uint32_t max, uint16_t count) const
    {
        return vid_chan(RTC_LOG_CRIT, "Next frame should exist, Q.min=" + number(frame_seq(min)) +
                                          ", Q.max=" + number(frame_seq(max)) + ", Q.count=" + number(count));
    }

    // One-packet frames, in this order: frame f is packet f modulo 61.
    void insert_frames(std::initializer_list<uint32_t> frames)
    {
        for (const uint32_t frame : frames) {
            insert_frame(frame, static_cast<seq_t>(frame % 61), 1, {0});
        }
        stream->pkt_seq = pkt(100); // ahead of them all, so that no removal moves it
        world.log.clear();
    }
};

using FrameRemovalEdge = FrameQueue;

INSTANTIATE_TEST_SUITE_P(From, FrameRemoval, ::testing::Values(start::somewhere, start::across_wraps), start_name);

} // namespace

TEST_P(FrameRemoval, LeavesTheBoundsOfAQueueThatBecomesEmpty)
{
    insert_frames({4});
    video_frame *frame = slot_of(4);
    EXPECT_EQ(remove(frame), 0);
    expect_is_empty(frame);
    EXPECT_EQ(frame->frame_seq, frame_seq(4));
    EXPECT_EQ(q->count, 0);
    expect_bounds(4, 4);
    EXPECT_EQ(q->min_ts, ts_of(4));
    EXPECT_EQ(q->max_ts, ts_of(4));
    EXPECT_EQ(entry_of(4), -1);
    EXPECT_EQ(video_frames_q_get_min_frame_seq(q), -1);
    EXPECT_TRUE(logged().empty());
}

TEST_P(FrameRemoval, LeavesTheBoundsWhenAMiddleFrameGoes)
{
    insert_frames({1, 3, 6});
    EXPECT_EQ(remove(slot_of(3)), 0);
    expect_is_empty(slot_of(3));
    EXPECT_EQ(q->count, 2);
    expect_bounds(1, 6);
    EXPECT_EQ(q->min_ts, ts_of(1));
    EXPECT_EQ(q->max_ts, ts_of(6));
    EXPECT_TRUE(logged().empty());
}

TEST_P(FrameRemoval, MovesTheLowerBoundToTheNextFrame)
{
    insert_frames({1, 3, 6});
    EXPECT_EQ(remove(slot_of(1)), 0);
    EXPECT_EQ(q->count, 2);
    expect_bounds(3, 6);
    EXPECT_EQ(q->min_ts, ts_of(3));
    EXPECT_EQ(q->max_ts, ts_of(6));
    EXPECT_EQ(remove(slot_of(3)), 0);
    expect_bounds(6, 6);
    EXPECT_EQ(q->min_ts, ts_of(6));
    EXPECT_TRUE(logged().empty());
}

TEST_P(FrameRemoval, MovesTheUpperBoundToThePreviousFrame)
{
    insert_frames({1, 3, 6});
    EXPECT_EQ(remove(slot_of(6)), 0);
    EXPECT_EQ(q->count, 2);
    expect_bounds(1, 3);
    EXPECT_EQ(q->min_ts, ts_of(1));
    EXPECT_EQ(q->max_ts, ts_of(3));
    EXPECT_EQ(remove(slot_of(3)), 0);
    expect_bounds(1, 1);
    EXPECT_EQ(q->max_ts, ts_of(1));
    EXPECT_TRUE(logged().empty());
}

TEST_P(FrameRemoval, TakesTheNewBoundsTimeFromTheFrameItself)
{
    insert_frames({1, 3, 6});
    slot_of(3)->ts = 12345;
    EXPECT_EQ(remove(slot_of(1)), 0);
    EXPECT_EQ(q->min_ts, 12345);
    EXPECT_EQ(remove(slot_of(6)), 0);
    EXPECT_EQ(q->max_ts, 12345);
}

TEST_P(FrameRemoval, FailsSilentlyOnAnEmptyQueue)
{
    insert_frames({1});
    q->count = 0;
    EXPECT_EQ(remove(slot_of(1)), -1);
    EXPECT_EQ(q->count, 0);
    EXPECT_EQ(slot_of(1)->n_pkts_received, 1);
    EXPECT_TRUE(logged().empty());
}

TEST_P(FrameRemoval, FailsOutsideTheBoundsOnly)
{
    const struct {
        uint32_t frame;
        int result;
    } rows[] = {{7, -1}, {8, 0}, {10, 0}, {12, 0}, {13, -1}, {0x80000008, -1}, {0x80000009, -1}, {0x8000000C, -1}};

    for (const auto kind : {stream_kind::receiving, stream_kind::sending}) {
        for (const auto &row : rows) {
            use(kind);
            insert_frames({8, 10, 12});
            video_frame *frame = slot_of(row.frame);
            video_frame outside = {};
            if (row.result != 0) {
                outside.frame_seq = frame_seq(row.frame);
                frame = &outside;
            }
            EXPECT_EQ(remove(frame), row.result) << row.frame;
            EXPECT_EQ(q->count, row.result == 0 ? 2 : 3);
            EXPECT_EQ(logged(), row.result == 0 ? lines{} : lines{fail_line(row.frame, 8, 12)});
        }
    }
}

TEST_P(FrameRemoval, LeavesAFrameOutsideTheBoundsUntouched)
{
    insert_frames({7, 8, 12});
    q->min_frame_seq = frame_seq(8);
    stream->pkt_seq = pkt(7);
    EXPECT_EQ(remove(slot_of(7)), -1);
    EXPECT_EQ(slot_of(7)->n_pkts_received, 1);
    EXPECT_EQ(entry_of(7), slot_index_of(7));
    EXPECT_EQ(stream->pkt_seq, pkt(7));
    EXPECT_EQ(q->count, 3);
    expect_bounds(8, 12);
    EXPECT_EQ(logged(), (lines{fail_line(7, 8, 12)}));
}

// The caller is trusted: what it passes need not be in the queue.
TEST_P(FrameRemoval, CountsOutAFrameThatIsGoneAlready)
{
    insert_frames({1, 3, 6});
    drop(slot_of(3));
    EXPECT_EQ(remove(slot_of(3)), 0);
    EXPECT_EQ(q->count, 2);
    expect_bounds(1, 6);
}

TEST_P(FrameRemoval, KeepsTheLowerBoundWhenNoFrameFollows)
{
    insert_frames({1, 6});
    drop(slot_of(6));
    EXPECT_EQ(remove(slot_of(1)), 0);
    expect_is_empty(slot_of(1));
    EXPECT_EQ(q->count, 1);
    expect_bounds(1, 6);
    EXPECT_EQ(q->min_ts, ts_of(1));
    EXPECT_EQ(logged(), (lines{absent_line(1, 6, 1)}));
}

// The words of the line are the same as for the oldest frame, the outcome is not.
TEST_P(FrameRemoval, FailsWhenNoFramePrecedesTheNewest)
{
    insert_frames({1, 6});
    drop(slot_of(1));
    EXPECT_EQ(remove(slot_of(6)), -1);
    EXPECT_EQ(slot_of(6)->n_pkts_received, 1);
    EXPECT_EQ(entry_of(6), slot_index_of(6));
    EXPECT_EQ(q->count, 1); // counted out all the same
    expect_bounds(1, 6);
    EXPECT_EQ(q->max_ts, ts_of(6));
    EXPECT_EQ(logged(), (lines{absent_line(1, 6, 1)}));
}

TEST_P(FrameRemoval, LogsBothEndsWhenTheOnlyFrameWithinTheBoundsGoesWhileAnotherIsCounted)
{
    for (const auto kind : {stream_kind::receiving, stream_kind::sending}) {
        use(kind);
        insert_frames({0, 0x80000000});
        EXPECT_EQ(q->count, 2);
        EXPECT_EQ(remove(slot_of(0)), -1);
        EXPECT_EQ(slot_of(0)->n_pkts_received, 1);
        EXPECT_EQ(q->count, 1);
        EXPECT_EQ(logged(), (lines{absent_line(0, 0, 1), absent_line(0, 0, 1)}));
        EXPECT_EQ(remove(slot_of(0)), 0); // nothing else is counted now
        expect_is_empty(slot_of(0));
        EXPECT_TRUE(logged().empty());
    }
}

// Counted down by then, the queue is empty to the searches too, though frames are left.
TEST_P(FrameRemoval, ForgetsFramesThatWereNotCounted)
{
    insert_frames({1, 3, 6});
    q->count = 1;
    EXPECT_EQ(remove(slot_of(1)), 0);
    EXPECT_EQ(q->count, 0);
    expect_bounds(1, 6);
    EXPECT_EQ(slot_of(3)->n_pkts_received, 1);
    EXPECT_EQ(remove(slot_of(3)), -1);
    drop(slot_of(3));
    drop(slot_of(6));
}

TEST_F(FrameRemovalEdge, LogsTheSequencesAsUnsignedNumbers)
{
    insert(packet(0xFFFFFFFE, 100, 1, 0));
    logged();
    video_frame outside = {};
    outside.frame_seq = 0xFFFFFFFF;
    EXPECT_EQ(remove(&outside), -1);
    EXPECT_EQ(logged(), (lines{"3 [CRIT][RCV_VID][chan] remove frame fail, frame_seq [4294967295], but min/max "
                               "frame_seq[4294967294/4294967294]"}));
    q->count = 2;
    EXPECT_EQ(remove(slot_of(0xFFFFFFFE)), -1);
    EXPECT_EQ(logged(RTC_LOG_CRIT), (lines{"3 [CRIT][RCV_VID][chan] Next frame should exist, Q.min=4294967294, "
                                           "Q.max=4294967294, Q.count=1",
                                           "3 [CRIT][RCV_VID][chan] Next frame should exist, Q.min=4294967294, "
                                           "Q.max=4294967294, Q.count=1"}));
}

TEST_F(FrameRemovalEdge, LogsAnEmptyNameWithoutAChannel)
{
    insert(packet(1, 100, 1, 0));
    stream->channel = nullptr;
    video_frame outside = {};
    logged();
    EXPECT_EQ(remove(&outside), -1);
    EXPECT_EQ(logged(), (lines{"3 [CRIT][RCV_VID][] remove frame fail, frame_seq [0], but min/max frame_seq[1/1]"}));
    EXPECT_EQ(remove(slot_of(1)), 0);
    EXPECT_EQ(logged(RTC_LOG_DEBUG).front(), "8 [DEBUG][RCV_VID][] auto fwd due to remove frame, index 1");
    world.silence_log();
    insert(packet(2, 101, 1, 0));
    EXPECT_EQ(remove(&outside), -1);
    EXPECT_EQ(remove(slot_of(2)), 0);
}
