#include "kelvra_bcm_stat.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "rate/bcm_feedback.h"
#include "rate/rate_estimator.h"

namespace
{

struct stat_release {
    void operator()(KelvraBcmStatistics *stat) const
    {
        KelvraBcmStat_Destroy(stat);
    }
};
using stat_ptr = std::unique_ptr<KelvraBcmStatistics, stat_release>;

int g_stream; // stands for the stream: only its address is kept

stat_ptr new_stat()
{
    const KelvraBcmStatisticsConfig config = {&g_stream};
    return stat_ptr(KelvraBcmStat_Create(&config));
}

void expect_all_zero_but_configuration(const KelvraBcmStatistics &stat)
{
    EXPECT_EQ(0, stat.last_reported_continuous_frame_number_);
    EXPECT_EQ(0, stat.last_reported_complete_frame_number_);
    EXPECT_EQ(0, stat.next_send_goodbad_pic_at);
    EXPECT_EQ(0u, stat.n_packets);
    EXPECT_EQ(0u, stat.n_bytes);
    EXPECT_EQ(0u, stat.n_retransmitted);
    EXPECT_EQ(0u, stat.n_pictures);
    EXPECT_EQ(0u, stat.n_pictures_good);
    EXPECT_EQ(0u, stat.first_packet_at);
    EXPECT_EQ(0u, stat.last_packet_at);
    EXPECT_EQ(0u, stat.wait_time_sum);
    EXPECT_EQ(0u, stat.wait_time_max);
    EXPECT_EQ(0u, stat.highest_sequence);
    EXPECT_EQ(0u, stat.remb_bps);
    EXPECT_EQ(0u, stat.remb_n_packets);
    EXPECT_EQ(0u, stat.remb_at);
    EXPECT_EQ(0u, bcm_stat_estimate_bps(&stat));
}

TEST(BcmStatLifecycle, BeginsWithTheConfigurationAndNothingElse)
{
    const stat_ptr stat = new_stat();
    ASSERT_NE(nullptr, stat);
    EXPECT_EQ(&g_stream, stat->stream);
    EXPECT_FALSE(stat->use_sent_ts_enable_);
    expect_all_zero_but_configuration(*stat);
}

TEST(BcmStatLifecycle, NeedsAConfiguration)
{
    EXPECT_EQ(nullptr, KelvraBcmStat_Create(nullptr));
}

TEST(BcmStatLifecycle, ResetKeepsTheConfiguration)
{
    const stat_ptr stat = new_stat();
    stat->use_sent_ts_enable_ = true;
    stat->last_reported_continuous_frame_number_ = 1;
    stat->last_reported_complete_frame_number_ = 2;
    stat->next_send_goodbad_pic_at = 3;
    const zeb_ts_t now = 1000;
    KelvraBcmStat_OnRecvPacket(stat.get(), 9, 90, 1200, now, 1);
    KelvraBcmStat_OnDecodeResult(stat.get(), 1, 2, 3, 1, 40, &now);

    KelvraBcmStat_Reset(stat.get());
    EXPECT_EQ(&g_stream, stat->stream);
    EXPECT_TRUE(stat->use_sent_ts_enable_);
    expect_all_zero_but_configuration(*stat);
}

TEST(BcmStatLifecycle, TakesNoObjectQuietly)
{
    const zeb_ts_t now = 0;
    KelvraBcmStat_Destroy(nullptr);
    KelvraBcmStat_Reset(nullptr);
    uint64_t bps = 7;
    EXPECT_FALSE(bcm_stat_take_remb(nullptr, now, &bps));
    EXPECT_EQ(7u, bps);
    EXPECT_EQ(0u, bcm_stat_estimate_bps(nullptr));
    KelvraBcmStat_OnRecvPacket(nullptr, 0, 0, 0, now, 0);
    KelvraBcmStat_OnDecodeResult(nullptr, 0, 0, 0, 0, 0, &now);
}

TEST(BcmStatPackets, AreCountedWithTheirBytes)
{
    const stat_ptr stat = new_stat();
    KelvraBcmStat_OnRecvPacket(stat.get(), 1, 0, 65535, 5, 0);
    KelvraBcmStat_OnRecvPacket(stat.get(), 2, 0, 65535, 6, 1);
    KelvraBcmStat_OnRecvPacket(stat.get(), 3, 0, 10, 9, 0);
    EXPECT_EQ(3u, stat->n_packets);
    EXPECT_EQ(131080u, stat->n_bytes);
    EXPECT_EQ(1u, stat->n_retransmitted);
    EXPECT_EQ(5u, stat->first_packet_at);
    EXPECT_EQ(9u, stat->last_packet_at);
}

TEST(BcmStatPackets, MayComeAtTimeZero)
{
    const stat_ptr stat = new_stat();
    KelvraBcmStat_OnRecvPacket(stat.get(), 1, 0, 1, 0, 0);
    KelvraBcmStat_OnRecvPacket(stat.get(), 2, 0, 1, 7, 0);
    EXPECT_EQ(0u, stat->first_packet_at);
    EXPECT_EQ(7u, stat->last_packet_at);
}

TEST(BcmStatPackets, MoveTheNewestNumberForwardOnly)
{
    const stat_ptr stat = new_stat();
    const struct {
        uint16_t seq;
        uint16_t highest;
    } rows[] = {{40000, 40000}, {40002, 40002}, {40001, 40002}, {65535, 65535}, {0, 0}, {65534, 0}, {3, 3}};
    for (const auto &row : rows) {
        KelvraBcmStat_OnRecvPacket(stat.get(), row.seq, 0, 1, 1, 0);
        EXPECT_EQ(row.highest, stat->highest_sequence) << "after " << row.seq;
    }
}

TEST(BcmStatPictures, AreCountedWithTheirWaits)
{
    const stat_ptr stat = new_stat();
    const zeb_ts_t now = 1000;
    KelvraBcmStat_OnDecodeResult(stat.get(), 10, 1, 2, 1, 40, &now);
    KelvraBcmStat_OnDecodeResult(stat.get(), 11, 3, 4, 0, 65535, &now);
    KelvraBcmStat_OnDecodeResult(stat.get(), 12, 5, 6, 1, 1, &now);
    EXPECT_EQ(3u, stat->n_pictures);
    EXPECT_EQ(2u, stat->n_pictures_good);
    EXPECT_EQ(65576u, stat->wait_time_sum);
    EXPECT_EQ(65535u, stat->wait_time_max);
}

TEST(BcmStatPictures, LeaveTheMarkersOfTheWalkToTheStream)
{
    const stat_ptr stat = new_stat();
    const zeb_ts_t now = 1000;
    KelvraBcmStat_OnDecodeResult(stat.get(), 10, 1, 2, 1, 40, &now);
    EXPECT_EQ(0, stat->last_reported_continuous_frame_number_);
    EXPECT_EQ(0, stat->last_reported_complete_frame_number_);
    EXPECT_EQ(0, stat->next_send_goodbad_pic_at);
}

// ---- Estimator ----

// Tells what the test wants, and keeps what it was told.
struct told_estimator {
    rate_estimator base;
    uint64_t bps;
    int n_resets;
    bool *is_destroyed;
    std::vector<rate_sample> samples;
};

told_estimator *told(rate_estimator *base)
{
    return reinterpret_cast<told_estimator *>(base);
}

void told_destroy(rate_estimator *base)
{
    *told(base)->is_destroyed = true;
}

void told_reset(rate_estimator *base)
{
    told(base)->n_resets++;
}

void told_on_packet(rate_estimator *base, const rate_sample *sample)
{
    told(base)->samples.push_back(*sample);
}

uint64_t told_estimate_bps(const rate_estimator *base)
{
    return reinterpret_cast<const told_estimator *>(base)->bps;
}

constexpr rate_estimator_ops kTold = {nullptr, told_destroy, told_reset, told_on_packet, told_estimate_bps};

class BcmStatEstimator : public ::testing::Test
{
  protected:
    BcmStatEstimator()
    {
        stat->estimator->ops->destroy(stat->estimator);
        stat->estimator = &estimator.base;
    }

