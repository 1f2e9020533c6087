#include "loss_policy.h"

#include <gtest/gtest.h>

namespace
{

struct Row {
    const char *what;
    loss_situation situation;
    loss_verdict verdict;
};

constexpr zeb_ts_t kLong = 100000;

// on, retransmits, held up, used up, no end, key held, missing for
const Row kRows[] = {
    {"switched off", {false, false, true, true, true, true, kLong}, LOSS_WAIT},
    {"nothing is held up", {true, false, false, true, true, true, kLong}, LOSS_WAIT},
    {"a retransmission may come", {true, true, true, false, false, true, kLong}, LOSS_WAIT},
    {"all requests in vain", {true, true, true, true, false, false, 0}, LOSS_CLEAR_AND_ASK},
    {"all requests in vain, key frame held", {true, true, true, true, false, true, 0}, LOSS_DROP_TO_HELD_KEY},
    {"nobody retransmits, may be late", {true, false, true, false, false, false, 99}, LOSS_WAIT},
    {"nobody retransmits, too late", {true, false, true, false, false, false, 100}, LOSS_CLEAR_AND_ASK},
    {"nobody retransmits, key frame held", {true, false, true, false, false, true, 100}, LOSS_DROP_TO_HELD_KEY},
    {"used up does not count where nobody was asked", {true, false, true, true, false, false, 99}, LOSS_WAIT},
    {"a frame without an end", {true, true, true, false, true, false, 0}, LOSS_CLEAR_AND_ASK},
    {"a frame without an end before a key frame", {true, true, true, false, true, true, 0}, LOSS_DROP_TO_HELD_KEY},
};

TEST(LossPolicy, DecidesByWhatIsKnown)
{
    for (const Row &row : kRows) {
        EXPECT_EQ(loss_policy_decide(&row.situation), row.verdict) << row.what;
    }
}

} // namespace
