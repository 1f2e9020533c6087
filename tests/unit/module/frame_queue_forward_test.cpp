// The expected packet: how removals and whole frames move it forward, and the counters that it clears.
#include <gtest/gtest.h>

#include "frame_queue_fixture.h"

using namespace frame_queue_test;

namespace
{

class ExpectedPacket : public FrameQueueFrom
{
  protected:
    // The lines say where a move goes before it wraps.
    std::string part_line(const video_frame *frame, const std::string &from, uint16_t index) const
    {
        return rcv(RTC_LOG_INFO, "part of pkts, n_pkts_total " + std::to_string(frame->n_pkts_total) +
                                     ", n_pkts_received " + std::to_string(frame->n_pkts_received) + ", expect_seq " +
                                     from + " --> " + std::to_string(frame->first_pkt_seq + index));
    }

    std::string whole_line(const video_frame *frame, const std::string &from) const
    {
        const auto last = static_cast<seq_t>(frame->first_pkt_seq + frame->n_pkts_total - 1);

        return rcv(RTC_LOG_INFO, "get all pkts, n_pkts_total " + std::to_string(frame->n_pkts_total) +
                                     ", n_pkts_received " + std::to_string(frame->n_pkts_total) + ", expect_seq " +
                                     from + " --> " + std::to_string(last + 1));
    }

    std::string expected(seq_t offset) const
    {
        return std::to_string(pkt(offset));
    }

    // The entries of the packets from `first` up to and not including `end`.
    std::vector<size_t> entries(seq_t first, seq_t end) const
    {
        std::vector<bool> is_in(1280);
        std::vector<size_t> result;

        for (seq_t offset = first; offset != end; offset++) {
            is_in[pkt(offset) % 1280] = true;
        }
        for (size_t i = 0; i < is_in.size(); i++) {
            if (is_in[i]) {
                result.push_back(i);
            }
        }
        return result;
    }
};

using ExpectedPacketEdge = FrameQueue;

INSTANTIATE_TEST_SUITE_P(From, ExpectedPacket, ::testing::Values(start::somewhere, start::across_wraps), start_name);

} // namespace

// -- Moving forward --

TEST_P(ExpectedPacket, ClearsTheCountersThatItPasses)
{
    stream->pkt_seq = pkt(3);
    mark_counters();
    move_forward(pkt(9));
    EXPECT_EQ(stream->pkt_seq, pkt(9));
    EXPECT_EQ(cleared_counters(), entries(3, 9));
    EXPECT_TRUE(logged().empty());
}

TEST_P(ExpectedPacket, IsSetWithoutClearingWhenItWasNotKnown)
{
    mark_counters();
    move_forward(pkt(9));
    EXPECT_EQ(stream->pkt_seq, pkt(9));
    EXPECT_TRUE(cleared_counters().empty());
}

TEST_P(ExpectedPacket, NeverMovesBack)
{
    for (const int back : {0, 1, 2, 1000, 0x7FFF, 0x8000}) {
        stream->pkt_seq = pkt(3);
        mark_counters();
        move_forward(static_cast<seq_t>(pkt(3) - back));
        EXPECT_EQ(stream->pkt_seq, pkt(3)) << back;
        EXPECT_TRUE(cleared_counters().empty()) << back;
    }
}

TEST_P(ExpectedPacket, MovesUpToJustBelowHalfACircle)
{
    stream->pkt_seq = pkt(3);
    mark_counters();
    move_forward(static_cast<seq_t>(pkt(3) + 0x7FFF));
    EXPECT_EQ(stream->pkt_seq, static_cast<seq_t>(pkt(3) + 0x7FFF));
    EXPECT_EQ(cleared_counters().size(), 1280u);
}

TEST_P(ExpectedPacket, MovesByOne)
{
    stream->pkt_seq = pkt(3);
    mark_counters();
    move_forward(pkt(4));
    EXPECT_EQ(stream->pkt_seq, pkt(4));
    EXPECT_EQ(cleared_counters(), entries(3, 4));
}

TEST_F(ExpectedPacketEdge, SkipsTheEntriesAbove255AtTheWrap)
{
    stream->pkt_seq = 65534;
    mark_counters();
    move_forward(2);
    EXPECT_EQ(stream->pkt_seq, 2u);
    EXPECT_EQ(cleared_counters(), (std::vector<size_t>{0, 1, 254, 255}));
}

