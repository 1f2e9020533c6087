#include "repair/frame_pace.h"

#include <gtest/gtest.h>

namespace
{

struct Pictures {
    frame_pace pace = {};
    uint32_t timestamp = 0xFFFFF000; // wraps on the way

    void pass(int count, uint32_t pause)
    {
        for (int i = 0; i < count; i++) {
            timestamp += pause;
            frame_pace_note(&pace, timestamp, true);
        }
    }
};

TEST(FramePace, IsUnknownUntilEightPausesWereSeen)
{
    Pictures pictures;
    pictures.pass(8, 3000);
    EXPECT_EQ(frame_pace_shortest(&pictures.pace), 0u);
    for (int i = 0; i < 100; i++) {
        pictures.pass(1, 3000);
        EXPECT_EQ(frame_pace_shortest(&pictures.pace), 3000u) << i;
    }
}

TEST(FramePace, IsTheShortestPauseOfLate)
{
    Pictures pictures;
    pictures.pass(31, 3000);
    pictures.pass(1, 1500);
    EXPECT_EQ(frame_pace_shortest(&pictures.pace), 1500u);
    pictures.pass(29, 3000);
    EXPECT_EQ(frame_pace_shortest(&pictures.pace), 1500u);
    pictures.pass(31, 3000);
    EXPECT_EQ(frame_pace_shortest(&pictures.pace), 3000u);
}

TEST(FramePace, CountsNoPauseOverALoss)
{
    Pictures pictures;
    pictures.pass(31, 3000);
    pictures.timestamp += 100;
    frame_pace_note(&pictures.pace, pictures.timestamp, false);
    pictures.pass(1, 3000);
    EXPECT_EQ(frame_pace_shortest(&pictures.pace), 3000u);
}

TEST(FramePace, IsUnknownWherePicturesAreNotSentInOrder)
{
    Pictures pictures;
    pictures.pass(31, 3000);
    pictures.pass(1, static_cast<uint32_t>(-3000));
    EXPECT_EQ(frame_pace_shortest(&pictures.pace), 0u);
}

} // namespace
