#include "capture/sequence_tracker.h"

#include <gtest/gtest.h>

#include <vector>

using vrc::sequence_tracker;

namespace
{

struct row {
    const char *name;
    std::vector<int> steps; // from the first number
    uint64_t received, lost, duplicates, reordered, jumps;
};

const row kRows[] = {
    {"in order", {0, 1, 2, 3}, 4, 0, 0, 0, 0},
    {"one alone", {0}, 1, 0, 0, 0, 0},
    {"a gap", {0, 1, 4, 5}, 4, 2, 0, 0, 0},
    {"a gap filled late", {0, 3, 2, 1}, 4, 0, 0, 2, 0},
    {"a duplicate", {0, 1, 1, 2, 0}, 3, 0, 2, 0, 0},
    {"before the first one", {0, -1, -4, 1}, 4, 2, 0, 2, 0},
    {"the longest step", {0, 3000}, 2, 2999, 0, 0, 0},
    {"the longest step back", {0, -3000}, 2, 2999, 0, 1, 0},
    {"too long a step", {0, 3001, 3002}, 3, 0, 0, 0, 1},
    {"too long a step back", {0, 1, -3001, -3000}, 4, 0, 0, 0, 1},
    {"a loss before a new start", {0, 2, 20000, 20003}, 4, 3, 0, 0, 1},
};

} // namespace

TEST(SequenceTracker, CountsWhatHappenedAlsoAcrossTheWrap)
{
    for (const row &each : kRows) {
        for (const int first : {0, 1, 30000, 65533, 65535}) {
            SCOPED_TRACE(testing::Message() << each.name << " from " << first);
            sequence_tracker tracker;
            for (const int step : each.steps) {
                tracker.observe(static_cast<uint16_t>(first + step));
            }
            EXPECT_EQ(tracker.received(), each.received);
            EXPECT_EQ(tracker.lost(), each.lost);
            EXPECT_EQ(tracker.duplicates(), each.duplicates);
            EXPECT_EQ(tracker.reordered(), each.reordered);
            EXPECT_EQ(tracker.jumps(), each.jumps);
        }
    }
}

TEST(SequenceTracker, FollowsSeveralRoundsOfNumbers)
{
    sequence_tracker tracker;
    for (unsigned i = 0; i < 200'000; ++i) {
        if (i % 1000 != 999) {
            tracker.observe(static_cast<uint16_t>(i));
        }
    }
    EXPECT_EQ(tracker.received(), 199'800u);
    EXPECT_EQ(tracker.lost(), 199u); // the last of the 200 was not followed by anything
    EXPECT_EQ(tracker.jumps(), 0u);
}

TEST(SequenceTracker, KnowsNothingBeforeTheFirstNumber)
{
    const sequence_tracker tracker;
    EXPECT_EQ(tracker.received(), 0u);
    EXPECT_EQ(tracker.lost(), 0u);
}
