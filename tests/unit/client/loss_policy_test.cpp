#include "repair/loss_policy.h"

#include <gtest/gtest.h>

namespace
{

struct Row {
    const char *what;
    loss_situation situation;
    loss_verdict verdict;
};

constexpr zeb_ts_t kLong = 100000;

// on, retransmits, held up, used up, no end, key held, missing for, lateness
const Row kRows[] = {
    {"switched off", {false, false, true, true, true, true, kLong, 5}, LOSS_WAIT},
    {"nothing is held up", {true, false, false, true, true, true, kLong, 5}, LOSS_WAIT},
    {"a retransmission may come", {true, true, true, false, false, true, kLong, 5}, LOSS_WAIT},
    {"all requests in vain", {true, true, true, true, false, false, 0, 5}, LOSS_CLEAR_AND_ASK},
    {"all requests in vain, key frame held", {true, true, true, true, false, true, 0, 5}, LOSS_DROP_TO_HELD_KEY},
    {"nobody retransmits, may be late", {true, false, true, false, false, false, 9, 5}, LOSS_WAIT},
    {"nobody retransmits, nothing ever came late", {true, false, true, false, false, false, 4, 1}, LOSS_WAIT},
    {"nobody retransmits, later than ever", {true, false, true, false, false, false, 5, 1}, LOSS_CLEAR_AND_ASK},
    {"nobody retransmits, too late", {true, false, true, false, false, false, 10, 5}, LOSS_CLEAR_AND_ASK},
    {"nobody retransmits, key frame held", {true, false, true, false, false, true, 10, 5}, LOSS_DROP_TO_HELD_KEY},
    {"nobody retransmits, the path reorders", {true, false, true, false, false, false, 79, 40}, LOSS_WAIT},
    {"nobody retransmits, too late for that path",
     {true, false, true, false, false, false, 80, 40},
     LOSS_CLEAR_AND_ASK},
    {"used up does not count where nobody was asked", {true, false, true, true, false, false, 9, 5}, LOSS_WAIT},
    {"a frame without an end", {true, true, true, false, true, false, 0, 5}, LOSS_CLEAR_AND_ASK},
    {"a frame without an end before a key frame", {true, true, true, false, true, true, 0, 5}, LOSS_DROP_TO_HELD_KEY},
};

TEST(LossPolicy, DecidesByWhatIsKnown)
{
    for (const Row &row : kRows) {
        EXPECT_EQ(loss_policy_decide(&row.situation), row.verdict) << row.what;
    }
}

} // namespace
