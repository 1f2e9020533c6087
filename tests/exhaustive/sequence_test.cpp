// Wrapping sequence arithmetic for all pairs of 16-bit numbers and all differences of 32-bit ones, against the number
// of steps that lead from one to the other.
#include "rtc_seq.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

namespace
{

constexpr uint32_t kCircle = 0x10000;

// What one function gives for `a` and `b`, by the steps forward from `b` to `a`. The circle twice, so that the row of
// any `b` is a stretch of it.
class ExpectedBySteps
{
  public:
    template <typename Expected> explicit ExpectedBySteps(Expected expected)
    {
        for (uint32_t steps = 0; steps < 2 * kCircle; steps++) {
            by_steps_.push_back(static_cast<uint16_t>(expected(steps % kCircle)));
        }
    }

    // For `b` and every `a` from 0 on.
    const uint16_t *row(uint32_t b) const
    {
        return by_steps_.data() + (kCircle - b);
    }

  private:
    std::vector<uint16_t> by_steps_;
};

// The first `b` for which some `a` is answered wrong, or the size of the circle. The inner loop has no branch, so that
// the compiler takes several numbers at a time.
template <typename Function> uint32_t first_wrong_row(const ExpectedBySteps &expected, Function function)
{
    for (uint32_t b = 0; b < kCircle; b++) {
        const uint16_t *row = expected.row(b);
        uint16_t wrong = 0;
        for (uint32_t a = 0; a < kCircle; a++) {
            const auto result = static_cast<uint16_t>(function(static_cast<uint16_t>(a), static_cast<uint16_t>(b)));
            wrong = static_cast<uint16_t>(wrong | (result ^ row[a]));
        }
        if (wrong != 0) {
            return b;
        }
    }
    return kCircle;
}

// How many of all 32-bit numbers a test says no to.
template <typename Holds> uint64_t count_wrong(Holds holds)
{
    uint64_t wrong = 0;

    for (uint32_t high = 0; high < kCircle; high++) {
        uint32_t wrong_here = 0;
        for (uint32_t low = 0; low < kCircle; low++) {
            wrong_here += holds(high << 16 | low) ? 0U : 1U;
        }
        wrong += wrong_here;
    }
    return wrong;
}

} // namespace

TEST(AllSequence16, IsAfterForLessThanHalfACircle)
{
    const ExpectedBySteps expected([](uint32_t steps) { return steps >= 1 && steps <= 0x7FFF; });

    EXPECT_EQ(first_wrong_row(expected, [](uint16_t a, uint16_t b) { return zeb_uint16_after(a, b); }), kCircle);
}

TEST(AllSequence16, IsAfterOrEqualForLessThanHalfACircle)
{
    const ExpectedBySteps expected([](uint32_t steps) { return steps <= 0x7FFF; });

    EXPECT_EQ(first_wrong_row(expected, [](uint16_t a, uint16_t b) { return zeb_uint16_after_eq(a, b); }), kCircle);
}

TEST(AllSequence16, DistanceIsTheShorterWayRound)
{
    const ExpectedBySteps expected([](uint32_t steps) { return std::min(steps, kCircle - steps); });

    EXPECT_EQ(first_wrong_row(expected, [](uint16_t a, uint16_t b) { return zeb_uint16_dist(a, b); }), kCircle);
}

TEST(AllSequence32, IsAfterForLessThanHalfACircle)
{
    for (const uint32_t b : {0U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(count_wrong([b](uint32_t steps) {
                      return zeb_uint32_after(b + steps, b) == (steps != 0 && steps <= 0x7FFFFFFF ? 1 : 0);
                  }),
                  0U);
    }
}

TEST(AllSequence32, IsAfterOrEqualForLessThanHalfACircle)
{
    for (const uint32_t b : {0U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(count_wrong([b](uint32_t steps) {
                      return zeb_uint32_after_eq(b + steps, b) == (steps <= 0x7FFFFFFF ? 1 : 0);
                  }),
                  0U);
    }
}

TEST(AllSequence32, StepsGoForthAndBack)
{
    EXPECT_EQ(count_wrong([](uint32_t value) {
                  return zeb_uint32_next(value) == (value == 0xFFFFFFFF ? 0 : value + 1) &&
                         zeb_uint32_prev(zeb_uint32_next(value)) == value;
              }),
              0U);
}

TEST(AllWords, SwapTheirBytes)
{
    EXPECT_EQ(
        count_wrong([](uint32_t value) {
            const uint32_t bytes[] = {value & 0xFF, value / 0x100 & 0xFF, value / 0x10000 & 0xFF, value / 0x1000000};
            return __bswap32(value) == bytes[0] * 0x1000000 + bytes[1] * 0x10000 + bytes[2] * 0x100 + bytes[3];
        }),
        0U);
    for (uint32_t value = 0; value < kCircle; value++) {
        ASSERT_EQ(__bswap16(static_cast<uint16_t>(value)), value % 0x100 * 0x100 + value / 0x100);
    }
}