TEST_F(ExpectedPacketEdge, ClearsEveryCounterOnALongWayWhereverItWraps)
{
    for (const seq_t from : std::initializer_list<seq_t>{65000, 64256, 62977, 65535, 0, 1279}) {
        stream->pkt_seq = from;
        mark_counters();
        move_forward(static_cast<seq_t>(from + 20000));
        EXPECT_EQ(cleared_counters().size(), 1280u) << from;
    }
}

TEST_F(ExpectedPacketEdge, GoesOnFromEntry1279ToEntry0)
{
    stream->pkt_seq = 1278;
    mark_counters();
    move_forward(1281);
    EXPECT_EQ(cleared_counters(), (std::vector<size_t>{0, 1278, 1279}));
}

TEST_F(ExpectedPacketEdge, IsKnownWhenItIs65535)
{
    stream->pkt_seq = 65535;
    mark_counters();
    move_forward(0);
    EXPECT_EQ(stream->pkt_seq, 0u);
    EXPECT_EQ(cleared_counters(), (std::vector<size_t>{255}));
}

// -- Moving over frames --

TEST_P(ExpectedPacket, StopsAtTheFirstHole)
{
    video_frame *frame = insert_frame(0, 0, 3, {0, 1});

    logged();
    mark_counters();
    auto_forward(frame, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(2));
    EXPECT_EQ(cleared_counters(), entries(0, 2));
    EXPECT_EQ(logged(), (lines{part_line(frame, expected(0), 2)}));
}

TEST_P(ExpectedPacket, LooksForTheHoleFromTheIndexGiven)
{
    const struct {
        uint16_t index_start;
        uint16_t stops_at;
    } rows[] = {{0, 1}, {1, 1}, {2, 4}, {3, 4}, {4, 4}, {5, 6}, {6, 6}, {9, 9}};

    for (const auto &row : rows) {
        use(stream_kind::receiving);
        video_frame *frame = insert_frame(0, 0, 6, {0, 2, 3, 5});
        logged();
        auto_forward(frame, row.index_start);
        EXPECT_EQ(stream->pkt_seq, pkt(row.stops_at)) << row.index_start;
        EXPECT_EQ(logged(), (lines{part_line(frame, expected(0), row.stops_at)}));
    }
}

// A hole is where there never was a buffer: one without bytes is passed.
TEST_P(ExpectedPacket, PassesABufferWithoutBytes)
{
    video_frame *frame = insert_frame(0, 0, 4, {0, 2});

    frame->pkts[1].values = zeb_malloc_impl_dbg(1, "test buffer", __LINE__);
    frame->pkts[1].allocated = 1;
    auto_forward(frame, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(3));
}

TEST_P(ExpectedPacket, StaysBehindAFrameWithoutPackets)
{
    video_frame *frame = insert_bytes(packet(0, 4, 2, 1), {});

    stream->pkt_seq = pkt(0);
    logged();
    auto_forward(frame, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(4));
    EXPECT_EQ(logged(), (lines{part_line(frame, expected(0), 0)}));
}

TEST_P(ExpectedPacket, MovesOverWholeFramesIntoTheFirstIncompleteOne)
{
    video_frame *first = insert_frame(0, 0, 2, {1, 0});
    video_frame *second = insert_frame(1, 2, 1, {0});
    video_frame *third = insert_frame(2, 3, 4, {0, 3});
    insert_frame(3, 7, 1, {0});

    logged();
    mark_counters();
    auto_forward(first, 1); // the index counts for an incomplete frame only
    EXPECT_EQ(stream->pkt_seq, pkt(4));
    EXPECT_EQ(cleared_counters(), entries(0, 4));
    EXPECT_EQ(logged(), (lines{whole_line(first, expected(0)), whole_line(second, expected(2)),
                               part_line(third, expected(3), 1)}));
}

TEST_P(ExpectedPacket, ForgetsTheIndexGivenInTheNextFrame)
{
    video_frame *first = insert_frame(0, 0, 1, {0});
    insert_frame(1, 1, 4, {0, 2, 3});
    auto_forward(first, 2);
    EXPECT_EQ(stream->pkt_seq, pkt(2));
}

TEST_P(ExpectedPacket, FindsTheHoleAtTheBeginningOfTheNextFrame)
{
    video_frame *first = insert_frame(0, 0, 1, {0});
    insert_frame(1, 1, 3, {1, 2});
    auto_forward(first, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(1));
}

