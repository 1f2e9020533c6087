#include "capture_clock.h"

#include <gtest/gtest.h>

#include <vector>

using vrc::capture_clock;

namespace
{

struct step {
    int64_t stamp_us;
    uint64_t elapsed_us;
};

void expect_steps(capture_clock *clock, const std::vector<step> &steps)
{
    for (const step &each : steps) {
        EXPECT_EQ(clock->advance(each.stamp_us), each.elapsed_us) << "at " << each.stamp_us;
    }
}

constexpr int64_t kNoon = 1'700'000'000'000'000;

} // namespace

TEST(CaptureClock, CountsFromFirstPacket)
{
    capture_clock clock;
    expect_steps(&clock, {{kNoon, 0}, {kNoon + 5, 5}, {kNoon + 5, 5}, {kNoon + 2'000'000, 2'000'000}});
    EXPECT_EQ(clock.steps_back(), 0u);
}

TEST(CaptureClock, StandsStillUntilPacketsThatAreOutOfOrderHaveCaughtUp)
{
    capture_clock clock;
    expect_steps(&clock, {{kNoon, 0}, {kNoon + 100, 100}, {kNoon + 60, 100}, {kNoon + 80, 100}, {kNoon + 101, 101}});
    EXPECT_EQ(clock.steps_back(), 2u);
    EXPECT_EQ(clock.largest_step_back_us(), 40u);
}

TEST(CaptureClock, RunsOnFromWhereItWasWhenTheClockWasSetBack)
{
    capture_clock clock;
    expect_steps(&clock, {{kNoon, 0}, {kNoon + 100, 100}, {kNoon - 3'600'000'000, 100}, {kNoon - 3'599'999'990, 110}});
    EXPECT_EQ(clock.steps_back(), 1u);
    EXPECT_EQ(clock.largest_step_back_us(), 3'600'000'100u);
}

TEST(CaptureClock, NeverOverflowsOrGoesBackForStampsOfAnyKind)
{
    capture_clock clock;
    uint64_t last = 0;
    for (int round = 0; round < 6; ++round) {
        for (const int64_t stamp : {INT64_MIN, INT64_MAX, int64_t{0}, int64_t{-1}}) {
            const uint64_t now = clock.advance(stamp);
            EXPECT_GE(now, last);
            last = now;
        }
    }
}
