#include "arrival/reception.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr size_t kSize = 100;

struct arrivals {
    std::unique_ptr<reception> state = std::make_unique<reception>();
    stream_report report = {};
    zeb_ts_t now = 5000;

    reception_verdict take(uint16_t seq, uint32_t timestamp = 0, bool is_retrans = false)
    {
        const reception_packet packet = {seq, timestamp, kSize, is_retrans, false, PACKET_ROLE_OTHER};
        return reception_note(state.get(), &report, &packet, now);
    }

    uint32_t number(uint16_t seq) const
    {
        return reception_number(state.get(), seq);
    }
};

struct row {
    const char *what;
    std::vector<int> seqs; // relative to the first one; retransmissions have 100000 added
    std::vector<reception_verdict> verdicts;
    uint64_t lost;
    uint64_t gaps;
    uint64_t reordered;
};

constexpr int kRetrans = 100000;

class Reception : public testing::TestWithParam<row>
{
};

TEST_P(Reception, TellsPacketsApartFromEveryStartingPoint)
{
    const row &expected = GetParam();
    for (const uint16_t base : {uint16_t{0}, uint16_t{1}, uint16_t{32767}, uint16_t{65534}, uint16_t{65535}}) {
        arrivals in;
        std::vector<reception_verdict> verdicts;
        for (const int seq : expected.seqs) {
            const bool is_retrans = seq >= kRetrans / 2;
            verdicts.push_back(
                in.take(static_cast<uint16_t>(base + (is_retrans ? seq - kRetrans : seq)), 0, is_retrans));
        }
        EXPECT_EQ(verdicts, expected.verdicts) << expected.what << " from " << base;
        EXPECT_EQ(in.report.packets_lost, expected.lost) << expected.what << " from " << base;
        EXPECT_EQ(in.report.gaps, expected.gaps) << expected.what << " from " << base;
        EXPECT_EQ(in.report.packets_reordered, expected.reordered) << expected.what << " from " << base;
        EXPECT_EQ(in.report.packets, expected.seqs.size());
        EXPECT_EQ(in.report.bytes, expected.seqs.size() * kSize);
    }
}

constexpr auto New = RECEPTION_NEWEST;
constexpr auto Old = RECEPTION_EARLIER;
constexpr auto Twice = RECEPTION_DUPLICATE;
constexpr auto Stray = RECEPTION_STRAY;
constexpr auto Resumed = RECEPTION_RESUMED;
constexpr auto Restarted = RECEPTION_RESTARTED;

INSTANTIATE_TEST_SUITE_P(
    Table, Reception,
    testing::Values(
        row{"in order", {0, 1, 2}, {New, New, New}, 0, 0, 0}, row{"one missing", {0, 2}, {New, New}, 1, 1, 0},
        row{"a hole of three filled from its end", {0, 4, 3, 2, 1}, {New, New, Old, Old, Old}, 0, 1, 3},
        row{"two holes", {0, 2, 5}, {New, New, New}, 3, 2, 0},
        row{"a duplicate of the newest and of an older one", {0, 1, 1, 0}, {New, New, Twice, Twice}, 0, 0, 0},
        row{"before the first", {0, -2}, {New, Old}, 1, 0, 1},
        row{"before the first, hole filled", {0, -2, -1}, {New, Old, Old}, 0, 0, 2},
        row{"a hole filled by retransmission", {0, 2, kRetrans + 1}, {New, New, Old}, 0, 1, 0},
        row{"the largest gap", {0, 99}, {New, New}, 98, 1, 0},
        row{"a long loss, confirmed", {0, 100, 101}, {New, Stray, Resumed}, 99, 1, 0},
        row{"the longest loss, confirmed", {0, 2999, 3000, 3001}, {New, Stray, Resumed, New}, 2998, 1, 0},
        row{"a long loss, confirmed from behind", {0, 400, 399}, {New, Stray, Resumed}, 398, 1, 1},
        row{"a long loss, confirmed by one that is no jump", {0, 100, 99}, {New, Stray, Resumed}, 98, 1, 1},
        row{"a jump ahead that the next one denies", {0, 100, 1, 2}, {New, Stray, New, New}, 0, 0, 0},
        row{"a jump ahead twice the same", {0, 400, 400, 1}, {New, Stray, Stray, New}, 0, 0, 0},
        row{"a jump ahead alone", {0, 3000, 1}, {New, Stray, New}, 0, 0, 0},
        row{"a jump ahead confirmed", {0, 3000, 3001, 3002}, {New, Stray, Restarted, New}, 0, 0, 0},
        row{"the oldest late packet", {0, -1999}, {New, Old}, 1998, 0, 1},
        row{"a jump back alone", {0, -2000, 1}, {New, Stray, New}, 0, 0, 0},
        row{"a jump back confirmed", {0, -20000, -19999}, {New, Stray, Restarted}, 0, 0, 0},
        row{"two strays that are not neighbours", {0, -20000, 20000}, {New, Stray, Stray}, 0, 0, 0},
        row{"a stray forgotten", {0, 5000, 1, 5001}, {New, Stray, New, Stray}, 0, 0, 0},
        row{"old retransmissions prove nothing", {0, kRetrans - 5000, kRetrans - 4999}, {New, Stray, Stray}, 0, 0, 0}));

