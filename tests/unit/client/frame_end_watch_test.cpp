#include "repair/frame_end_watch.h"

#include <gtest/gtest.h>

namespace
{

// A sender's packets, in sequence and at times of the test's, into a watch.
class FrameEndWatch : public testing::Test
{
  protected:
    void packet(bool has_marker, bool is_answer = false, packet_role role = PACKET_ROLE_OTHER)
    {
        const reception_packet packet = {static_cast<seq_t>(number), timestamp, 1000, false, has_marker, role};
        frame_end_watch_note(&watch, number++, &packet, is_answer, now);
    }

    // A frame of four packets, `spacing` apart; the first `count` of them.
    void frame(zeb_ts_t spacing, int count = 4)
    {
        timestamp += 3000;
        for (int i = 0; i < count; i++) {
            now += i == 0 ? 0 : spacing;
            packet(i == 3);
        }
    }

    void frames(int count, zeb_ts_t spacing = 0)
    {
        for (int i = 0; i < count; i++) {
            frame(spacing);
            now += 30;
        }
    }

    static constexpr int64_t kNotAwaited = -1;

    // How long from now.
    int64_t due_in()
    {
        const zeb_ts_t due_at = frame_end_watch_due_at(&watch);
        return due_at == 0 ? kNotAwaited : static_cast<int64_t>(due_at - now);
    }

    // When packets were seen to come so far apart.
    static int64_t after(zeb_ts_t spacing)
    {
        return static_cast<int64_t>(2 * spacing + kFrameEndPlay);
    }

    frame_end_watch watch = {};
    uint32_t number = 65530;
    uint32_t timestamp = 4294960000;
    zeb_ts_t now = 1000000;
};

TEST_F(FrameEndWatch, AwaitsTheNextPacketOfAFrameAsSoonAsThoseBeforeItCame)
{
    for (const zeb_ts_t spacing : {0u, 1u, 5u, 20u}) {
        frames(20, spacing);
        frame(spacing, 2);
        EXPECT_EQ(due_in(), after(spacing));
        packet(false);
        packet(true);
    }
}

TEST_F(FrameEndWatch, AwaitsNothingBehindTheEndOfAFrame)
{
    frames(20);
    EXPECT_EQ(due_in(), kNotAwaited);
}

TEST_F(FrameEndWatch, AwaitsNothingBeforeTenFramesHaveEndedWithAMarker)
{
    frames(kFrameEndConfidence - 1);
    frame(0, 2);
    EXPECT_EQ(due_in(), kNotAwaited);
    packet(true);
    frame(0, 2);
    EXPECT_EQ(due_in(), after(0));
}

TEST_F(FrameEndWatch, LeavesASenderAloneThatDoesNotMarkAFrame)
{
    frames(20);
    frame(0, 3);
    frame(0, 2);
    EXPECT_EQ(due_in(), kNotAwaited);
}

TEST_F(FrameEndWatch, DoesNotTakeAFrameForUnmarkedWhoseEndWasLost)
{
    frames(20);
    frame(0, 3);
    number++;
    frame(0, 2);
    EXPECT_EQ(due_in(), after(0));
}

TEST_F(FrameEndWatch, WaitsLongerOnceAFramesPacketsCameFurtherApart)
{
    frames(20, 1);
    frame(8);
    frame(1, 2);
    EXPECT_EQ(due_in(), after(8));
    packet(false);
    packet(true);
    frames(30, 1);
    frame(1, 2);
    EXPECT_GE(due_in(), after(4));
    packet(false);
    packet(true);
    frames(400, 1);
    frame(1, 2);
    EXPECT_LE(due_in(), after(2));
}

TEST_F(FrameEndWatch, GoesByTheFrameUnderWayAsWell)
{
    frames(20);
    frame(7, 3);
    EXPECT_EQ(due_in(), after(7));
}

TEST_F(FrameEndWatch, DoesNotTakeAnAnswerForALatePacket)
{
    frames(20);
    frame(0, 2);
    now += 62;
    packet(false, true);
    EXPECT_EQ(due_in(), after(0));
}

TEST_F(FrameEndWatch, TakesPaddingForNoPartOfAFrame)
{
    frames(20);
    packet(false, false, PACKET_ROLE_PADDING);
    EXPECT_EQ(due_in(), kNotAwaited);
    frame(0, 2);
    packet(false, false, PACKET_ROLE_PADDING);
    EXPECT_EQ(due_in(), after(0));
    packet(false);
    packet(true);
    EXPECT_EQ(due_in(), kNotAwaited);
}

TEST_F(FrameEndWatch, LivesThroughAPauseOfDays)
{
    frames(20);
    frame(0, 2);
    now += zeb_ts_t{1} << 40;
    packet(false);
    EXPECT_EQ(due_in(), after(1000));
}

} // namespace
