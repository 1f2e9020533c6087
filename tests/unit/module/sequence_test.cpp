// Wrapping sequence arithmetic, byte swaps and the packed video-type byte.
#include "rtc_seq.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace
{

static_assert(KEY_FRAME == 0 && DELTA_FRAME == 1 && B_FRAME == 2);
static_assert(VIDEO_STREAM_TYPE_UNKNOWN == -1 && VIDEO_STREAM_TYPE_HIGH == 0 && VIDEO_STREAM_TYPE_LOW == 1);
static_assert(VIDEO_STREAM_TYPE_MEDIUM == 2 && VIDEO_STREAM_TYPE_LIVE == 3);
static_assert(VIDEO_STREAM_TYPE_MIN == 0 && VIDEO_STREAM_TYPE_MAX == 3);
static_assert(sizeof(video3_video_type) == 1);

// How many steps forward lead from `b` to `a` on a circle of `size` numbers.
int64_t steps_forward(int64_t a, int64_t b, int64_t size)
{
    return ((a - b) % size + size) % size;
}

constexpr int64_t kCircle16 = int64_t{1} << 16;
constexpr int64_t kCircle32 = int64_t{1} << 32;

struct after_row {
    uint32_t a;
    uint32_t b;
    int after;
    int after_eq;
};

std::vector<uint16_t> bases16()
{
    std::mt19937 random(20240611); // any values will do; the edges are what matters
    std::vector<uint16_t> bases = {0, 1, 255, 256, 1279, 1280, 0x7FFF, 0x8000, 0x8001, 0xFFFE, 0xFFFF};

    for (int i = 0; i < 9; i++) {
        bases.push_back(static_cast<uint16_t>(random()));
    }
    return bases;
}

} // namespace

TEST(Sequence16, OrdersNeighboursAcrossTheWrap)
{
    const after_row rows[] = {
        {0, 65535, 1, 1},       {65535, 0, 0, 0},       {5, 5, 0, 1},      {6, 5, 1, 1},
        {5, 6, 0, 0},           {0x8000, 0, 0, 0},      {0, 0x8000, 0, 0}, {0x7FFF, 0, 1, 1},
        {0, 0x7FFF, 0, 0},      {0x8001, 0, 0, 0},      {0, 0x8001, 1, 1}, {0xFFFF, 0x7FFF, 0, 0},
        {0x7FFF, 0xFFFF, 0, 0}, {0xFFFF, 0x8000, 1, 1}, {0, 0, 0, 1},      {65535, 65535, 0, 1},
    };

    for (const after_row &row : rows) {
        const auto a = static_cast<uint16_t>(row.a);
        const auto b = static_cast<uint16_t>(row.b);
        EXPECT_EQ(zeb_uint16_after(a, b), row.after) << a << " after " << b;
        EXPECT_EQ(zeb_uint16_after_eq(a, b), row.after_eq) << a << " after or equal " << b;
    }
}

TEST(Sequence16, AgreesWithWideArithmeticForEveryDifference)
{
    int64_t wrong = 0;

    for (const uint16_t b : bases16()) {
        for (int64_t a64 = 0; a64 < kCircle16; a64++) {
            const auto a = static_cast<uint16_t>(a64);
            const int64_t steps = steps_forward(a64, b, kCircle16);
            const bool is_after = steps >= 1 && steps <= 0x7FFF;
            const int64_t distance = std::min(steps, kCircle16 - steps);
            wrong += zeb_uint16_after(a, b) != (is_after ? 1 : 0);
            wrong += zeb_uint16_after_eq(a, b) != (is_after || steps == 0 ? 1 : 0);
            wrong += zeb_uint16_dist(a, b) != distance;
            wrong += zeb_uint16_dist(b, a) != distance;
            ASSERT_EQ(wrong, 0) << "first at a = " << a << ", b = " << b;
        }
    }
}

TEST(Sequence16, StepsAgreeWithWideArithmeticForEveryValue)
{
    for (int64_t value = 0; value < kCircle16; value++) {
        ASSERT_EQ(zeb_uint16_next(static_cast<uint16_t>(value)), (value + 1) % kCircle16);
        ASSERT_EQ(zeb_uint16_prev(static_cast<uint16_t>(value)), (value + kCircle16 - 1) % kCircle16);
    }
}

TEST(Sequence16, StepsWrap)
{
    EXPECT_EQ(zeb_uint16_next(65535), 0);
    EXPECT_EQ(zeb_uint16_prev(0), 65535);
    EXPECT_EQ(zeb_uint16_next(0x7FFF), 0x8000);
    EXPECT_EQ(zeb_uint16_prev(0x8000), 0x7FFF);
}

TEST(Sequence16, DistanceIsTheShorterWayRound)
{
    EXPECT_EQ(zeb_uint16_dist(2, 65534), 4);
    EXPECT_EQ(zeb_uint16_dist(65534, 2), 4);
    EXPECT_EQ(zeb_uint16_dist(7, 7), 0);
    EXPECT_EQ(zeb_uint16_dist(0x7FFF, 0), 0x7FFF);
    EXPECT_EQ(zeb_uint16_dist(0x8000, 0), 0x8000);
    EXPECT_EQ(zeb_uint16_dist(0, 0x8000), 0x8000);
    EXPECT_EQ(zeb_uint16_dist(0x8001, 0), 0x7FFF);
}