// ---- Numbers taken twice ----

struct stamped {
    int seq; // relative to the first one
    uint32_t timestamp;
};

struct contradiction {
    const char *what;
    std::vector<stamped> packets;
    std::vector<reception_verdict> verdicts;
};

class ReceptionOfTakenNumbers : public testing::TestWithParam<contradiction>
{
};

TEST_P(ReceptionOfTakenNumbers, KnowsANewNumberingByItsTimestamps)
{
    for (const int base : {1000, 65534, 0}) {
        arrivals in;
        std::vector<reception_verdict> verdicts;
        for (const stamped &packet : GetParam().packets) {
            verdicts.push_back(in.take(static_cast<uint16_t>(base + packet.seq), packet.timestamp));
        }
        EXPECT_EQ(verdicts, GetParam().verdicts) << GetParam().what << " from " << base;
    }
}

constexpr uint32_t kFar = 50000000; // timestamp units from those of before

INSTANTIATE_TEST_SUITE_P(
    Table, ReceptionOfTakenNumbers,
    testing::Values(
        contradiction{"from the newest", {{0, 0}, {1, 0}, {1, kFar}, {2, kFar}}, {New, New, Stray, Restarted}},
        contradiction{"from an older one", {{0, 0}, {1, 0}, {0, kFar}, {1, kFar}}, {New, New, Stray, Restarted}},
        contradiction{"from before the first", {{0, 0}, {-50, kFar}, {-49, kFar}}, {New, Stray, Restarted}},
        contradiction{"late from before the first", {{0, 9000}, {-50, 6000}}, {New, Old}},
        contradiction{
            "onto a hole first", {{0, 0}, {2, 0}, {1, kFar}, {2, kFar}, {3, kFar}}, {New, New, Stray, Restarted, New}},
        contradiction{"into a long hole",
                      {{0, 0}, {90, 3000}, {40, kFar}, {41, kFar}, {42, kFar}},
                      {New, New, Stray, Restarted, New}},
        contradiction{"late into a hole behind a pause", {{0, 0}, {90, kFar}, {40, 3000}}, {New, New, Old}},
        contradiction{
            "late into a hole behind timestamps that went back", {{0, kFar}, {90, 0}, {40, kFar}}, {New, New, Old}},
        contradiction{"and the former one's next packet comes late",
                      {{20, 0}, {21, 0}, {0, kFar}, {1, kFar}, {22, 3000}, {2, kFar}, {22, kFar}},
                      {New, New, Stray, Restarted, Stray, New, New}},
        contradiction{"and back to the former one",
                      {{20, 0}, {21, 0}, {0, kFar}, {1, kFar}, {22, 3000}, {23, 3000}, {24, 6000}},
                      {New, New, Stray, Restarted, Stray, Restarted, New}},
        contradiction{"a copy", {{0, 0}, {1, 3000}, {1, 3000}, {0, 0}, {2, 6000}}, {New, New, Twice, Twice, New}},
        contradiction{
            "a copy of the newest, damaged", {{0, 0}, {1, 3000}, {1, kFar}, {2, 6000}}, {New, New, Stray, New}},
        contradiction{"an older copy, damaged",
                      {{0, 0}, {1, 3000}, {0, kFar}, {1, 3000}, {2, 6000}},
                      {New, New, Stray, Twice, New}},
        contradiction{"and behind all of them",
                      {{0, 0}, {1, 0}, {2, 0}, {0, kFar}, {4, kFar}, {5, kFar}},
                      {New, New, New, Stray, Restarted, New}},
        contradiction{"two that are not neighbours",
                      {{0, 0}, {1, 0}, {2, 0}, {0, kFar}, {2, kFar}, {3, 0}},
                      {New, New, New, Stray, Stray, New}}));