    void receive(zeb_ts_t now)
    {
        KelvraBcmStat_OnRecvPacket(stat.get(), 1, 0, 1200, now, 0);
    }

    bool is_destroyed = false;
    told_estimator estimator = {{&kTold}, 0, 0, &is_destroyed, {}};
    stat_ptr stat = new_stat();
};

TEST_F(BcmStatEstimator, IsGivenEachPacketAsItCame)
{
    KelvraBcmStat_OnRecvPacket(stat.get(), 65535, 0xFFFFFFFF, 1200, 1234567890123, 0);
    stat->use_sent_ts_enable_ = true;
    KelvraBcmStat_OnRecvPacket(stat.get(), 0, 65535, 1, 1234567890124, 1);

    ASSERT_EQ(2u, estimator.samples.size());
    const rate_sample &original = estimator.samples[0];
    EXPECT_EQ(65535, original.seq);
    EXPECT_EQ(1200, original.size);
    EXPECT_EQ(0xFFFFFFFF, original.timestamp);
    EXPECT_EQ(SEND_CLOCK_RTP_90KHZ, original.clock);
    EXPECT_FALSE(original.is_retransmission);
    EXPECT_EQ(1234567890123u, original.arrived_at);
    const rate_sample &again = estimator.samples[1];
    EXPECT_EQ(0, again.seq);
    EXPECT_EQ(1, again.size);
    EXPECT_EQ(65535u, again.timestamp);
    EXPECT_EQ(SEND_CLOCK_MS_16BIT, again.clock);
    EXPECT_TRUE(again.is_retransmission);
    EXPECT_EQ(1234567890124u, again.arrived_at);
}

TEST_F(BcmStatEstimator, IsKeptAndClearedByReset)
{
    KelvraBcmStat_Reset(stat.get());
    EXPECT_EQ(&estimator.base, stat->estimator);
    EXPECT_EQ(1, estimator.n_resets);
}

TEST_F(BcmStatEstimator, IsReleasedWithTheObject)
{
    stat.reset();
    EXPECT_TRUE(is_destroyed);
}

// ---- REMB ----

// A call for a message at a time of a stream that brings a packet each 10 ms; 0: none is due.
struct remb_row {
    const char *what;
    zeb_ts_t now;
    uint64_t estimate;
    uint64_t told;
};

TEST_F(BcmStatEstimator, LeadsToAMessageWhenOneIsDue)
{
    const remb_row rows[] = {
        {"not known", 1000, 0, 0},
        {"first one", 1010, 1000000, 1000000},
        {"the same", 1500, 1000000, 0},
        {"the same, just before a second", 2009, 1000000, 0},
        {"the same, a second later", 2010, 1000000, 1000000},
        {"a rise waits", 2510, 2000000, 0},
        {"a rise, a second later", 3010, 2000000, 2000000},
        {"a fall by less than 3 %", 3300, 1940001, 0},
        {"a fall by 3 %", 3310, 1940000, 1940000},
        {"a deep fall, just before 200 ms", 3509, 500000, 0},
        {"a deep fall, 200 ms later", 3510, 500000, 500000},
        {"a second after the last one, not before", 4500, 500000, 0},
        {"a second after the last one", 4510, 500000, 500000},
        {"our clock went back", 100, 500000, 500000},
    };
    for (const remb_row &row : rows) {
        receive(row.now);
        estimator.bps = row.estimate;
        uint64_t bps = 0;
        EXPECT_EQ(row.told != 0, bcm_stat_take_remb(stat.get(), row.now, &bps)) << row.what;
        EXPECT_EQ(row.told, bps) << row.what;
    }
}

TEST_F(BcmStatEstimator, LeadsToNoMessageWhileNothingComes)
{
    estimator.bps = 1000000;
    receive(1000);
    uint64_t bps = 0;
    ASSERT_TRUE(bcm_stat_take_remb(stat.get(), 1000, &bps));
    EXPECT_FALSE(bcm_stat_take_remb(stat.get(), 2000, &bps));
    EXPECT_FALSE(bcm_stat_take_remb(stat.get(), 60000, &bps));
    receive(60010);
    EXPECT_TRUE(bcm_stat_take_remb(stat.get(), 60010, &bps));
}

TEST_F(BcmStatEstimator, LeadsToAMessageAfterReset)
{
    estimator.bps = 1000000;
    receive(1000);
    uint64_t bps = 0;
    ASSERT_TRUE(bcm_stat_take_remb(stat.get(), 1000, &bps));
    KelvraBcmStat_Reset(stat.get());
    EXPECT_TRUE(bcm_stat_take_remb(stat.get(), 1001, &bps));
}

} // namespace