TEST(Sequence32, OrdersNeighboursAcrossTheWrap)
{
    const after_row rows[] = {
        {0, 0xFFFFFFFF, 1, 1},
        {0xFFFFFFFF, 0, 0, 0},
        {5, 5, 0, 1},
        {6, 5, 1, 1},
        {5, 6, 0, 0},
        {0x80000000, 0, 0, 0},
        {0, 0x80000000, 0, 0},
        {0x7FFFFFFF, 0, 1, 1},
        {0, 0x7FFFFFFF, 0, 0},
        {0x80000001, 0, 0, 0},
        {0, 0x80000001, 1, 1},
        {0x10000, 0, 1, 1},
        {0xFFFFFFFF, 0xFFFFFFFF, 0, 1},
    };

    for (const after_row &row : rows) {
        EXPECT_EQ(zeb_uint32_after(row.a, row.b), row.after) << row.a << " after " << row.b;
        EXPECT_EQ(zeb_uint32_after_eq(row.a, row.b), row.after_eq) << row.a << " after or equal " << row.b;
    }
}

TEST(Sequence32, AgreesWithWideArithmeticAroundEveryEdge)
{
    const int64_t edges[] = {0, 0x7FFF, 0x8000, 0xFFFF, 0x10000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    std::mt19937 random(20240612);
    std::vector<uint32_t> bases = {0, 1, 0x7FFFFFFF, 0x80000000, 0x80000001, 0xFFFFFFFE, 0xFFFFFFFF};

    for (int i = 0; i < 100; i++) {
        bases.push_back(static_cast<uint32_t>(random()));
    }
    for (const uint32_t b : bases) {
        for (const int64_t edge : edges) {
            for (int64_t near = -40; near <= 40; near++) {
                const int64_t steps = steps_forward(edge + near, 0, kCircle32);
                const auto a = static_cast<uint32_t>((b + steps) % kCircle32);
                const bool is_after = steps >= 1 && steps <= 0x7FFFFFFF;
                ASSERT_EQ(zeb_uint32_after(a, b), is_after ? 1 : 0) << a << " after " << b;
                ASSERT_EQ(zeb_uint32_after_eq(a, b), is_after || steps == 0 ? 1 : 0) << a << " after or equal " << b;
            }
        }
    }
}

TEST(Sequence32, StepsWrap)
{
    EXPECT_EQ(zeb_uint32_next(0xFFFFFFFF), 0u);
    EXPECT_EQ(zeb_uint32_prev(0), 0xFFFFFFFFu);
    EXPECT_EQ(zeb_uint32_next(0xFFFF), 0x10000u);
    EXPECT_EQ(zeb_uint32_prev(0x10000), 0xFFFFu);
    EXPECT_EQ(zeb_uint32_next(0x7FFFFFFF), 0x80000000u);
    EXPECT_EQ(zeb_uint32_prev(0x80000000), 0x7FFFFFFFu);
}

TEST(ByteSwap, ReversesBytes)
{
    EXPECT_EQ(__bswap16(0x1234), 0x3412);
    EXPECT_EQ(__bswap16(0x00FF), 0xFF00);
    EXPECT_EQ(__bswap16(0xFFFF), 0xFFFF);
    EXPECT_EQ(__bswap32(0x12345678), 0x78563412u);
    EXPECT_EQ(__bswap32(0x000000FF), 0xFF000000u);
    EXPECT_EQ(__bswap32(0xFF00FF00), 0x00FF00FFu);
}

TEST(ByteSwap, AgreesWithReversedMemoryForEveryHalfWord)
{
    for (uint32_t value = 0; value <= 0xFFFF; value++) {
        const auto half = static_cast<uint16_t>(value);
        const uint32_t word = value << 16 | (value * 40503u & 0xFFFF);
        uint8_t bytes[4];
        uint16_t reversed16 = 0;
        uint32_t reversed32 = 0;

        std::memcpy(bytes, &half, sizeof(half));
        std::reverse(bytes, bytes + sizeof(half));
        std::memcpy(&reversed16, bytes, sizeof(half));
        ASSERT_EQ(__bswap16(half), reversed16);

        std::memcpy(bytes, &word, sizeof(word));
        std::reverse(bytes, bytes + sizeof(word));
        std::memcpy(&reversed32, bytes, sizeof(word));
        ASSERT_EQ(__bswap32(word), reversed32);
    }
}

TEST(VideoType, IsAKeyFrameWhenTheHighNibbleIsZero)
{
    for (int byte = 0; byte <= 0xFF; byte++) {
        EXPECT_EQ(__is_key_frame(static_cast<uint8_t>(byte)), byte <= 0x0F ? 1 : 0) << byte;
    }
}

TEST(VideoType, HoldsTheStreamInTheLowAndTheFrameInTheHighNibble)
{
    video3_video_type type = {};

    type.video_type = 0x23;
    EXPECT_EQ(type.stream_type, VIDEO_STREAM_TYPE_LIVE);
    EXPECT_EQ(type.frame_type, B_FRAME);
    type.frame_type = DELTA_FRAME;
    type.stream_type = VIDEO_STREAM_TYPE_MEDIUM;
    EXPECT_EQ(type.video_type, 0x12);
}
