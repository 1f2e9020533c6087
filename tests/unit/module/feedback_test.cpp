#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <unistd.h>
#include <vector>

#include "log_gate.h"
#include "packets.h"
#include "test_stream.h"

using namespace test_support;

namespace
{

using bytes = std::vector<uint8_t>;

// A stream whose feedback is on.
class Reporter
{
  public:
    explicit Reporter(uint8_t stream_id = 0) : t(stream_kind::receiving, stream_id, true), stat(t.stream->bcm_stat)
    {
        t.stream->is_nass = 1;
    }

    // Puts a frame of one packet, or one packet of two, into the queue.
    video_frame *add_frame(uint32_t frame_seq, bool is_complete = true)
    {
        native_fields fields = {frame_seq, static_cast<uint16_t>(is_complete ? 1 : 2), 0, next_pkt_seq};
        fields.rtp.seq = static_cast<seq_t>(next_pkt_seq + 1000);
        next_pkt_seq = static_cast<seq_t>(next_pkt_seq + fields.n_pkts);
        PVideoData4 video = native_packet(fields);
        video_frame *frame = video_stream_insert_video_packet(t.stream, &video, 0, &now);
        EXPECT_NE(nullptr, frame) << frame_seq;
        return frame;
    }

    void walk()
    {
        video_stream_check_send_goodbad_pic(t.stream, &now);
        EXPECT_EQ("", broken_invariants(*t.stream));
    }

    void send(video_frame *frame, bool continuous = false)
    {
        video_stream_send_goodbad_pic(t.stream, frame, continuous, &now);
    }

    void sample(PVideoData4 *video, bool is_original = true)
    {
        video_stream_send_bandwidth_est(t.stream, video, is_original, &now);
    }

