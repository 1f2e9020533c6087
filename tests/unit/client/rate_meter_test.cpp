#include "rate/rate_meter.h"

#include <gtest/gtest.h>

namespace
{

// `size` bytes each `interval` ms, from `from` until before `to`.
void feed(rate_meter &meter, uint16_t size, zeb_ts_t interval, zeb_ts_t from, zeb_ts_t to)
{
    for (zeb_ts_t now = from; now < to; now += interval) {
        rate_meter_add(&meter, size, now);
    }
}

TEST(RateMeter, TellsNothingBeforeAFifthOfASecond)
{
    rate_meter meter = {};
    EXPECT_EQ(0.0f, rate_meter_bps(&meter, 0));
    EXPECT_EQ(0.0f, rate_meter_bps(&meter, 1000));
    feed(meter, 100, 10, 5000, 5200);
    EXPECT_EQ(0.0f, rate_meter_bps(&meter, 5199));
    EXPECT_GT(rate_meter_bps(&meter, 5200), 0.0f);
}

TEST(RateMeter, TellsASteadyRateAtAnyTime)
{
    // 1000 bytes each 10 ms are 800 kbit/s.
    for (const zeb_ts_t start : {zeb_ts_t{0}, zeb_ts_t{7}, zeb_ts_t{1700000000013}, ~zeb_ts_t{0} - 100000}) {
        rate_meter meter = {};
        for (zeb_ts_t t = 0; t < 3000; t += 10) {
            rate_meter_add(&meter, 1000, start + t);
            if (t >= 500) {
                EXPECT_NEAR(800e3, rate_meter_bps(&meter, start + t), 800e3 * 0.025) << "at " << start << " + " << t;
            }
        }
    }
}

TEST(RateMeter, DividesByTheTimeSinceTheFirstPacketAtTheBeginning)
{
    rate_meter meter = {};
    feed(meter, 1000, 10, 4000, 4250);
    // 25 packets in 250 ms.
    EXPECT_NEAR(800e3, rate_meter_bps(&meter, 4249), 1.0);
}

TEST(RateMeter, ForgetsWhatIsOlderThanHalfASecond)
{
    rate_meter meter = {};
    feed(meter, 1000, 10, 0, 1000);
    feed(meter, 100, 10, 1000, 1500);
    EXPECT_NEAR(80e3, rate_meter_bps(&meter, 1499), 1.0);
}

TEST(RateMeter, SinksWhileNothingComes)
{
    rate_meter meter = {};
    feed(meter, 1000, 10, 0, 1000);
    EXPECT_NEAR(400e3, rate_meter_bps(&meter, 999 + 250), 20e3);
    EXPECT_EQ(0.0f, rate_meter_bps(&meter, 999 + 501));
}

TEST(RateMeter, BeginsAnewAfterASilence)
{
    rate_meter meter = {};
    feed(meter, 1000, 10, 0, 1000);
    rate_meter_add(&meter, 1000, 10000);
    EXPECT_EQ(0.0f, rate_meter_bps(&meter, 10000));
    feed(meter, 500, 10, 10010, 10250);
    EXPECT_NEAR((1000 + 24 * 500) * 8 / 0.25, rate_meter_bps(&meter, 10249), 1.0);
}

TEST(RateMeter, BeginsAnewWhenTheClockGoesBack)
{
    rate_meter meter = {};
    feed(meter, 1000, 10, 100000, 101000);
    feed(meter, 500, 10, 50000, 51000);
    EXPECT_NEAR(400e3, rate_meter_bps(&meter, 50999), 400e3 * 0.025);
}

TEST(RateMeter, HoldsTheFastestStreamOfTheLargestPackets)
{
    rate_meter meter = {};
    for (zeb_ts_t now = 0; now < 1000; now++) {
        for (int i = 0; i < 100; i++) {
            rate_meter_add(&meter, 65535, now);
        }
    }
    EXPECT_NEAR(65535.0 * 100 * 8 * 1000, rate_meter_bps(&meter, 999), 1e7);
}

} // namespace
