#include <gtest/gtest.h>

#include <cstdint>

#include "video_stream.h"

namespace
{

// What both numberings know, they number alike; 254 is everything else.
uint8_t shared_number(uint32_t codec)
{
    switch (codec & 0xFF) {
    case 2:
    case 3:
    case 6:
    case 20:
        return static_cast<uint8_t>(codec & 0xFF);
    default:
        return 254;
    }
}

uint8_t to_inner(uint32_t codec)
{
    return video_codec_to_inner(static_cast<video_data_type_e>(codec));
}

uint8_t to_outer(uint32_t codec)
{
    return video_codec_to_outer(static_cast<VIDEO_PACKET_TYPE>(codec));
}

struct codec_case {
    uint32_t codec;
    uint8_t mapped;
};

TEST(CodecToInner, KnowsTheCodecsThatPacketsCarry)
{
    const codec_case cases[] = {
        {VIDEO_DATA_TYPE_H264, VIDEO_TYPE_H264},
        {VIDEO_DATA_TYPE_H265, VIDEO_TYPE_H265},
        {VIDEO_DATA_TYPE_GENERIC, VIDEO_TYPE_GENERIC},
        {VIDEO_DATA_TYPE_GENERIC_JPEG, VIDEO_TYPE_GENERIC_JPEG},
        {VIDEO_DATA_TYPE_YUV420, VIDEO_TYPE_UNKNOWN},
        {1, 254},
        {7, 254},
        {254, 254},
        {255, 254},
    };

    for (const codec_case &row : cases) {
        EXPECT_EQ(row.mapped, to_inner(row.codec)) << row.codec;
    }
}

TEST(CodecToOuter, KnowsTheCodecsThatTheApplicationNames)
{
    const codec_case cases[] = {
        {VIDEO_TYPE_H264, VIDEO_DATA_TYPE_H264},
        {VIDEO_TYPE_H265, VIDEO_DATA_TYPE_H265},
        {VIDEO_TYPE_GENERIC, VIDEO_DATA_TYPE_GENERIC},
        {VIDEO_TYPE_GENERIC_JPEG, VIDEO_DATA_TYPE_GENERIC_JPEG},
        {VIDEO_TYPE_VP8, 254},
        {VIDEO_TYPE_GENERIC_H264, 254},
        {VIDEO_TYPE_UNKNOWN, 254},
        {0, 254},
        {255, 254},
    };

    for (const codec_case &row : cases) {
        EXPECT_EQ(row.mapped, to_outer(row.codec)) << row.codec;
    }
}

TEST(CodecMapping, LooksAtTheLowEightBitsAlone)
{
    EXPECT_EQ(2, to_inner(258));
    EXPECT_EQ(2, to_outer(258));
    EXPECT_EQ(20, to_inner(0x80000014));
    EXPECT_EQ(20, to_outer(0xFFFFFF14));
    EXPECT_EQ(254, to_inner(0x200));
    EXPECT_EQ(254, to_outer(0x301));
}

TEST(CodecMapping, GivesUnknownForEverythingElse)
{
    for (uint32_t codec = 0; codec < 0x400; codec++) {
        EXPECT_EQ(shared_number(codec), to_inner(codec)) << codec;
        EXPECT_EQ(shared_number(codec), to_outer(codec)) << codec;
    }
}

} // namespace