    TestStream t;
    KelvraBcmStatistics *stat;
    seq_t next_pkt_seq = 65530; // so that sequence numbers wrap soon
    zeb_ts_t now = 1000;
};

std::vector<uint32_t> reported(const World &world)
{
    std::vector<uint32_t> frame_seqs;

    for (const decode_result &result : world.decode_results) {
        frame_seqs.push_back(result.frame_seq);
    }
    return frame_seqs;
}

// -- The gate --

struct gate_case {
    const char *name;
    std::function<void(Reporter *)> prepare;
    bool is_open;
};

const gate_case kGate[] = {
    {"all conditions hold", [](Reporter *) {}, true},
    {"any value of is_nass", [](Reporter *r) { r->t.stream->is_nass = 255; }, true},
    {"channel does not estimate",
     [](Reporter *r) { r->t.channel.bandwidth_est_opt.enable_bandwidth_est_downlink = false; }, false},
    {"no channel", [](Reporter *r) { r->t.stream->channel = nullptr; }, false},
    {"is_nass is 0", [](Reporter *r) { r->t.stream->is_nass = 0; }, false},
    {"second stream", [](Reporter *r) { r->t.stream->stream_id = 1; }, false},
    {"last stream", [](Reporter *r) { r->t.stream->stream_id = 255; }, false},
    {"no statistics", [](Reporter *r) { r->t.stream->bcm_stat = nullptr; }, false},
};

// Calls `act` with the gate of every row and tells whether anything was reported or sampled.
void expect_gated(const std::function<void(Reporter *, video_frame *)> &act)
{
    for (const gate_case &row : kGate) {
        SCOPED_TRACE(row.name);
        World world;
        Reporter r;
        video_frame *frame = r.add_frame(40);
        world.log.clear();
        row.prepare(&r);

        act(&r, frame);
        EXPECT_EQ(row.is_open ? 1u : 0u, world.decode_results.size() + world.samples.size());
        if (!row.is_open) {
            EXPECT_EQ(0, r.stat->last_reported_continuous_frame_number_);
            EXPECT_EQ(0, r.stat->next_send_goodbad_pic_at);
        }
        EXPECT_TRUE(world.log.empty());
        r.t.stream->channel = &r.t.channel;
        r.t.stream->bcm_stat = r.stat;
    }
}

TEST(FeedbackGate, LetsPictureReportsThroughOnFourConditions)
{
    expect_gated([](Reporter *r, video_frame *frame) { r->send(frame); });
}

TEST(FeedbackGate, LetsWalksThroughOnFourConditions)
{
    expect_gated([](Reporter *r, video_frame *) { r->walk(); });
}

TEST(FeedbackGate, LetsBandwidthSamplesThroughOnFourConditions)
{
    expect_gated([](Reporter *r, video_frame *) {
        PVideoData4 video = packet_with(rtp_bytes({}));
        r->sample(&video);
        release(&video);
    });
}

// -- Reporting one frame --

TEST(PictureReport, TellsTheStatisticsAllAboutTheFrame)
{
    for (const bool continuous : {false, true}) {
        SCOPED_TRACE(continuous);
        World world;
        Reporter r;
        r.now = 5000;
        video_frame frame = {}; // needs no place in the queue, nor to be complete
        frame.frame_seq = 0xFFFFFFFF;
        frame.min_rtp_seq = 65534;
        frame.max_rtp_seq = 3;
        frame.queued_ts = 4980;

        r.send(&frame, continuous);
        ASSERT_EQ(1u, world.decode_results.size());
        const decode_result &result = world.decode_results[0];
        EXPECT_EQ(r.stat, result.stat);
        EXPECT_EQ(0xFFFFFFFFu, result.frame_seq);
        EXPECT_EQ(65534, result.min_rtp_seq);
        EXPECT_EQ(3, result.max_rtp_seq);
        EXPECT_EQ(continuous ? 1 : 0, result.continuous);
        EXPECT_EQ(20, result.wait_time);
        EXPECT_EQ(5000u, result.now);
        EXPECT_TRUE(world.log.empty());
    }
}

// The mark is set whether or not the frame was continuous, and is never negative.
TEST(PictureReport, MarksTheFrameAsReportedWhateverItsContinuity)
{
    for (const bool continuous : {false, true}) {
        World world;
        Reporter r;
        video_frame frame = {};
        frame.frame_seq = 0xFFFFFFFF;
        r.stat->last_reported_complete_frame_number_ = 7;

        r.send(&frame, continuous);
        EXPECT_EQ(int64_t{0xFFFFFFFF}, r.stat->last_reported_continuous_frame_number_);
        EXPECT_EQ(7, r.stat->last_reported_complete_frame_number_);
    }
}

TEST(PictureReport, MovesTheMarkBackToo)
{
    World world;
    Reporter r;
    video_frame frame = {};
    frame.frame_seq = 3;
    r.stat->last_reported_continuous_frame_number_ = 100;

    r.send(&frame);
    EXPECT_EQ(3, r.stat->last_reported_continuous_frame_number_);
}

TEST(PictureReport, IsNotPacedAndHoldsTheWalkBackFor500Milliseconds)
{
    World world;
    Reporter r;
    video_frame *frame = r.add_frame(40);

    r.send(frame);
    r.send(frame);
    EXPECT_EQ(2u, world.decode_results.size());
    EXPECT_EQ(1500, r.stat->next_send_goodbad_pic_at);

    r.now = 1200;
    r.send(frame);
    EXPECT_EQ(1700, r.stat->next_send_goodbad_pic_at);
    r.now = 1699;
    r.walk();
    EXPECT_EQ(3u, world.decode_results.size());
    r.now = 1700;
    r.walk();
    EXPECT_EQ(4u, world.decode_results.size());
}

#if GTEST_HAS_DEATH_TEST

[[noreturn]] void send_null_frame(const gate_case &gate, const log_gate &log)
{
    World world;
    Reporter r;
    world.echo_log = true;
    gate.prepare(&r);
    log.set(LM_MIN);
    r.send(nullptr);
    _exit(0);
}

TEST(PictureReportDeathTest, EndsTheProcessForANullFrameWhateverTheGate)
{
    for (const gate_case &gate : kGate) {
        SCOPED_TRACE(gate.name);
        EXPECT_EXIT(send_null_frame(gate, log_gates(RTC_LOG_ERROR)[0]), ::testing::KilledBySignal(SIGABRT),
                    "^<4> \\[ERROR\\] Check \\(frame\\) error\n$");
    }
}

TEST(PictureReportDeathTest, EndsTheProcessForANullFrameAndLogsOnlyWhereItMay)
{
    for (const log_gate &log : log_gates(RTC_LOG_ERROR)) {
        SCOPED_TRACE(log.name);
        EXPECT_EXIT(send_null_frame(kGate[0], log), ::testing::KilledBySignal(SIGABRT),
                    log.is_open ? "^<4> \\[ERROR\\] Check \\(frame\\) error\n$" : "^$");
    }
}

#endif

// -- Waiting times --

struct wait_case {
    zeb_ts_t queued;
    zeb_ts_t now;
    uint16_t wait_time;
};

const wait_case kWaits[] = {
    {1000, 1000, 0},
    {1000, 1040, 40},
    {65530, 65540, 10},
    {0, 65535, 65535},
    {0, 65536, 0},
    {0, 70000, 4464},
    {0x12345FFFF, 0x123460001, 2}, // the low 16 bits of both
    {1001, 1000, 65535},
};

TEST(PictureReport, CountsTheWaitModulo65536)
{
    for (const wait_case &row : kWaits) {
        SCOPED_TRACE(::testing::Message() << row.queued << " to " << row.now);
        World world;
        Reporter r;
        r.now = row.queued;
        video_frame *frame = r.add_frame(40);
        r.now = row.now;

        r.send(frame);
        r.stat->next_send_goodbad_pic_at = 0;
        r.walk();
        ASSERT_EQ(2u, world.decode_results.size());
        EXPECT_EQ(row.wait_time, world.decode_results[0].wait_time);
        EXPECT_EQ(row.wait_time, world.decode_results[1].wait_time);
    }
}

// -- The walk: when --

TEST(PictureWalk, StartsAtOnceWithFreshStatistics)
{
    World world;
    Reporter r;
    r.now = 0;
    r.add_frame(40);
    r.add_frame(41);
    r.add_frame(42, false);
    r.add_frame(43);

    r.walk();
    EXPECT_EQ((std::vector<uint32_t>{40, 41, 43}), reported(world));
    EXPECT_EQ(500, r.stat->next_send_goodbad_pic_at);
    EXPECT_EQ(43, r.stat->last_reported_continuous_frame_number_);
}

struct due_case {
    zeb_ts_t now;
    int64_t next;
    bool is_due;
};

// The due time is compared as an unsigned number.
TEST(PictureWalk, WaitsForItsTime)
{
    const zeb_ts_t half = uint64_t{1} << 63;
    const int64_t lowest = std::numeric_limits<int64_t>::min();
    const due_case cases[] = {
        {0, 0, true},
        {999, 1000, false},
        {1000, 1000, true},
        {1001, 1000, true},
        {0x100000000, 0xFFFFFFFF, true},
        {0xFFFFFFFF, 0x100000000, false},
        {1000, -1, false},
        {half - 1, lowest, false},
        {half, lowest, true},
    };

    for (const due_case &row : cases) {
        SCOPED_TRACE(::testing::Message() << row.now << " against " << row.next);
        World world;
        Reporter r;
        r.add_frame(40);
        r.now = row.now;
        r.stat->next_send_goodbad_pic_at = row.next;

        r.walk();
        EXPECT_EQ(row.is_due ? 1u : 0u, world.decode_results.size());
        EXPECT_EQ(row.is_due ? static_cast<int64_t>(row.now + 500) : row.next, r.stat->next_send_goodbad_pic_at);
    }
}

TEST(PictureWalk, RunsEvery500Milliseconds)
{
    World world;
    Reporter r;
    r.add_frame(40);
    std::vector<zeb_ts_t> times;

    for (r.now = 1000; r.now < 2600; r.now++) {
        const size_t before = world.decode_results.size();
        r.walk();
        if (world.decode_results.size() != before) {
            times.push_back(r.now);
        }
    }
    EXPECT_EQ((std::vector<zeb_ts_t>{1000, 1500, 2000, 2500}), times);
}

TEST(PictureWalk, TriesAgainAtOnceWhileTheQueueIsEmpty)
{
    World world;
    Reporter r;
    r.stat->next_send_goodbad_pic_at = 700;

    r.walk();
    EXPECT_TRUE(world.decode_results.empty());
    EXPECT_EQ(700, r.stat->next_send_goodbad_pic_at);
    r.add_frame(40);
    r.walk();
    EXPECT_EQ(1u, world.decode_results.size());
}

TEST(PictureWalk, WaitsAgainWhenNoFrameIsComplete)
{
    World world;
    Reporter r;
    r.stat->last_reported_continuous_frame_number_ = 41;
    for (const uint32_t frame_seq : {41u, 42u, 43u}) {
        r.add_frame(frame_seq, false);
    }

    r.walk();
    EXPECT_TRUE(world.decode_results.empty());
    EXPECT_EQ(1500, r.stat->next_send_goodbad_pic_at);
    EXPECT_EQ(41, r.stat->last_reported_continuous_frame_number_);
}

// -- The walk: from where --

using frame_list = std::vector<uint32_t>;

struct walk_case {
    const char *name;
    frame_list complete;
    frame_list incomplete;
    int64_t last_complete;
    int64_t last_continuous;
    frame_list reported;
    int64_t marked; // last_reported_continuous_frame_number_ afterwards
};

const frame_list kTen = {10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20};
const frame_list kAroundZero = {0xFFFFFFFE, 0xFFFFFFFF, 0, 1};

const walk_case kWalks[] = {
    {"nothing reported yet", {40, 41, 42}, {}, 0, 0, {40, 41, 42}, 42},
    {"from the frame after the last", {42, 44}, {40, 41, 43, 45}, 0, 41, {42, 44}, 44},
    {"start frame incomplete", {40, 43}, {41, 42}, 0, 41, {43}, 43},
    {"absent frames behind the start are skipped", {40, 41, 50, 60}, {}, 0, 40, {41, 50, 60}, 60},
    {"absent start stalls", {40, 41, 43, 44}, {}, 0, 41, {}, 41},
    {"before the last frame", {40, 41, 42}, {}, 0, 41, {42}, 42},
    // A start outside the queue falls back to its oldest frame.
    {"all reported", {40, 41, 42}, {}, 0, 42, {40, 41, 42}, 42},
    {"far above the queue", kTen, {}, 0, 100, kTen, 20},
    {"just before the queue", kTen, {}, 0, 9, kTen, 20},
    {"below the queue", kTen, {}, 0, 8, kTen, 20},
    {"half the circle above the oldest", kTen, {}, 0, 0x80000009, kTen, 20},
    {"just below half the circle above the oldest", kTen, {}, 0, 0x80000008, kTen, 20},
    {"just below half the circle above the newest", kTen, {}, 0, 0x80000012, kTen, 20},
    // The larger of the two marks, where one of them is at least 1.
    {"complete mark larger", kTen, {}, 15, 12, {16, 17, 18, 19, 20}, 20},
    {"continuous mark larger", kTen, {}, 12, 15, {16, 17, 18, 19, 20}, 20},
    {"marks tie", kTen, {}, 15, 15, {16, 17, 18, 19, 20}, 20},
    {"complete mark alone", kTen, {}, 18, 0, {19, 20}, 20},
    {"continuous mark negative", kTen, {}, 18, -3, {19, 20}, 20},
    {"complete mark negative", kTen, {}, -3, 18, {19, 20}, 20},
    {"complete mark of 1", {0, 1, 2, 3}, {}, 1, 0, {2, 3}, 3},
    {"continuous mark of 1", {0, 1, 2, 3}, {}, 0, 1, {2, 3}, 3},
    {"complete mark of 1 against a negative one", {0, 1, 2, 3}, {}, 1, -9, {2, 3}, 3},
    {"marks of 0 are no marks", kAroundZero, {}, 0, 0, kAroundZero, 1},
    {"marks of -1 are no marks", kAroundZero, {}, -1, -1, kAroundZero, 1},
    {"mark 0 against a negative one is no mark", kAroundZero, {}, 0, -1, kAroundZero, 1},
    {"mark -1 against 0 is no mark", kAroundZero, {}, -1, 0, kAroundZero, 1},
    // Across the end of the numbers, and marks beyond it: of those the low 32 bits count, but all are compared.
    {"mark before the wrap", kAroundZero, {}, 0, 0xFFFFFFFE, {0xFFFFFFFF, 0, 1}, 1},
    {"mark at the wrap", kAroundZero, {}, 0, 0xFFFFFFFF, {0, 1}, 1},
    {"mark above 32 bits", kTen, {}, 0, 0x10000000C, {13, 14, 15, 16, 17, 18, 19, 20}, 20},
    {"mark 2^32", {0, 1, 2}, {}, 0x100000000, 0, {1, 2}, 2},
    {"low bits smaller, value larger", kTen, {}, 0x500000012, 0x10, {19, 20}, 20},
    {"value larger than low bits tell", kTen, {}, 0x10, 0x700000012, {19, 20}, 20},
    {"largest mark", kAroundZero, {}, 0, std::numeric_limits<int64_t>::max(), {0, 1}, 1},
    {"smallest mark", kTen, {}, std::numeric_limits<int64_t>::min(), 18, {19, 20}, 20},
};

TEST(PictureWalk, ReportsTheCompleteFramesFromTheOneAfterTheLastReported)
{
    for (const walk_case &row : kWalks) {
        SCOPED_TRACE(row.name);
        World world;
        Reporter r;
        for (const uint32_t frame_seq : row.complete) {
            r.add_frame(frame_seq);
        }
        for (const uint32_t frame_seq : row.incomplete) {
            r.add_frame(frame_seq, false);
        }
        r.stat->last_reported_complete_frame_number_ = row.last_complete;
        r.stat->last_reported_continuous_frame_number_ = row.last_continuous;

        r.walk();
        EXPECT_EQ(row.reported, reported(world));
        EXPECT_EQ(row.marked, r.stat->last_reported_continuous_frame_number_);
        EXPECT_EQ(row.last_complete, r.stat->last_reported_complete_frame_number_);
        EXPECT_EQ(1500, r.stat->next_send_goodbad_pic_at);
    }
}

TEST(PictureWalk, ReportsAFullQueue)
{
    World world;
    Reporter r;
    frame_list all;
    for (uint32_t i = 0; i < 40; i++) {
        all.push_back(1007 + i);
        r.add_frame(all.back());
    }

    r.walk();
    EXPECT_EQ(all, reported(world));
}

TEST(PictureWalk, ReportsEachFrameAsNotContinuous)
{
    World world;
    Reporter r;
    r.next_pkt_seq = 100;
    r.add_frame(40);
    r.now = 1010;
    r.add_frame(41, false);
    const uint16_t first_rtp_seq = 1103;
    r.now = 1020;
    r.add_frame(42);
    r.now = 1100;

    r.walk();
    ASSERT_EQ(2u, world.decode_results.size());
    const decode_result &first = world.decode_results[0];
    EXPECT_EQ(r.stat, first.stat);
    EXPECT_EQ(1100, first.min_rtp_seq);
    EXPECT_EQ(1100, first.max_rtp_seq);
    EXPECT_EQ(0, first.continuous);
    EXPECT_EQ(100, first.wait_time);
    EXPECT_EQ(1100u, first.now);
    const decode_result &second = world.decode_results[1];
    EXPECT_EQ(first_rtp_seq, second.min_rtp_seq);
    EXPECT_EQ(first_rtp_seq, second.max_rtp_seq);
    EXPECT_EQ(0, second.continuous);
    EXPECT_EQ(80, second.wait_time);
}

TEST(PictureWalk, StallsUntilTheStartFrameArrives)
{
    World world;
    Reporter r;
    r.stat->last_reported_continuous_frame_number_ = 41;
    for (const uint32_t frame_seq : {40u, 41u, 43u, 44u}) {
        r.add_frame(frame_seq);
    }

    for (int i = 0; i < 3; i++, r.now += 500) {
        r.walk();
        EXPECT_TRUE(world.decode_results.empty());
        EXPECT_EQ(static_cast<int64_t>(r.now + 500), r.stat->next_send_goodbad_pic_at);
    }
    r.add_frame(42);
    r.walk();
    EXPECT_EQ((frame_list{42, 43, 44}), reported(world));
}

TEST(PictureWalk, GoesOnAfterAStallWhenASingleReportMovesTheMark)
{
    World world;
    Reporter r;
    r.stat->last_reported_continuous_frame_number_ = 41;
    r.add_frame(40);
    r.add_frame(41);
    video_frame *frame = r.add_frame(43);
    r.add_frame(44);

    r.walk();
    r.send(frame);
    r.now += 500;
    r.walk();
    EXPECT_EQ((frame_list{43, 44}), reported(world));
}

TEST(PictureWalk, GoesOnAfterAStallWhenTheQueueHasMovedOn)
{
    World world;
    Reporter r;
    r.stat->last_reported_continuous_frame_number_ = 41;
    video_frame *oldest = r.add_frame(41);
    r.add_frame(43);
    r.add_frame(44);

    r.walk();
    EXPECT_TRUE(world.decode_results.empty());
    ASSERT_EQ(0, video_stream_remove_frame(r.t.stream, oldest));
    r.now += 500;
    r.walk();
    EXPECT_EQ((frame_list{43, 44}), reported(world));
}

// -- Bandwidth samples --

// Only what is read counts: number 0x1234, timestamp 0x56789ABC.
const bytes kRtpPacket = {0x80, 0x60, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 1, 2, 3, 4, 5};

TEST(BandwidthSample, TellsTheStatisticsAllAboutThePacket)
{
    for (const bool is_original : {true, false}) {
        SCOPED_TRACE(is_original ? "original" : "retransmission");
        World world;
        Reporter r;
        r.now = 0x123456789A;
        PVideoData4 video = packet_with(kRtpPacket);
        video.common.sent_ts = 0xFEDC;

        r.sample(&video, is_original);
        ASSERT_EQ(1u, world.samples.size());
        EXPECT_EQ(r.stat, world.samples[0].stat);
        EXPECT_EQ(0x1234, world.samples[0].sequence_number);
        EXPECT_EQ(0x56789ABCu, world.samples[0].timestamp);
        EXPECT_EQ(13, world.samples[0].size);
        EXPECT_EQ(0x123456789Au, world.samples[0].now);
        EXPECT_EQ(is_original ? 0 : 1, world.samples[0].retrans_flag);
        EXPECT_TRUE(world.log.empty());
        release(&video);
    }
}

TEST(BandwidthSample, CarriesTheSendersTimeWhereThatIsAskedFor)
{
    World world;
    Reporter r;
    r.stat->use_sent_ts_enable_ = true;
    PVideoData4 video = packet_with(kRtpPacket);
    video.common.sent_ts = 0xFEDC;

    r.sample(&video, false);
    ASSERT_EQ(1u, world.samples.size());
    EXPECT_EQ(0xFEDCu, world.samples[0].timestamp);
    EXPECT_EQ(0x1234, world.samples[0].sequence_number);
    EXPECT_EQ(1, world.samples[0].retrans_flag);
    release(&video);
}

TEST(BandwidthSample, IsNeitherPacedNorDoesItPaceTheWalk)
{
    World world;
    Reporter r;
    PVideoData4 video = packet_with(kRtpPacket);

    r.sample(&video);
    r.sample(&video);
    EXPECT_EQ(2u, world.samples.size());
    EXPECT_EQ(0, r.stat->next_send_goodbad_pic_at);
    EXPECT_EQ(0, r.stat->last_reported_continuous_frame_number_);
    EXPECT_TRUE(world.decode_results.empty());
    release(&video);
}

TEST(BandwidthSample, TellsTheSizeOfTheLargestPacket)
{
    World world;
    Reporter r;
    PVideoData4 video = packet_with(bytes(65535, 0));

    r.sample(&video);
    ASSERT_EQ(1u, world.samples.size());
    EXPECT_EQ(65535, world.samples[0].size);
    release(&video);
}

struct cut_case {
    size_t size;
    uint16_t sequence_number;
    uint32_t timestamp;
};

TEST(BandwidthSample, TakesAbsentBytesForZero)
{
    const cut_case cases[] = {
        {0, 0, 0},
        {1, 0, 0},
        {2, 0, 0},
        {3, 0x1200, 0},
        {4, 0x1234, 0},
        {5, 0x1234, 0x56000000},
        {6, 0x1234, 0x56780000},
        {7, 0x1234, 0x56789A00},
        {8, 0x1234, 0x56789ABC},
    };

    for (const cut_case &row : cases) {
        SCOPED_TRACE(::testing::Message() << row.size << " bytes");
        World world;
        Reporter r;
        PVideoData4 video = packet_with(bytes(kRtpPacket.begin(), kRtpPacket.begin() + static_cast<int>(row.size)));

        r.sample(&video);
        ASSERT_EQ(1u, world.samples.size());
        EXPECT_EQ(row.sequence_number, world.samples[0].sequence_number);
        EXPECT_EQ(row.timestamp, world.samples[0].timestamp);
        EXPECT_EQ(row.size, world.samples[0].size);
        release(&video);
    }
}

// -- The stream --

TEST(Feedback, WritesNothingToTheStream)
{
    World world;
    Reporter r;
    video_frame *frame = r.add_frame(40);
    PVideoData4 video = packet_with(kRtpPacket);
    const auto *first = reinterpret_cast<const uint8_t *>(r.t.stream);
    const bytes before(first, first + sizeof(*r.t.stream));
    const size_t n_allocations = world.allocations.size();

    r.send(frame, true);
    r.now += 500;
    r.walk();
    r.sample(&video);
    EXPECT_EQ(before, bytes(first, first + sizeof(*r.t.stream)));
    EXPECT_EQ(n_allocations, world.allocations.size());
    release(&video);
}

} // namespace
