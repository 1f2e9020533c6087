#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>

#include "rate_simulation.h"

namespace
{

constexpr uint64_t kSecond = 1000;

// ---- One link, many conditions ----

struct link_row {
    const char *name = nullptr;
    double bps = 0;
    uint64_t converges_within = 0; // ms until the estimate is first within 15 % of the link
    rate_simulation_settings settings;
    // Once settled, ms. Where key frames come often, the link is emptied between them and full all the same: that is
    // seen late.
    double queue_max = 250;
};

std::ostream &operator<<(std::ostream &out, const link_row &row)
{
    return out << row.name << " at " << row.bps / 1e3 << " kbit/s";
}

class RateEstimatorOnALink : public ::testing::TestWithParam<link_row>
{
  protected:
    // The row's conditions with everything random from `seed`.
    static rate_simulation_settings settings(uint32_t seed)
    {
        rate_simulation_settings out = GetParam().settings;
        out.path.bps = GetParam().bps;
        out.path.seed = seed;
        out.sender.seed = seed + 100;
        return out;
    }
};

// Settled is: each mean over five seconds is within 15 % of the link; no moment is further away than 25 %; and the
// queue stays short.
TEST_P(RateEstimatorOnALink, SettlesNearItsRateWithAShortQueue)
{
    const double link = GetParam().bps;
    for (const uint32_t seed : {1u, 2u, 3u}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        rate_simulation run(settings(seed));
        run.run_ms(80 * kSecond);

        const auto converged_at = run.reaches(0, 0.85 * link, 1.15 * link);
        ASSERT_TRUE(converged_at.has_value());
        EXPECT_LE(*converged_at, GetParam().converges_within);
        for (uint64_t from = 20 * kSecond; from < 80 * kSecond; from += 5 * kSecond) {
            EXPECT_NEAR(link, run.mean_bps(from, from + 5 * kSecond), 0.15 * link) << "from " << from << " ms on";
        }
        EXPECT_GE(run.least_bps(20 * kSecond, 80 * kSecond), 0.75 * link);
        EXPECT_LE(run.most_bps(20 * kSecond, 80 * kSecond), 1.25 * link);
        EXPECT_LE(run.queue_ms(0, 20 * kSecond, 1.0), 500.0);
        EXPECT_LE(run.queue_ms(20 * kSecond, 80 * kSecond, 1.0), GetParam().queue_max);
        EXPECT_LE(run.queue_ms(20 * kSecond, 80 * kSecond, 0.5), 60.0);
    }
}

link_row make_row(const char *name, double bps, uint64_t converges_within)
{
    link_row row;
    row.name = name;
    row.bps = bps;
    row.converges_within = converges_within;
    return row;
}

std::vector<link_row> link_rows()
{
    std::vector<link_row> rows;
    const struct {
        double bps;
        uint64_t converges_within;
    } links[] = {{300e3, 1 * kSecond}, {1e6, 4 * kSecond}, {3e6, 8 * kSecond}};
    for (const auto &link : links) {
        const auto add = [&](const char *name) -> rate_simulation_settings & {
            rows.push_back(make_row(name, link.bps, link.converges_within));
            return rows.back().settings;
        };
        add("plain");
        add("loss_of_1_percent").path.loss = 0.01;
        add("jitter_of_10_ms").path.jitter_ms = 10;
        rate_simulation_settings &reordered = add("jitter_of_10_ms_that_reorders");
        reordered.path.jitter_ms = 10;
        reordered.path.jitter_reorders = true;
        add("receiver_that_looks_each_10_ms").loop_ms = 10;
        add("round_trip_of_200_ms").path.propagation_ms = 100;
        add("key_frame_each_2_s").sender.key_frame_interval = 60;
        rows.back().queue_max = 450;
        add("queue_of_80_ms").path.queue_limit_ms = 80;
        rate_simulation_settings &paced = add("paced_with_16_bit_send_times");
        paced.use_sent_ts = true;
        paced.sender.pacing_ms = 25;
        rate_simulation_settings &paced_jitter = add("paced_with_16_bit_send_times_and_jitter");
        paced_jitter.use_sent_ts = true;
        paced_jitter.sender.pacing_ms = 25;
        paced_jitter.path.jitter_ms = 10;
    }
    return rows;
}

std::string row_name(const ::testing::TestParamInfo<link_row> &info)
{
    return std::to_string(static_cast<int>(info.param.bps / 1e3)) + "k_" + info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Links, RateEstimatorOnALink, ::testing::ValuesIn(link_rows()), row_name);

// ---- A link that changes ----

TEST(RateEstimatorOnAChangingLink, FollowsItDownAndUpAgain)
{
    for (const uint32_t seed : {1u, 2u, 3u}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        rate_simulation_settings settings;
        settings.path.bps = 2e6;
        settings.path.queue_limit_ms = 3000;
        settings.path.seed = seed;
        settings.sender.seed = seed;
        rate_simulation run(settings);
        run.run_ms(30 * kSecond);
        EXPECT_NEAR(2e6, run.mean_bps(20 * kSecond, 30 * kSecond), 0.15 * 2e6);

        run.set_link_bps(800e3);
        run.run_ms(30 * kSecond);
        const auto is_down_at = run.reaches(30 * kSecond, 0, 1.15 * 800e3);
        ASSERT_TRUE(is_down_at.has_value());
        EXPECT_LE(*is_down_at - 30 * kSecond, 1 * kSecond);
        EXPECT_LE(run.queue_ms(30 * kSecond, 36 * kSecond, 1.0), 800.0);
        EXPECT_LE(run.queue_ms(36 * kSecond, 60 * kSecond, 1.0), 150.0) << "the queue is gone";
        EXPECT_GE(run.least_bps(30 * kSecond, 60 * kSecond), 0.75 * 800e3);
        EXPECT_NEAR(800e3, run.mean_bps(45 * kSecond, 60 * kSecond), 0.15 * 800e3);

        run.set_link_bps(2e6);
        run.run_ms(40 * kSecond);
        const auto is_up_at = run.reaches(60 * kSecond, 0.85 * 2e6, 1e9);
        ASSERT_TRUE(is_up_at.has_value());
        EXPECT_LE(*is_up_at - 60 * kSecond, 20 * kSecond);
        EXPECT_NEAR(2e6, run.mean_bps(85 * kSecond, 100 * kSecond), 0.15 * 2e6);
        EXPECT_LE(run.queue_ms(60 * kSecond, 100 * kSecond, 1.0), 250.0);
    }
}

TEST(RateEstimatorOnAChangingLink, LivesThroughABreakOfFiveSeconds)
{
    rate_simulation_settings settings;
    settings.path.queue_limit_ms = 1e12; // set by a rate of almost nothing
    rate_simulation run(settings);
    run.run_ms(30 * kSecond);
    run.set_link_bps(1);
    run.run_ms(5 * kSecond);
    run.set_link_bps(20e6); // what has gathered comes at once
    run.run_ms(1 * kSecond);
    run.set_link_bps(1e6);
    run.run_ms(44 * kSecond);
    EXPECT_NEAR(1e6, run.mean_bps(60 * kSecond, 80 * kSecond), 0.15 * 1e6);
}

// ---- Senders and losses ----

TEST(RateEstimatorOnASender, StopsNearWhatItIsGiven)
{
    rate_simulation_settings settings;
    settings.path.bps = 5e6;
    settings.sender.max_bps = 500e3;
    rate_simulation run(settings);
    run.run_ms(60 * kSecond);
    EXPECT_GE(run.mean_bps(30 * kSecond, 60 * kSecond), 500e3) << "the link would take ten times that";
    EXPECT_LE(run.most_bps(0, 60 * kSecond), 2 * 1.5 * 500e3) << "but nobody has tried";
}

TEST(RateEstimatorOnASender, ReachesTheLinkFromFarAbove)
{
    rate_simulation_settings settings;
    settings.path.bps = 500e3;
    settings.path.queue_limit_ms = 300;
    settings.sender.start_bps = 4e6;
    rate_simulation run(settings);
    run.run_ms(40 * kSecond);
    const auto is_near_at = run.reaches(0, 0.75 * 500e3, 1.15 * 500e3);
    ASSERT_TRUE(is_near_at.has_value());
    EXPECT_LE(*is_near_at, 3 * kSecond);
    EXPECT_NEAR(500e3, run.mean_bps(20 * kSecond, 40 * kSecond), 0.15 * 500e3);
}

TEST(RateEstimatorOnLoss, GivesWayToHeavyLossThatNoQueueExplains)
{
    rate_simulation_settings settings;
    settings.path.bps = 3e6;
    settings.path.loss = 0.2;
    rate_simulation run(settings);
    run.run_ms(30 * kSecond);
    EXPECT_LE(run.mean_bps(25 * kSecond, 30 * kSecond), 100e3);
}

TEST(RateEstimatorOnLoss, IsNotHeldBackByFivePercent)
{
    rate_simulation_settings settings;
    settings.path.bps = 1e6;
    settings.path.loss = 0.05;
    rate_simulation run(settings);
    run.run_ms(60 * kSecond);
    // What is lost behind the queue does not come in: 0.95 of the link is all that can be seen.
    EXPECT_NEAR(0.95e6, run.mean_bps(30 * kSecond, 60 * kSecond), 0.15 * 0.95e6);
}

// ---- Messages ----

TEST(RateEstimatorMessages, ComeEachSecondAndAtOnceOnAFall)
{
    rate_simulation_settings settings;
    settings.path.bps = 2e6;
    rate_simulation run(settings);
    run.run_ms(30 * kSecond);
    run.set_link_bps(800e3);
    run.run_ms(30 * kSecond);

    const auto &rembs = run.rembs();
    ASSERT_FALSE(rembs.empty());
    EXPECT_LE(rembs.front().ms, 1 * kSecond);
    for (size_t i = 1; i < rembs.size(); i++) {
        const uint64_t interval = rembs[i].ms - rembs[i - 1].ms;
        EXPECT_LE(interval, 1 * kSecond + 1);
        EXPECT_GE(interval, 200u);
        const bool is_fall = rembs[i].bps * 100 <= rembs[i - 1].bps * 97;
        EXPECT_TRUE(interval >= 1 * kSecond || is_fall) << "at " << rembs[i].ms;
    }
    const auto first_after_the_fall = std::find_if(
        rembs.begin(), rembs.end(), [](const auto &remb) { return remb.ms > 30 * kSecond && remb.bps < 1500000; });
    ASSERT_NE(rembs.end(), first_after_the_fall);
    EXPECT_LE(first_after_the_fall->ms, 30 * kSecond + 500);
}

TEST(RateEstimatorSimulation, IsTheSameForASeedAtAnyTimeOfDay)
{
    rate_simulation_settings settings;
    settings.path.jitter_ms = 10;
    settings.path.loss = 0.01;
    rate_simulation one(settings);
    settings.starts_at += 20 * 3600 * kSecond; // whole slots of the rate meter later
    rate_simulation other(settings);
    one.run_ms(20 * kSecond);
    other.run_ms(20 * kSecond);
    ASSERT_EQ(one.rembs().size(), other.rembs().size());
    for (size_t i = 0; i < one.rembs().size(); i++) {
        EXPECT_EQ(one.rembs()[i].ms, other.rembs()[i].ms);
        EXPECT_EQ(one.rembs()[i].bps, other.rembs()[i].bps);
    }
}

} // namespace
