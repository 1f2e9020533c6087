#include "stats/receive_quality.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace
{

struct analyzer_release {
    void operator()(net_rcv_analyzer_t *analyzer) const
    {
        net_rcv_analyzer_del(&analyzer);
    }
};
using analyzer_ptr = std::unique_ptr<net_rcv_analyzer_t, analyzer_release>;

analyzer_ptr new_analyzer()
{
    return analyzer_ptr(net_rcv_analyzer_new());
}

constexpr uint32_t kVideoClock = 90000; // Hz

void add_seqs(net_rcv_analyzer_t *analyzer, const std::vector<seq_t> &seqs)
{
    for (const seq_t seq : seqs) {
        net_rcv_analyzer_on_packet(analyzer, seq, 0, kVideoClock, 0);
    }
}

// ---- The analyser's life ----

TEST(ReceiveAnalyzerLifecycle, BeginsWithNothingCounted)
{
    const analyzer_ptr analyzer = new_analyzer();
    ASSERT_NE(nullptr, analyzer);
    EXPECT_EQ(0u, net_rcv_analyzer_received(analyzer.get()));
    EXPECT_EQ(0u, net_rcv_analyzer_duplicates(analyzer.get()));
    EXPECT_EQ(0u, net_rcv_analyzer_expected(analyzer.get()));
    EXPECT_EQ(0u, net_rcv_analyzer_highest_seq(analyzer.get()));
    EXPECT_EQ(0, net_rcv_analyzer_lost(analyzer.get()));
    EXPECT_EQ(0u, net_rcv_analyzer_take_fraction_lost(analyzer.get()));
    EXPECT_EQ(0u, net_rcv_analyzer_jitter(analyzer.get()));
}

TEST(ReceiveAnalyzerLifecycle, ResetForgetsThePeriod)
{
    const analyzer_ptr analyzer = new_analyzer();
    net_rcv_analyzer_on_packet(analyzer.get(), 100, 0, kVideoClock, 0);
    net_rcv_analyzer_on_packet(analyzer.get(), 200, 0, kVideoClock, 500);
    ASSERT_LT(0u, net_rcv_analyzer_jitter(analyzer.get()));
    net_rcv_analyzer_reset(analyzer.get());
    EXPECT_EQ(0u, net_rcv_analyzer_jitter(analyzer.get()));
    add_seqs(analyzer.get(), {50, 51});
    EXPECT_EQ(2u, net_rcv_analyzer_received(analyzer.get()));
    EXPECT_EQ(2u, net_rcv_analyzer_expected(analyzer.get()));
    EXPECT_EQ(51u, net_rcv_analyzer_highest_seq(analyzer.get()));
}

TEST(ReceiveAnalyzerLifecycle, DeletionClearsThePointer)
{
    net_rcv_analyzer_t *analyzer = net_rcv_analyzer_new();
    net_rcv_analyzer_del(&analyzer);
    EXPECT_EQ(nullptr, analyzer);
    net_rcv_analyzer_del(&analyzer);
    EXPECT_EQ(nullptr, analyzer);
    net_rcv_analyzer_del(nullptr);
}

TEST(ReceiveAnalyzerLifecycle, TakesNoAnalyserQuietly)
{
    net_rcv_analyzer_on_packet(nullptr, 1, 2, kVideoClock, 3);
    net_rcv_analyzer_reset(nullptr);
}

// ---- Loss ----

struct loss_case {
    const char *name;
    std::vector<seq_t> seqs;
    uint64_t received;
    uint64_t duplicates;
    uint64_t expected;
    uint32_t highest;
    uint8_t fraction;
};

const loss_case kLossCases[] = {
    {"InOrder", {10, 11, 12}, 3, 0, 3, 12, 0},
    {"OneOfFourMissing", {10, 11, 13}, 3, 0, 4, 13, 64},
    {"ThreeOfFourMissing", {10, 13, 16, 19, 22, 25}, 6, 0, 16, 25, 160},
    {"Reordered", {10, 12, 11, 13}, 4, 0, 4, 13, 0},
    {"DuplicateOfNewest", {10, 11, 11}, 2, 1, 2, 11, 0},
    {"DuplicateOfOlder", {10, 11, 12, 10, 11}, 3, 2, 3, 12, 0},
    {"DuplicateHidesNoLoss", {10, 10, 10, 13}, 2, 2, 4, 13, 128},
    {"DuplicateOfLatePacket", {10, 12, 11, 11}, 3, 1, 3, 12, 0},
    {"AcrossWrap", {65534, 65535, 0, 1}, 4, 0, 4, 65537, 0},
    {"LostAcrossWrap", {65534, 1}, 2, 0, 4, 65537, 128},
    {"LateAcrossWrap", {65534, 0, 65535}, 3, 0, 3, 65536, 0},
    {"FirstIsNumber0", {0, 1}, 2, 0, 2, 1, 0},
    {"BeforeTheFirst", {10, 9, 11}, 2, 0, 2, 11, 0},
    {"BeforeTheFirstAcrossWrap", {0, 65535, 1}, 2, 0, 2, 1, 0},
    {"FarthestJumpForward", {0, 32767}, 2, 0, 32768, 32767, 255},
    {"HalfCircleIsNotForward", {0, 32768}, 1, 0, 1, 0, 0},
    {"Nearly64Behind", {0, 63, 0}, 2, 1, 64, 63, 248},
    {"TooFarBehindToKnow", {0, 64, 0}, 3, 0, 65, 64, 244},
};

TEST(ReceiveAnalyzerLoss, CountsWhatCameAgainstWhatWasExpected)
{
    for (const loss_case &row : kLossCases) {
        SCOPED_TRACE(row.name);
        const analyzer_ptr analyzer = new_analyzer();
        add_seqs(analyzer.get(), row.seqs);
        EXPECT_EQ(row.received, net_rcv_analyzer_received(analyzer.get()));
        EXPECT_EQ(row.duplicates, net_rcv_analyzer_duplicates(analyzer.get()));
        EXPECT_EQ(row.expected, net_rcv_analyzer_expected(analyzer.get()));
        EXPECT_EQ(row.highest, net_rcv_analyzer_highest_seq(analyzer.get()));
        EXPECT_EQ(static_cast<int64_t>(row.expected) - static_cast<int64_t>(row.received),
                  net_rcv_analyzer_lost(analyzer.get()));
        EXPECT_EQ(row.fraction, net_rcv_analyzer_take_fraction_lost(analyzer.get()));
    }
}

TEST(ReceiveAnalyzerLoss, CountsOverManyWraps)
{
    const analyzer_ptr analyzer = new_analyzer();
    for (uint32_t i = 0; i < 200000; i++) {
        if (i % 4 != 1) {
            add_seqs(analyzer.get(), {static_cast<seq_t>(65000 + i)});
        }
    }
    EXPECT_EQ(150000u, net_rcv_analyzer_received(analyzer.get()));
    EXPECT_EQ(200000u, net_rcv_analyzer_expected(analyzer.get()));
    EXPECT_EQ(264999u, net_rcv_analyzer_highest_seq(analyzer.get()));
    EXPECT_EQ(50000, net_rcv_analyzer_lost(analyzer.get()));
}

TEST(ReceiveAnalyzerLoss, TakesTheFractionOfEachIntervalAlone)
{
    const analyzer_ptr analyzer = new_analyzer();
    add_seqs(analyzer.get(), {1, 3});
    EXPECT_EQ(85u, net_rcv_analyzer_take_fraction_lost(analyzer.get())); // 1 of 3
    EXPECT_EQ(0u, net_rcv_analyzer_take_fraction_lost(analyzer.get()));  // none expected
    add_seqs(analyzer.get(), {4, 5, 6, 7});
    EXPECT_EQ(0u, net_rcv_analyzer_take_fraction_lost(analyzer.get()));
    add_seqs(analyzer.get(), {2, 8}); // more received than expected
    EXPECT_EQ(0u, net_rcv_analyzer_take_fraction_lost(analyzer.get()));
    EXPECT_EQ(0, net_rcv_analyzer_lost(analyzer.get()));
    add_seqs(analyzer.get(), {10});
    EXPECT_EQ(128u, net_rcv_analyzer_take_fraction_lost(analyzer.get()));
    EXPECT_EQ(1, net_rcv_analyzer_lost(analyzer.get()));
}

TEST(ReceiveAnalyzerLoss, IsHeldWithin24Bits)
{
    const analyzer_ptr above = new_analyzer();
    for (uint32_t i = 0; i < 300; i++) {
        add_seqs(above.get(), {static_cast<seq_t>(i * 32767)});
    }
    EXPECT_EQ(0x7FFFFF, net_rcv_analyzer_lost(above.get()));

    // Duplicates too far behind to be known.
    const analyzer_ptr below = new_analyzer();
    add_seqs(below.get(), {0, 100});
    for (uint32_t i = 0; i < 0x800000 + 200; i++) {
        net_rcv_analyzer_on_packet(below.get(), 0, 0, kVideoClock, 0);
    }
    EXPECT_EQ(-0x800000, net_rcv_analyzer_lost(below.get()));
}

// ---- Jitter ----

struct arrival {
    zeb_ts_t now;
    uint32_t timestamp;
    uint32_t jitter; // after it
};

// Worked out by hand from RFC 3550, A.8, in sixteenths: 0, 30, 30+30-2 = 58, 58+60-4 = 114, 114+0-7 = 107,
// 107+9000-7 = 9100; the last timestamp steps back.
const arrival kArrivals[] = {{0, 0, 0}, {33, 3000, 1}, {66, 6000, 3}, {100, 9000, 7}, {100, 9000, 6}, {100, 0, 568}};

TEST(ReceiveAnalyzerJitter, FollowsTheRfcWhereverTheClocksStand)
{
    const uint32_t timestamps[] = {0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF - 3000, 0xFFFFFFFF};
    // Whole seconds, so that the rounding of the arrival time stays the same.
    const zeb_ts_t times[] = {0, 1000, 47722000, 4294967000, 4294968000, UINT64_C(1) << 62, UINT64_MAX - 9615};
    for (const uint32_t timestamp : timestamps) {
        for (const zeb_ts_t time : times) {
            SCOPED_TRACE(testing::Message() << "timestamp " << timestamp << " time " << time);
            const zeb_ts_t whole = time - time % 1000;
            const analyzer_ptr analyzer = new_analyzer();
            seq_t seq = 65534;
            for (const arrival &row : kArrivals) {
                net_rcv_analyzer_on_packet(analyzer.get(), seq++, timestamp + row.timestamp, kVideoClock,
                                           whole + row.now);
                EXPECT_EQ(row.jitter, net_rcv_analyzer_jitter(analyzer.get()));
            }
        }
    }
}

TEST(ReceiveAnalyzerJitter, HoldsTheLargestDifference)
{
    const analyzer_ptr analyzer = new_analyzer();
    net_rcv_analyzer_on_packet(analyzer.get(), 0, 0, kVideoClock, 0);
    net_rcv_analyzer_on_packet(analyzer.get(), 1, 0x80000000, kVideoClock, 0);
    EXPECT_EQ(0x08000000u, net_rcv_analyzer_jitter(analyzer.get()));
    for (seq_t seq = 2; seq < 2000; seq++) {
        net_rcv_analyzer_on_packet(analyzer.get(), seq, (seq & 1u) << 31, kVideoClock, 0);
    }
    EXPECT_NEAR(2147483648.0, net_rcv_analyzer_jitter(analyzer.get()), 1.0);
}

TEST(ReceiveAnalyzerJitter, IgnoresKnownDuplicates)
{
    const analyzer_ptr analyzer = new_analyzer();
    net_rcv_analyzer_on_packet(analyzer.get(), 1, 0, kVideoClock, 0);
    net_rcv_analyzer_on_packet(analyzer.get(), 1, 0, kVideoClock, 1000);
    EXPECT_EQ(0u, net_rcv_analyzer_jitter(analyzer.get()));
}

TEST(ReceiveAnalyzerJitter, StartsOverWhenTheClockRateChanges)
{
    const analyzer_ptr analyzer = new_analyzer();
    net_rcv_analyzer_on_packet(analyzer.get(), 1, 0, kVideoClock, 0);
    net_rcv_analyzer_on_packet(analyzer.get(), 2, 0, kVideoClock, 1000);
    EXPECT_EQ(5625u, net_rcv_analyzer_jitter(analyzer.get()));
    net_rcv_analyzer_on_packet(analyzer.get(), 3, 0, 8000, 2000);
    EXPECT_EQ(0u, net_rcv_analyzer_jitter(analyzer.get()));
    net_rcv_analyzer_on_packet(analyzer.get(), 4, 0, 8000, 2010);
    EXPECT_EQ(5u, net_rcv_analyzer_jitter(analyzer.get()));
}

TEST(ReceiveAnalyzerJitter, StaysZeroWithoutAClockRate)
{
    const analyzer_ptr analyzer = new_analyzer();
    for (seq_t seq = 0; seq < 10; seq++) {
        net_rcv_analyzer_on_packet(analyzer.get(), seq, seq * 1000u, 0, 0);
    }
    EXPECT_EQ(0u, net_rcv_analyzer_jitter(analyzer.get()));
    EXPECT_EQ(10u, net_rcv_analyzer_received(analyzer.get()));
}

// ---- The calculators embedded in a stream ----

struct interval_case {
    const char *name;
    std::vector<seq_t> seqs;
    seq_t seq_min;
    seq_t seq_max;
    uint16_t n_received;
    uint16_t n_expected;
    uint16_t lost;
};

const interval_case kIntervals[] = {
    {"One", {7}, 7, 7, 1, 1, 0},
    {"InOrder", {7, 8, 9}, 7, 9, 3, 3, 0},
    {"Gap", {7, 10}, 7, 10, 2, 4, 2},
    {"Reordered", {9, 7, 8}, 7, 9, 3, 3, 0},
    {"AcrossWrap", {65534, 1}, 65534, 1, 2, 4, 2},
    {"BackAcrossWrap", {1, 65534}, 65534, 1, 2, 4, 2},
    {"DuplicateCountsAsReceived", {7, 7, 9}, 7, 9, 3, 3, 0},
    {"MoreDuplicatesThanLost", {7, 7, 7, 9}, 7, 9, 4, 3, 0},
    {"LateWithinMoreThanHalfTheCircle", {0, 30000, 60000, 59000}, 0, 60000, 4, 60001, 59997},
    {"WholeCircleButOne", {0, 30000, 60000, 65534}, 0, 65534, 4, 65535, 65531},
};

TEST(SeqLostCalculator, KeepsTheEndsOfTheInterval)
{
    for (const interval_case &row : kIntervals) {
        SCOPED_TRACE(row.name);
        seq_lost_calculator_t calculator = {};
        for (const seq_t seq : row.seqs) {
            seq_lost_calculator_on_packet(&calculator, seq);
        }
        EXPECT_EQ(row.seq_min, calculator.seq_min);
        EXPECT_EQ(row.seq_max, calculator.seq_max);
        EXPECT_EQ(row.n_received, calculator.n_received);
        EXPECT_EQ(row.n_expected, calculator.n_expected);
        EXPECT_EQ(row.lost, seq_lost_calculator_lost(&calculator));
    }
}

TEST(SeqLostCalculator, StartsAnewAfterInit)
{
    seq_lost_calculator_t calculator = {};
    seq_lost_calculator_on_packet(&calculator, 100);
    seq_lost_calculator_on_packet(&calculator, 200);
    seq_lost_calculator_init(&calculator);
    EXPECT_EQ(0u, seq_lost_calculator_lost(&calculator));
    seq_lost_calculator_on_packet(&calculator, 50);
    EXPECT_EQ(50u, calculator.seq_min);
    EXPECT_EQ(50u, calculator.seq_max);
    EXPECT_EQ(1u, calculator.n_expected);
}

TEST(SeqLostCalculator, StopsCountingAtTheEndOfItsRange)
{
    seq_lost_calculator_t calculator = {};
    for (int i = 0; i < 65540; i++) {
        seq_lost_calculator_on_packet(&calculator, 1);
    }
    EXPECT_EQ(65535u, calculator.n_received);
    EXPECT_EQ(1u, calculator.seq_min);
}

TEST(JitterCalculator, FollowsTheRfcWhereverTheClocksStand)
{
    // Sixteenths: 0, 5, 5+5-0 = 10, 10+100-1 = 109, 109+0-7 = 102.
    const struct {
        uint16_t frame_ts;
        zeb_ts_t now;
        int32_t j;
        uint32_t jitter;
    } rows[] = {{0, 0, 0, 0}, {40, 45, 5, 0}, {80, 80, 10, 0}, {120, 220, 109, 6}, {160, 260, 102, 6}};
    const uint16_t timestamps[] = {0, 32700, 65500};
    const zeb_ts_t times[] = {0, 65400, UINT64_C(1) << 40};
    for (const uint16_t timestamp : timestamps) {
        for (const zeb_ts_t time : times) {
            SCOPED_TRACE(testing::Message() << "timestamp " << timestamp << " time " << time);
            jitter_calculator_t calculator = {};
            for (const auto &row : rows) {
                jitter_calculator_on_packet(&calculator, static_cast<uint16_t>(timestamp + row.frame_ts),
                                            time + row.now);
                EXPECT_EQ(row.j, calculator.j);
                EXPECT_EQ(row.jitter, jitter_calculator_jitter(&calculator));
            }
            EXPECT_EQ(5u, calculator.n);
            EXPECT_EQ(time + 260, calculator.last_got_at);
            EXPECT_EQ(static_cast<uint16_t>(timestamp + 160), calculator.last_frame_ts);
        }
    }
}

TEST(JitterCalculator, TakesALongPauseOfBothClocksForNoJitter)
{
    jitter_calculator_t calculator = {};
    jitter_calculator_on_packet(&calculator, 100, 5000);
    jitter_calculator_on_packet(&calculator, static_cast<uint16_t>(100 + 200000), 5000 + 200000);
    EXPECT_EQ(0, calculator.j);
}

TEST(JitterCalculator, HoldsTheLargestDifference)
{
    jitter_calculator_t calculator = {};
    for (uint32_t i = 0; i < 2000; i++) {
        jitter_calculator_on_packet(&calculator, static_cast<uint16_t>((i & 1) << 15), 0);
    }
    EXPECT_NEAR(32768.0, jitter_calculator_jitter(&calculator), 1.0);
}

TEST(JitterCalculator, StartsAnewAfterInit)
{
    jitter_calculator_t calculator = {};
    jitter_calculator_on_packet(&calculator, 0, 0);
    jitter_calculator_on_packet(&calculator, 0, 1000);
    EXPECT_LT(0u, jitter_calculator_jitter(&calculator));
    jitter_calculator_init(&calculator);
    EXPECT_EQ(0u, jitter_calculator_jitter(&calculator));
    jitter_calculator_on_packet(&calculator, 7, 9000);
    EXPECT_EQ(0, calculator.j);
    EXPECT_EQ(1u, calculator.n);
}

} // namespace
