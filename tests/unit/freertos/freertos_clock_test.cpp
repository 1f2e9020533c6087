#include "freertos_clock.h"

#include <gtest/gtest.h>

namespace
{

constexpr zeb_ts_t kOrigin = kFreertosClockOrigin;

struct clock_step {
    TickType_t tick;
    zeb_ts_t time; // since the clock's origin
};

TEST(FreertosClock, FollowsTheTicksOverTheirWrap)
{
    freertos_clock clock = {0xFFFFFFF0};
    const clock_step steps[] = {
        {0xFFFFFFF0, 0xFFFFFFF0},  {0xFFFFFFFF, 0xFFFFFFFF},  {0, 0x100000000},    {5, 0x100000005},
        {0x80000000, 0x180000000}, {0xFFFFFFFF, 0x1FFFFFFFF}, {0x10, 0x200000010},
    };

    for (const clock_step &step : steps) {
        EXPECT_EQ(freertos_clock_at(&clock, step.tick), kOrigin + step.time) << step.tick;
    }
}

TEST(FreertosClock, KnowsTicksThatAreOver)
{
    freertos_clock clock = {0};
    const clock_step steps[] = {{100, 100}, {90, 90}, {100, 100}, {0, 0}, {0xFFFFFFFF, 0}, {101, 101}};

    for (const clock_step &step : steps) {
        EXPECT_EQ(freertos_clock_at(&clock, step.tick), kOrigin + step.time) << step.tick;
    }
}

TEST(FreertosClock, KnowsTicksBeforeTheWrapThatAreOver)
{
    freertos_clock clock = {0x100000002};

    EXPECT_EQ(freertos_clock_at(&clock, 0xFFFFFFFF), kOrigin + 0xFFFFFFFF);
    EXPECT_EQ(freertos_clock_at(&clock, 3), kOrigin + 0x100000003);
}

TEST(FreertosClock, CountsTheTicksToATime)
{
    freertos_clock clock = {50};
    const struct {
        zeb_ts_t time;
        TickType_t ticks;
    } rows[] = {
        {0, 0},
        {kOrigin + 49, 0},
        {kOrigin + 50, 0},
        {kOrigin + 51, 1},
        {kOrigin + 60, 10},
        {~zeb_ts_t{0} / 1000, 0x7FFFFFFF}, // half a circle at once
    };

    for (const auto &row : rows) {
        EXPECT_EQ(freertos_clock_until(&clock, row.time), row.ticks) << row.time;
    }
}

} // namespace
