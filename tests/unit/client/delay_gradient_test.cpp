#include "rate/delay_gradient.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace
{

constexpr zeb_ts_t kStart = 1000000;

// Feeds frames of one packet each, 30 a second unless told otherwise.
class frame_feed
{
  public:
    explicit frame_feed(send_clock clock = SEND_CLOCK_RTP_90KHZ, uint32_t first_timestamp = 0, zeb_ts_t start = kStart)
        : clock_(clock), timestamp_(first_timestamp), start_(start)
    {
    }

    // A frame sent `interval` ms after the one before it, `delay` ms on its way.
    delay_signal frame(int interval, int delay)
    {
        sent_ += static_cast<zeb_ts_t>(interval);
        return packet(delay);
    }

    // Another packet of the frame.
    delay_signal packet(int delay)
    {
        return packet_at(sent_, start_ + sent_ + static_cast<zeb_ts_t>(delay));
    }

    delay_signal packet_at(zeb_ts_t sent, zeb_ts_t arrived_at)
    {
        const uint32_t ticks = clock_ == SEND_CLOCK_RTP_90KHZ ? 90 : 1;
        auto timestamp = timestamp_ + static_cast<uint32_t>(sent) * ticks;
        timestamp &= clock_ == SEND_CLOCK_RTP_90KHZ ? 0xFFFFFFFFu : 0xFFFFu;
        const rate_sample sample = {0, 1200, timestamp, clock_, false, arrived_at};
        return delay_gradient_on_packet(&gradient, &sample);
    }

    zeb_ts_t sent() const
    {
        return sent_;
    }

    delay_gradient gradient = {};

  private:
    send_clock clock_;
    uint32_t timestamp_;
    zeb_ts_t start_;
    zeb_ts_t sent_ = 0;
};

// Frames until the signal is seen, at most `limit`; -1 when it is not. The delay grows by `growth` ms a frame.
int frames_until(frame_feed &feed, delay_signal signal, int first_delay, int growth, int limit)
{
    for (int i = 1; i <= limit; i++) {
        if (feed.frame(33, first_delay + i * growth) == signal) {
            return i;
        }
    }
    return -1;
}

void feed_steady(frame_feed &feed, int delay, int n)
{
    for (int i = 0; i < n; i++) {
        ASSERT_EQ(DELAY_NORMAL, feed.frame(33, delay));
    }
}

// ---- Signals ----

TEST(DelayGradientSignal, StaysNormalWhileTheDelayIsTheSame)
{
    for (const int delay : {0, 20, 1500}) {
        frame_feed feed;
        feed_steady(feed, delay, 300);
        EXPECT_EQ(0.0f, feed.gradient.rise_ms);
    }
}

TEST(DelayGradientSignal, IsOveruseSoonAfterTheQueueBeginsToGrow)
{
    const struct {
        int growth; // ms a frame
        int within; // frames
    } rows[] = {{1, 25}, {2, 15}, {3, 12}, {10, 7}, {50, 4}};
    for (const auto &row : rows) {
        frame_feed feed;
        feed_steady(feed, 20, 30);
        const int n = frames_until(feed, DELAY_OVERUSE, 20, row.growth, 60);
        EXPECT_GT(n, 2) << row.growth << " ms a frame";
        EXPECT_LE(n, row.within) << row.growth << " ms a frame";
    }
}

TEST(DelayGradientSignal, IsUnderuseWhileTheQueueDrains)
{
    frame_feed feed;
    feed_steady(feed, 400, 30);
    const int n = frames_until(feed, DELAY_UNDERUSE, 400, -5, 60);
    EXPECT_GT(n, 0);
    EXPECT_LE(n, 15);
}

TEST(DelayGradientSignal, IsNormalAgainOnceTheDelayStaysLong)
{
    frame_feed feed;
    feed_steady(feed, 20, 30);
    ASSERT_GT(frames_until(feed, DELAY_OVERUSE, 20, 5, 60), 0);
    for (size_t i = 0; i <= kTrendWindow; i++) {
        feed.frame(33, 500);
    }
    feed_steady(feed, 500, 30);
}

TEST(DelayGradientSignal, PassesOverOneLateFrame)
{
    frame_feed feed;
    feed_steady(feed, 20, 30);
    EXPECT_EQ(DELAY_NORMAL, feed.frame(33, 200));
    feed_steady(feed, 20, 30);
}

TEST(DelayGradientSignal, PassesOverTheQueueThatAKeyFrameLeaves)
{
    frame_feed feed;
    feed_steady(feed, 20, 30);
    for (int round = 0; round < 10; round++) {
        for (int delay = 140; delay > 20; delay -= 10) {
            EXPECT_NE(DELAY_OVERUSE, feed.frame(33, delay)) << "round " << round << ", delay " << delay;
        }
        for (int i = 0; i < 48; i++) {
            EXPECT_NE(DELAY_OVERUSE, feed.frame(33, 20)) << "round " << round << ", frame " << i;
        }
    }
}

TEST(DelayGradientSignal, TakesTheFirstPacketOfABigFrameForItsDelay)
{
    frame_feed feed;
    for (int i = 0; i < 100; i++) {
        ASSERT_EQ(DELAY_NORMAL, feed.frame(33, 20));
        for (int j = 0; j < i % 10; j++) { // frames that are each bigger than the one before
            ASSERT_EQ(DELAY_NORMAL, feed.packet(20 + 2 * j));
        }
    }
    EXPECT_EQ(0.0f, feed.gradient.rise_ms);
}

TEST(DelayGradientSignal, ToleratesArrivalTimesInWholeMilliseconds)
{
    frame_feed feed;
    for (uint64_t i = 0; i < 1800; i++) {
        const uint64_t sent_ticks = i * 3003; // 29.97 a second
        const rate_sample sample = {
            0, 1200, static_cast<uint32_t>(sent_ticks), SEND_CLOCK_RTP_90KHZ, false, kStart + sent_ticks / 90};
        ASSERT_EQ(DELAY_NORMAL, delay_gradient_on_packet(&feed.gradient, &sample)) << "frame " << i;
    }
}

TEST(DelayGradientSignal, ToleratesTenMillisecondsOfJitter)
{
    for (const uint32_t seed : {1u, 2u, 3u}) {
        std::mt19937 random(seed);
        std::uniform_int_distribution<int> jitter(0, 10);
        frame_feed feed;
        int n_overuse = 0;
        for (int i = 0; i < 1800; i++) {
            n_overuse += feed.frame(33, 20 + jitter(random)) == DELAY_OVERUSE ? 1 : 0;
        }
        EXPECT_LE(n_overuse, 2) << "in a minute, seed " << seed;
    }
}

// ---- Line ----

TEST(DelayGradientTrend, RisesByTheGrowthAcrossTheWindow)
{
    frame_feed feed;
    feed_steady(feed, 20, 30);
    // One frame more, to close the last group: all points of the window lie on a line of 3 ms a frame.
    for (int i = 0; i <= static_cast<int>(kTrendWindow); i++) {
        feed.frame(33, 20 + 3 * i);
    }
    EXPECT_NEAR(19 * 3.0f, feed.gradient.rise_ms, 0.01f);
}

TEST(DelayGradientTrend, SpansOneSecondAtAnyFrameRate)
{
    const struct {
        int interval;
        int n_points;
    } rows[] = {{33, 20}, {50, 20}, {100, 11}, {200, 6}, {500, 5}};
    for (const auto &row : rows) {
        frame_feed feed;
        for (int i = 0; i < 100; i++) {
            feed.frame(row.interval, 20);
        }
        EXPECT_EQ(row.n_points, feed.gradient.n_points) << row.interval << " ms a frame";
    }
}

TEST(DelayGradientTrend, IsFlatWhenAllArriveAtOnce)
{
    frame_feed feed;
    for (zeb_ts_t i = 0; i < 50; i++) {
        feed.packet_at(i * 33, kStart + 3000);
        EXPECT_NE(DELAY_OVERUSE, feed.gradient.signal);
        EXPECT_EQ(feed.gradient.rise_ms, feed.gradient.rise_ms) << "not a number";
    }
}

// What came out frame by frame of a stream that is steady, grows, drains and is steady again.
std::vector<float> rises(frame_feed feed)
{
    std::vector<float> out;
    const auto take = [&](int delay) {
        feed.frame(33, delay);
        out.push_back(feed.gradient.rise_ms + 1000.0f * static_cast<float>(feed.gradient.signal));
    };
    for (int i = 0; i < 40; i++) {
        take(20 + i % 3);
    }
    for (int i = 0; i < 40; i++) {
        take(20 + 4 * i);
    }
    for (int i = 0; i < 40; i++) {
        take(180 - 4 * i);
    }
    return out;
}

TEST(DelayGradientClocks, NeedNotAgreeAndMayWrap)
{
    const std::vector<float> expected = rises(frame_feed());
    const struct {
        send_clock clock;
        uint32_t first_timestamp;
        zeb_ts_t start;
    } rows[] = {
        {SEND_CLOCK_RTP_90KHZ, 0xFFFFFFFF, kStart},
        {SEND_CLOCK_RTP_90KHZ, 0xFFFFFFFF - 40 * 33 * 90, kStart},
        {SEND_CLOCK_RTP_90KHZ, 0x7FFFFFFF - 60 * 33 * 90, kStart},
        {SEND_CLOCK_RTP_90KHZ, 12345, 0},
        {SEND_CLOCK_RTP_90KHZ, 12345, 0xFFFFFFFFu - 1500},      // milliseconds beyond 32 bits
        {SEND_CLOCK_RTP_90KHZ, 12345, 0xFFFFFFFFu / 90 - 1500}, // ticks beyond 32 bits
        {SEND_CLOCK_RTP_90KHZ, 12345, 0x7FFFFFFFu / 90 - 1500}, // ticks beyond 31 bits
        {SEND_CLOCK_RTP_90KHZ, 12345, 1700000000000u},          // wall clock
        {SEND_CLOCK_MS_16BIT, 0, kStart},
        {SEND_CLOCK_MS_16BIT, 65535, kStart},
        {SEND_CLOCK_MS_16BIT, 65535 - 40 * 33, kStart},
        {SEND_CLOCK_MS_16BIT, 32767 - 60 * 33, 1700000000000u},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(expected, rises(frame_feed(row.clock, row.first_timestamp, row.start)))
            << "clock " << row.clock << ", from " << row.first_timestamp << ", at " << row.start;
    }
}

// ---- Groups ----

TEST(DelayGradientGroups, PassOverWhatWasSentBeforeTheOpenOne)
{
    frame_feed feed;
    feed_steady(feed, 20, 30);
    const zeb_ts_t sent = feed.sent();
    const uint32_t delay = feed.gradient.group.delay;
    const uint8_t next_point = feed.gradient.next_point;
    for (const zeb_ts_t age : {1u, 33u, 66u, 500u}) {
        feed.packet_at(sent - age, kStart + sent + 20);
        EXPECT_EQ(delay, feed.gradient.group.delay) << age;
        EXPECT_EQ(next_point, feed.gradient.next_point) << age;
    }
    feed_steady(feed, 20, 30);
    EXPECT_EQ(0.0f, feed.gradient.rise_ms);
}

TEST(DelayGradientGroups, TakeInTheFramesThatWereHeldUpTogether)
{
    frame_feed feed;
    feed_steady(feed, 20, 30);
    const uint8_t next_point = feed.gradient.next_point;
    const uint32_t delay = feed.gradient.group.delay;
    // The way was blocked: four frames come at once.
    const zeb_ts_t sent = feed.sent();
    for (zeb_ts_t i = 1; i <= 4; i++) {
        EXPECT_EQ(DELAY_NORMAL, feed.packet_at(sent + i * 33, kStart + sent + 4 * 33 + 20));
    }
    EXPECT_EQ((next_point + 1) % kTrendWindow, feed.gradient.next_point) << "only the frame before them is closed";
    EXPECT_EQ(delay, feed.gradient.group.delay) << "that of the last one";
}

TEST(DelayGradientGroups, GatherThePacketsOfASpreadFrame)
{
    frame_feed feed(SEND_CLOCK_MS_16BIT);
    for (zeb_ts_t i = 0; i < 10; i++) {
        for (zeb_ts_t j = 0; j < 20; j += 4) {
            feed.packet_at(i * 33 + j, kStart + i * 33 + j + 20);
        }
    }
    EXPECT_EQ(9, feed.gradient.n_points);
}

// ---- Beginning anew ----

TEST(DelayGradientRestart, FollowsAPauseOrAJumpOfAClock)
{
    constexpr zeb_ts_t kLater = kStart + 100 * 33; // just after the last frame
    const struct {
        const char *what;
        zeb_ts_t sent;
        zeb_ts_t arrived_at;
        bool is_restart;
    } rows[] = {
        {"next frame", 100 * 33, kLater + 20, false},
        {"pause of 2 s", 99 * 33 + 2000, kStart + 99 * 33 + 2020, false},
        {"pause above 2 s", 99 * 33 + 2001, kStart + 99 * 33 + 2021, true},
        {"long pause", 3600000, kStart + 3600020, true},
        {"sender's clock stays behind 3 s", 99 * 33 - 3000, kStart + 99 * 33 + 20, false},
        {"sender's clock jumps back", 99 * 33 - 3001, kStart + 99 * 33 + 20, true},
        {"sender's clock jumps forth", 99 * 33 + 4000, kLater + 20, true},
        {"our clock jumps back", 100 * 33, kLater - 5000, true},
    };
    for (const auto &row : rows) {
        frame_feed feed;
        feed_steady(feed, 20, 99);
        ASSERT_EQ(kTrendWindow, feed.gradient.n_points);
        EXPECT_EQ(DELAY_NORMAL, feed.packet_at(row.sent, row.arrived_at)) << row.what;
        EXPECT_EQ(row.is_restart, feed.gradient.n_points == 0) << row.what;
    }
}

TEST(DelayGradientRestart, FollowsAnotherClock)
{
    frame_feed feed;
    feed_steady(feed, 20, 30);
    const rate_sample sample = {0, 1200, 7, SEND_CLOCK_MS_16BIT, false, kStart + feed.sent() + 50};
    EXPECT_EQ(DELAY_NORMAL, delay_gradient_on_packet(&feed.gradient, &sample));
    EXPECT_EQ(0, feed.gradient.n_points);
}

TEST(DelayGradientBounds, HoldWithRandomPackets)
{
    std::mt19937 random(7);
    delay_gradient gradient = {};
    zeb_ts_t now = kStart;
    for (int i = 0; i < 100000; i++) {
        now += random() % 64;
        const auto clock = static_cast<send_clock>(random() % 64 == 0 ? 1 : 0);
        const rate_sample sample = {0,     0,     static_cast<uint32_t>(random()),
                                    clock, false, random() % 256 == 0 ? now - random() : now};
        delay_gradient_on_packet(&gradient, &sample);
        ASSERT_LE(gradient.n_points, kTrendWindow);
        ASSERT_LT(gradient.next_point, kTrendWindow);
        ASSERT_GE(gradient.threshold_ms, 10.0f);
        ASSERT_LE(gradient.threshold_ms, 600.0f);
    }
}

// ---- Threshold ----

TEST(DelayGradientThreshold, SinksSlowlyWhileTheDelayIsTheSame)
{
    frame_feed feed;
    feed_steady(feed, 20, 30);
    EXPECT_GT(feed.gradient.threshold_ms, 10.0f);
    feed_steady(feed, 20, 600);
    EXPECT_EQ(10.0f, feed.gradient.threshold_ms);
}

TEST(DelayGradientThreshold, FollowsARiseUpwards)
{
    frame_feed feed;
    feed_steady(feed, 20, 30);
    for (int i = 1; i <= 60; i++) {
        feed.frame(33, 20 + i); // 19 ms across the window
    }
    EXPECT_GT(feed.gradient.threshold_ms, 17.0f);
    EXPECT_LT(feed.gradient.threshold_ms, 19.0f);
}

TEST(DelayGradientThreshold, IsNotMovedByASuddenEvent)
{
    frame_feed feed;
    feed_steady(feed, 20, 600);
    for (int i = 0; i < 5; i++) {
        feed.frame(33, 1000); // the first frames behind a change of the route
    }
    EXPECT_EQ(10.0f, feed.gradient.threshold_ms);
}

} // namespace
