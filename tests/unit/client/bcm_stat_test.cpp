#include "kelvra_bcm_stat.h"

#include <gtest/gtest.h>

#include <memory>

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

} // namespace
