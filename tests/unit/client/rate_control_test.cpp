#include "rate/rate_control.h"

#include <gtest/gtest.h>

namespace
{

constexpr zeb_ts_t kStep = 50; // ms between updates

// Keeps what comes in equal to what was advised, as a path with room for it does, unless told otherwise.
class control_run
{
  public:
    explicit control_run(float bps)
    {
        update(DELAY_NORMAL, bps);
    }

    void update(delay_signal signal, float incoming_bps, zeb_ts_t step = kStep)
    {
        now_ += step;
        rate_control_on_delay(&control, signal, incoming_bps, now_);
    }

    void follow(zeb_ts_t length_ms, delay_signal signal = DELAY_NORMAL)
    {
        for (zeb_ts_t t = 0; t < length_ms; t += kStep) {
            update(signal, bps());
        }
    }

    float bps() const
    {
        return rate_control_bps(&control);
    }

    rate_control control = {};

  private:
    zeb_ts_t now_ = 1000000;
};

// One that has found a link of `bps` and advises 0.85 of it.
control_run near_link(float bps)
{
    control_run run(bps);
    run.update(DELAY_OVERUSE, bps);
    run.update(DELAY_NORMAL, bps); // holds
    return run;
}

// ---- Beginning ----

TEST(RateControlStart, KnowsNothingUntilTheIncomingRateIsKnown)
{
    control_run run(0.0f);
    run.follow(1000);
    run.update(DELAY_OVERUSE, 0.0f);
    EXPECT_EQ(0.0f, run.bps());
}

TEST(RateControlStart, BeginsWithWhatComesInOrMore)
{
    EXPECT_EQ(kRateStartBps, control_run(1000.0f).bps());
    EXPECT_EQ(2e6f, control_run(2e6f).bps());
}

TEST(RateControlStart, GrowsByHalfEachSecondUntilTheFirstOveruse)
{
    control_run run(1e6f);
    run.follow(1000);
    EXPECT_NEAR(1.6386e6, run.bps(), 1e3); // 1.025 to the power of 20
}

TEST(RateControlStart, FallsBelowTheFirstRateOnOveruse)
{
    control_run run(1e6f);
    run.update(DELAY_OVERUSE, 200e3f);
    EXPECT_EQ(0.85f * 200e3f, run.bps());
}

// ---- Down ----

TEST(RateControlDecrease, GoesBelowWhatComesIn)
{
    control_run run(2e6f);
    run.follow(1000);
    run.update(DELAY_OVERUSE, 1e6f);
    EXPECT_EQ(0.85e6f, run.bps());
}

TEST(RateControlDecrease, NeverRaisesTheRate)
{
    control_run run(1e6f);
    run.update(DELAY_OVERUSE, 1e6f);
    run.update(DELAY_OVERUSE, 5e6f, 1000);
    EXPECT_EQ(0.85e6f, run.bps());
}

TEST(RateControlDecrease, WaitsForItsEffect)
{
    control_run run(1e6f);
    run.update(DELAY_OVERUSE, 1e6f);
    run.update(DELAY_OVERUSE, 0.5e6f, 299);
    EXPECT_EQ(0.85e6f, run.bps());
    run.update(DELAY_OVERUSE, 0.5e6f, 1);
    EXPECT_EQ(0.425e6f, run.bps());
}

TEST(RateControlDecrease, StopsAtTheLeastRate)
{
    control_run run(1e6f);
    run.update(DELAY_OVERUSE, 1.0f);
    EXPECT_EQ(kRateMinBps, run.bps());
}

// ---- Holding ----

TEST(RateControlHold, LastsWhileTheQueueDrains)
{
    control_run run(1e6f);
    run.follow(5000, DELAY_UNDERUSE);
    EXPECT_EQ(1e6f, run.bps());
}

TEST(RateControlHold, LastsOneUpdateAfterADecrease)
{
    control_run run(1e6f);
    run.update(DELAY_OVERUSE, 1e6f);
    run.update(DELAY_NORMAL, 0.85e6f);
    EXPECT_EQ(0.85e6f, run.bps());
    run.update(DELAY_NORMAL, 0.85e6f);
    EXPECT_GT(run.bps(), 0.85e6f);
}

TEST(RateControlHold, LastsWhileTheIncomingRateIsNotKnown)
{
    control_run run(1e6f);
    run.update(DELAY_NORMAL, 0.0f, 60000);
    run.update(DELAY_OVERUSE, 0.0f);
    EXPECT_EQ(1e6f, run.bps());
}

// ---- Up ----

TEST(RateControlIncrease, IsSlowNearTheLink)
{
    const struct {
        float link;
        float per_second; // bit/s
    } rows[] = {
        {100e3f, 85e3f * 0.04f}, // a slow link: 4 %
        {1e6f, 24e3f},           // half a packet of 1200 bytes each 200 ms
        {20e6f, 17e6f * 0.02f},  // a fast one: 2 %
    };
    for (const auto &row : rows) {
        control_run run = near_link(row.link);
        const float before = run.bps();
        run.follow(1000);
        EXPECT_NEAR(row.per_second, run.bps() - before, row.per_second * 0.03) << row.link;
    }
}

TEST(RateControlIncrease, IsFasterOnceMoreComesInThanTheLinkHad)
{
    control_run run = near_link(1e6f);
    run.update(DELAY_NORMAL, 1.05e6f);
    EXPECT_GT(run.control.link_bps, 0.0f) << "within its variation";
    run.update(DELAY_NORMAL, 1.08e6f);
    EXPECT_EQ(0.0f, run.control.link_bps) << "another link";
    const float before = run.bps();
    run.follow(1000);
    EXPECT_NEAR(before * 1.0831f, run.bps(), 500.0f); // 1.004 to the power of 20
}

TEST(RateControlIncrease, RemembersTheLaterLinkOnly)
{
    control_run run = near_link(1e6f);
    run.update(DELAY_OVERUSE, 1.02e6f, 1000);
    EXPECT_NEAR(1.002e6, run.control.link_bps, 1.0) << "the same one";
    run.update(DELAY_OVERUSE, 0.4e6f, 1000);
    EXPECT_EQ(0.4e6f, run.control.link_bps) << "another one";
}

TEST(RateControlIncrease, StopsWhereTheSenderDoesNotFollow)
{
    control_run run(1e6f);
    for (int i = 0; i < 200; i++) {
        run.update(DELAY_NORMAL, 1e6f);
    }
    EXPECT_EQ(1.51e6f, run.bps());
    for (int i = 0; i < 200; i++) {
        run.update(DELAY_NORMAL, 0.1e6f);
    }
    EXPECT_EQ(1.51e6f, run.bps()) << "it is no reason to lower it";
}

TEST(RateControlIncrease, CountsHalfASecondOfAPauseAtMost)
{
    control_run run(1e6f);
    run.update(DELAY_NORMAL, 1e6f, 3600000);
    EXPECT_EQ(1.25e6f, run.bps());
}

TEST(RateControlIncrease, StopsAtTheLargestRate)
{
    control_run run(90e6f);
    run.follow(5000);
    EXPECT_EQ(kRateMaxBps, run.bps());
}

// ---- Loss ----

TEST(RateControlLoss, LowersTheRateAboveTenPercent)
{
    const struct {
        float lost;
        float factor;
    } rows[] = {{0.0f, 1.0f}, {0.01f, 1.0f}, {0.05f, 1.0f}, {0.1f, 1.0f}, {0.12f, 0.94f}, {0.5f, 0.75f}, {1.0f, 0.5f}};
    for (const auto &row : rows) {
        control_run run(1e6f);
        rate_control_on_loss(&run.control, row.lost);
        EXPECT_NEAR(1e6f * row.factor, run.bps(), 1.0f) << row.lost;
    }
}

TEST(RateControlLoss, KeepsTheRateUntilItIsBelowTwoPercent)
{
    control_run run(1e6f);
    rate_control_on_loss(&run.control, 0.5f);
    rate_control_on_loss(&run.control, 0.05f);
    EXPECT_EQ(0.75e6f, run.bps());
    rate_control_on_loss(&run.control, 0.02f);
    EXPECT_EQ(0.75e6f, run.bps());
    rate_control_on_loss(&run.control, 0.019f);
    EXPECT_NEAR(0.81e6f, run.bps(), 1.0f);
}

TEST(RateControlLoss, LeavesTheRateToTheDelayInTheEnd)
{
    control_run run(1e6f);
    rate_control_on_loss(&run.control, 0.2f);
    for (int i = 0; i < 11; i++) { // 0.9 times 1.08 to the power of 11 is 2.1
        rate_control_on_loss(&run.control, 0.0f);
    }
    EXPECT_EQ(1e6f, run.bps());
    EXPECT_EQ(0.0f, run.control.loss_cap_bps);
}

TEST(RateControlLoss, CompoundsDownToTheLeastRate)
{
    control_run run(1e6f);
    for (int i = 0; i < 50; i++) {
        rate_control_on_loss(&run.control, 1.0f);
    }
    EXPECT_EQ(kRateMinBps, run.bps());
}

TEST(RateControlLoss, SaysNothingBeforeTheRateIsKnown)
{
    rate_control control = {};
    rate_control_on_loss(&control, 0.5f);
    EXPECT_EQ(0.0f, rate_control_bps(&control));
    EXPECT_EQ(0.0f, control.loss_cap_bps);
}

} // namespace