TEST_P(ExpectedPacket, StopsBehindTheNewestFrame)
{
    video_frame *first = insert_frame(0, 0, 1, {0});
    const video_frame *last = insert_frame(1, 1, 3, {0, 1, 2});

    logged();
    auto_forward(first, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(4));
    EXPECT_EQ(logged(), (lines{whole_line(first, expected(0)), whole_line(last, expected(1))}));
}

// Frames behind the newest one are not looked at, even when they are there.
TEST_P(ExpectedPacket, StopsAtTheUpperBoundThoughAFrameFollows)
{
    video_frame *first = insert_frame(0, 0, 1, {0});

    insert_frame(1, 1, 1, {0});
    q->max_frame_seq = frame_seq(0);
    auto_forward(first, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(1));
    q->max_frame_seq = frame_seq(0xFFFFFFFF);
    stream->pkt_seq = pkt(0);
    auto_forward(first, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(1));
    q->max_frame_seq = frame_seq(0x80000000); // half a circle: not reached
    stream->pkt_seq = pkt(0);
    auto_forward(first, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(2));
}

TEST_P(ExpectedPacket, NeverMovesPastAFrameThatIsAbsent)
{
    video_frame *first = insert_frame(0, 0, 1, {0});

    insert_frame(2, 2, 1, {0});
    logged();
    auto_forward(first, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(1));
    EXPECT_EQ(logged(), (lines{whole_line(first, expected(0))}));

    insert_frame(1, 1, 1, {0});
    drop(slot_of(1)); // its sequence number is still in the slot
    stream->pkt_seq = pkt(0);
    auto_forward(first, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(1));
}

TEST_P(ExpectedPacket, FindsNoFurtherFrameWhileTheQueueCountsNone)
{
    video_frame *first = insert_frame(0, 0, 1, {0});

    insert_frame(1, 1, 1, {0});
    q->count = 0;
    auto_forward(first, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(1));
}

// Each of the 40 slots is passed at most once, even when the newest frame is further off.
TEST_F(ExpectedPacketEdge, EndsAfterFortyWholeFrames)
{
    for (uint32_t frame = 40; frame < 80; frame++) {
        insert(packet(frame, static_cast<seq_t>(frame), 1, 0));
    }
    q->max_frame_seq = 1000;
    auto_forward(slot_of(40), 0);
    EXPECT_EQ(stream->pkt_seq, 80u);
}

TEST_P(ExpectedPacket, IgnoresNoFrameAndAnEmptyOne)
{
    insert_frame(0, 0, 3, {0});
    drop(slot_of(0));
    logged();
    auto_forward(nullptr, 0);
    auto_forward(slot_of(0), 2);
    EXPECT_EQ(stream->pkt_seq, pkt(0));
    EXPECT_TRUE(logged().empty());
}

TEST_P(ExpectedPacket, StaysWhereItIsAheadOfTheFrames)
{
    video_frame *first = insert_frame(0, 0, 2, {0, 1});
    video_frame *second = insert_frame(1, 2, 3, {0});

    stream->pkt_seq = pkt(50);
    logged();
    mark_counters();
    auto_forward(first, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(50));
    EXPECT_TRUE(cleared_counters().empty());
    EXPECT_EQ(logged(), (lines{whole_line(first, expected(50)), part_line(second, expected(50), 1)}));
}

TEST_P(ExpectedPacket, IsShownAsMinusOneWhileItIsNotKnown)
{
    video_frame *frame = insert_frame(0, 0, 3, {0});

    stream->pkt_seq = 0xFFFFFFFF;
    logged();
    mark_counters();
    auto_forward(frame, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(1));
    EXPECT_TRUE(cleared_counters().empty());
    EXPECT_EQ(logged(), (lines{part_line(frame, "-1", 1)}));
}

// Both functions log as a receiving stream's, whoever calls.
TEST_P(ExpectedPacket, LogsUnderTheReceivingModuleForASendingStreamToo)
{
    use(stream_kind::sending);
    video_frame *first = insert_frame(0, 0, 1, {0});
    video_frame *second = insert_frame(1, 1, 2, {0});
    logged();
    auto_forward(first, 0);
    EXPECT_EQ(stream->pkt_seq, pkt(2));
    EXPECT_EQ(logged(), (lines{whole_line(first, expected(0)), part_line(second, expected(1), 1)}));
}

