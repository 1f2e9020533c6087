#include <gtest/gtest.h>

#include <memory>

#include "rate_estimator.h"

namespace
{

struct estimator_release {
    void operator()(rate_estimator *estimator) const
    {
        estimator->ops->destroy(estimator);
    }
};

// A stream of 30 frames a second, each of four packets of 1000 bytes: 960 kbit/s, 20 ms on its way.
class DelayLossEstimator : public ::testing::Test
{
  protected:
    void receive(uint32_t index, zeb_ts_t late_ms = 0, bool is_retransmission = false)
    {
        const zeb_ts_t sent = index / 4 * 33;
        const auto seq = static_cast<seq_t>(first_seq + index);
        const rate_sample sample = {seq,
                                    1000,
                                    static_cast<uint32_t>(sent * 90),
                                    SEND_CLOCK_RTP_90KHZ,
                                    is_retransmission,
                                    1000000 + sent + 20 + late_ms};
        estimator->ops->on_packet(estimator.get(), &sample);
    }

    // Ten seconds without the packets whose index is a multiple of `missing`; 0: all.
    void receive_all(uint32_t missing = 0)
    {
        for (uint32_t i = 0; i < 1200; i++) {
            if (missing == 0 || i % missing != 0) {
                receive(i);
            }
        }
    }

    uint64_t bps() const
    {
        return estimator->ops->estimate_bps(estimator.get());
    }

    std::unique_ptr<rate_estimator, estimator_release> estimator{kDelayLossEstimator.create()};
    seq_t first_seq = 65000;
};

TEST_F(DelayLossEstimator, KnowsNothingInTheFirstHalfSecond)
{
    for (uint32_t i = 0; i < 4 * 15; i++) {
        receive(i);
    }
    EXPECT_EQ(0u, bps());
    for (uint32_t i = 4 * 15; i < 4 * 17; i++) {
        receive(i);
    }
    EXPECT_GE(bps(), 900000u);
}

TEST_F(DelayLossEstimator, AllowsMoreThanWhatComesInWell)
{
    receive_all();
    EXPECT_GT(bps(), 1400000u);
    EXPECT_LT(bps(), 1600000u);
}

TEST_F(DelayLossEstimator, BearsFivePercentOfLoss)
{
    receive_all(20);
    EXPECT_GT(bps(), 1300000u);
}

TEST_F(DelayLossEstimator, LowersTheRateOnLoss)
{
    receive_all(5);
    EXPECT_LT(bps(), 700000u);
}

TEST_F(DelayLossEstimator, TakesARetransmittedPacketForLost)
{
    for (uint32_t i = 0; i < 1200; i++) {
        if (i % 5 != 0) {
            receive(i);
        }
        if (i >= 8 && (i - 8) % 5 == 0) {
            receive(i - 8, 66, true);
        }
    }
    EXPECT_LT(bps(), 700000u);
}

TEST_F(DelayLossEstimator, TakesNoRetransmissionForDelay)
{
    for (uint32_t i = 0; i < 1200; i++) {
        receive(i);
        if (i >= 400 && i % 40 == 0) {
            const uint32_t age = i / 10; // frames, and more from one to the next
            receive(i - age, age / 4 * 33 + 5, true);
        }
    }
    EXPECT_GT(bps(), 1400000u);
}

TEST_F(DelayLossEstimator, TakesANewNumberingForNoLoss)
{
    for (uint32_t i = 0; i < 1200; i++) {
        first_seq = static_cast<seq_t>(i < 600 ? 65000 : 20000);
        receive(i);
    }
    EXPECT_GT(bps(), 1400000u);
}

TEST_F(DelayLossEstimator, LowersTheRateWhenTheQueueGrows)
{
    for (uint32_t i = 0; i < 1200; i++) {
        receive(i, i < 600 ? 0 : (i - 600) / 4 * 5); // 5 ms for each frame: it comes in at 33 / 38 of the rate
    }
    EXPECT_LT(bps(), 960000u * 33 / 38);
    EXPECT_GT(bps(), 600000u);
}

TEST_F(DelayLossEstimator, ForgetsEverythingOnReset)
{
    receive_all(5);
    estimator->ops->reset(estimator.get());
    EXPECT_EQ(0u, bps());
    receive_all();
    const uint64_t after_reset = bps();
    estimator.reset(kDelayLossEstimator.create());
    receive_all();
    EXPECT_EQ(bps(), after_reset);
}

} // namespace