TEST(ReceptionHistory, BelievesAPacketWhoseNumberWasTakenForPadding)
{
    arrivals in;
    in.take(10, 3000);
    in.take(12, 6000);
    reception_note_padding(in.state.get(), in.number(11), 3000);
    EXPECT_EQ(in.take(11, 6000), RECEPTION_DUPLICATE);
}

TEST(ReceptionHistory, TellsALatePacketFromADuplicateAcrossTheWholeHistory)
{
    arrivals in;
    for (int i = 0; i < 10000; i++) {
        if (i != 8500) {
            in.take(static_cast<uint16_t>(60000 + i));
        }
    }
    EXPECT_EQ(in.take(static_cast<uint16_t>(60000 + 8499)), RECEPTION_DUPLICATE);
    EXPECT_EQ(in.take(static_cast<uint16_t>(60000 + 8500)), RECEPTION_EARLIER);
    EXPECT_EQ(in.take(static_cast<uint16_t>(60000 + 8500)), RECEPTION_DUPLICATE);
    EXPECT_EQ(in.report.packets_lost, 0u);
}

TEST(ReceptionHistory, ProvesABeginningByThePacketBeforeItWithAnotherTimestamp)
{
    arrivals in;
    in.take(65534, 3000);
    in.take(65535, 3000);
    in.take(0, 6000);
    in.take(2, 9000);
    EXPECT_TRUE(reception_proves_beginning(in.state.get(), in.number(0), 6000));
    EXPECT_FALSE(reception_proves_beginning(in.state.get(), in.number(65535), 3000)) << "same timestamp before it";
    EXPECT_FALSE(reception_proves_beginning(in.state.get(), in.number(65534), 3000)) << "nothing before it";
    EXPECT_FALSE(reception_proves_beginning(in.state.get(), in.number(2), 9000)) << "a hole before it";
}

TEST(ReceptionHistory, KnowsPaddingInsideAFrameByThePacketsBehindIt)
{
    arrivals in;
    in.take(10, 6000);
    in.take(13, 6000);
    in.take(15, 9000);
    reception_note_padding(in.state.get(), in.number(14), 6000);
    EXPECT_TRUE(reception_is_inside_frame(in.state.get(), in.number(11), 6000));
    EXPECT_FALSE(reception_is_inside_frame(in.state.get(), in.number(13), 6000)) << "nothing but padding behind it";
    EXPECT_FALSE(reception_is_inside_frame(in.state.get(), in.number(16), 6000)) << "nothing behind it";
}

TEST(ReceptionHistory, ForgottenPacketMayComeAgain)
{
    arrivals in;
    in.take(10);
    in.take(11);
    reception_forget(in.state.get(), &in.report, in.number(11));
    EXPECT_EQ(in.report.packets_lost, 1u);
    EXPECT_EQ(in.take(11, 0, true), RECEPTION_EARLIER);
    EXPECT_EQ(in.report.packets_lost, 0u);
}