// A move that ends behind packet 65535 is shown with the number before it wraps.
TEST_F(ExpectedPacketEdge, IsShownUnwrappedWhereItGoes)
{
    insert(packet(1, 65535, 1, 0));
    insert(packet(2, 0, 2, 0));
    logged();
    auto_forward(slot_of(1), 0);
    EXPECT_EQ(stream->pkt_seq, 1u);
    EXPECT_EQ(logged(), (lines{"7 [INFO][RCV_VID] get all pkts, n_pkts_total 1, n_pkts_received 1, "
                               "expect_seq 65535 --> 65536",
                               "7 [INFO][RCV_VID] part of pkts, n_pkts_total 2, n_pkts_received 1, "
                               "expect_seq 0 --> 1"}));
}

// -- Removal --

TEST_P(ExpectedPacket, MovesPastARemovedFrameThatIsIncomplete)
{
    insert_frame(0, 5, 10, {1, 5});
    insert_frame(1, 15, 1, {0});
    stream->pkt_seq = pkt(10);
    video_frame *frame = slot_of(0);
    const video_frame before = *frame;
    logged();
    mark_counters();
    EXPECT_EQ(remove(frame), 0);
    EXPECT_EQ(stream->pkt_seq, pkt(15)); // and not over the whole frame behind it
    EXPECT_EQ(cleared_counters(), entries(10, 15));
    EXPECT_EQ(logged(), (lines{vid_chan(RTC_LOG_DEBUG, "auto fwd due to remove frame, index 10"),
                               part_line(&before, expected(10), 10)}));
}

TEST_P(ExpectedPacket, MovesOverTheFramesBehindARemovedOneThatIsWhole)
{
    insert_frame(0, 0, 2, {0, 1});
    insert_frame(1, 2, 2, {0, 1});
    insert_frame(2, 4, 3, {0});
    const video_frame first = *slot_of(0);
    logged();
    EXPECT_EQ(remove(slot_of(0)), 0);
    EXPECT_EQ(stream->pkt_seq, pkt(5));
    EXPECT_EQ(logged(),
              (lines{vid_chan(RTC_LOG_DEBUG, "auto fwd due to remove frame, index 2"), whole_line(&first, expected(0)),
                     whole_line(slot_of(1), expected(2)), part_line(slot_of(2), expected(4), 1)}));
}

TEST_P(ExpectedPacket, MovesForARemovedFrameThatReachesIt)
{
    const struct {
        int expected_from_last; // of the removed frame
        bool reaches;
        bool moves; // at 0x7FFF the packet behind the frame is half a circle away
    } rows[] = {
        {2, false, false},      {1, false, false},       {0, true, true},
        {-1, true, true},       {-4, true, true},        {-0x7FFE, true, true},
        {-0x7FFF, true, false}, {-0x8000, false, false}, {0x7FFF, false, false},
    };

    for (const auto &row : rows) {
        use(stream_kind::receiving);
        insert_frame(0, 0, 5, {2});
        const auto before = static_cast<seq_t>(pkt(4) + row.expected_from_last);
        stream->pkt_seq = before;
        logged();
        EXPECT_EQ(remove(slot_of(0)), 0);
        EXPECT_EQ(stream->pkt_seq, row.moves ? pkt(5) : before) << row.expected_from_last;
        EXPECT_EQ(logged().size(), row.reaches ? 2u : 0u) << row.expected_from_last;
    }
}

TEST_P(ExpectedPacket, StaysWhenASendingStreamsFrameIsRemoved)
{
    use(stream_kind::sending);
    insert_frame(0, 0, 2, {0, 1});
    insert_frame(1, 2, 2, {0});
    logged();
    mark_counters();
    EXPECT_EQ(remove(slot_of(0)), 0);
    EXPECT_EQ(remove(slot_of(1)), 0);
    EXPECT_EQ(stream->pkt_seq, pkt(0));
    EXPECT_TRUE(cleared_counters().empty());
    EXPECT_TRUE(logged().empty());
}

TEST_P(ExpectedPacket, MovesThoughTheRemovalFailsForWantOfAnOlderFrame)
{
    insert_frame(0, 0, 2, {0});
    q->count = 2;
    EXPECT_EQ(remove(slot_of(0)), -1);
    EXPECT_EQ(stream->pkt_seq, pkt(2));
    EXPECT_EQ(slot_of(0)->n_pkts_received, 1);
}