TEST(ReceptionNumber, CountsCyclesInItsHighestNumber)
{
    arrivals in;
    EXPECT_EQ(reception_highest(in.state.get()), 0u);
    in.take(65535);
    EXPECT_EQ(reception_highest(in.state.get()), 65535u);
    in.take(0);
    EXPECT_EQ(reception_highest(in.state.get()), 65536u);
    in.take(65535);
    EXPECT_EQ(reception_highest(in.state.get()), 65536u) << "a late packet is no newer one";
}

TEST(ReceptionJitter, IsZeroForAnEvenStream)
{
    arrivals in;
    for (uint16_t i = 0; i < 50; i++) {
        in.now += 40;
        in.take(i, 4294960000u + i * 3600u); // across the wrap of the timestamp
    }
    EXPECT_EQ(in.report.jitter, 0u);
}

// RFC 3550, A.8: the first difference D counts with a sixteenth. D is 10 ms, 900 timestamp units.
TEST(ReceptionJitter, TakesASixteenthOfADifference)
{
    arrivals in;
    in.take(0, 0);
    in.now += 50;
    in.take(1, 3600);
    EXPECT_EQ(in.report.jitter, 900u / 16);
}

TEST(ReceptionJitter, LeavesRetransmissionsOut)
{
    arrivals in;
    in.take(0, 0);
    in.now += 500;
    in.take(1, 3600, true);
    EXPECT_EQ(in.report.jitter, 0u);
    EXPECT_EQ(in.report.packets_retransmitted, 1u);
}

TEST(ReceptionTimes, KeepsTheFirstAndTheLastArrival)
{
    arrivals in;
    in.take(0);
    in.now = 7000;
    in.take(1);
    EXPECT_EQ(in.report.first_packet_at, 5000u);
    EXPECT_EQ(in.report.last_packet_at, 7000u);
}

// Packets of before that come late have numbers and timestamps like those that the new numbering gets to soon.
TEST(ReceptionRestart, MayUseTheSameNumbersAndNearlyTheSameTimestampsAgain)
{
    arrivals in;
    for (uint32_t start = 0; start < 3; start++) {
        for (uint16_t i = 0; i < 90; i++) {
            const reception_verdict verdict = in.take(static_cast<uint16_t>(1000 + i), 900000 + i * 3000u + start * 70);
            const bool is_second_start = start > 0 && i < 2;
            if (!is_second_start) {
                EXPECT_EQ(verdict, RECEPTION_NEWEST) << "start " << start << ", packet " << i;
            }
        }
    }
}

TEST(ReceptionRestart, IsNotTakenFromAPacketWhoseNumberADamagedOneHad)
{
    for (const uint16_t base : {uint16_t{100}, uint16_t{65530}}) {
        const auto seq = [base](int i) { return static_cast<uint16_t>(base + i); };
        arrivals in;
        in.take(seq(0), 60000);
        in.take(seq(1), 63000);
        EXPECT_EQ(in.take(seq(7), 66000), RECEPTION_NEWEST) << "2 is damaged so";
        EXPECT_EQ(in.take(seq(6), 78000), RECEPTION_EARLIER);
        EXPECT_EQ(in.take(seq(7), 81000), RECEPTION_DUPLICATE);
        EXPECT_EQ(in.take(seq(8), 84000), RECEPTION_NEWEST);
    }
}

// What there was no memory for is forgotten, and with it the timestamp that the first packet had.
TEST(ReceptionForgets, ThatItsFirstPacketCameAndStillKnowsANewNumbering)
{
    for (const int n_forgotten : {1, 5}) { // one of five, all of them
        arrivals in;
        for (uint16_t seq = 1000; seq < 1005; seq++) {
            in.take(seq, 0x12345678);
        }
        for (int i = 0; i < n_forgotten; i++) {
            reception_forget(in.state.get(), &in.report, in.number(static_cast<uint16_t>(1000 + i)));
        }
        EXPECT_EQ(in.take(1, 0), RECEPTION_STRAY) << n_forgotten;
        EXPECT_EQ(in.take(2, 0), RECEPTION_RESTARTED) << n_forgotten;
    }
}

} // namespace
