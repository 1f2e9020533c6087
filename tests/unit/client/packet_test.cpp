#include "rtc_packet.h"

#include <gtest/gtest.h>

#include <cstring>

namespace
{

PVideoData4 filled_packet(uint8_t *payload, uint32_t *contents)
{
    PVideoData4 packet = {};
    packet.common = {1, 2, 3, 4};
    packet.header = {5, 6, 7, 8, 9, 10, 11, 12};
    packet.extension.tag = 13;
    packet.extension.contents = {1, 2, contents};
    packet.payload = {3, 4, payload};
    return packet;
}

TEST(VideoDataTake, MovesEveryFieldWithItsBuffers)
{
    uint8_t payload[4] = {};
    uint32_t contents[2] = {};
    PVideoData4 src = filled_packet(payload, contents);
    PVideoData4 dst = {};
    video_data4_take(&dst, &src);

    EXPECT_EQ(1u, dst.common.cid);
    EXPECT_EQ(2u, dst.common.uid);
    EXPECT_EQ(3u, dst.common.seq);
    EXPECT_EQ(4u, dst.common.sent_ts);
    EXPECT_EQ(5u, dst.header.frame_seq);
    EXPECT_EQ(6u, dst.header.n_pkts);
    EXPECT_EQ(7u, dst.header.subseq);
    EXPECT_EQ(8u, dst.header.video_type);
    EXPECT_EQ(9u, dst.header.codec);
    EXPECT_EQ(10u, dst.header.flags);
    EXPECT_EQ(11u, dst.header.protocol_version);
    EXPECT_EQ(12u, dst.header.reserved);
    EXPECT_EQ(13u, dst.extension.tag);
    EXPECT_EQ(contents, dst.extension.contents.values);
    EXPECT_EQ(1u, dst.extension.contents.count);
    EXPECT_EQ(2u, dst.extension.contents.allocated);
    EXPECT_EQ(payload, dst.payload.values);
    EXPECT_EQ(3u, dst.payload.count);
    EXPECT_EQ(4u, dst.payload.allocated);
}

TEST(VideoDataTake, LeavesTheSourceAllZero)
{
    uint8_t payload[4] = {};
    uint32_t contents[2] = {};
    PVideoData4 src = filled_packet(payload, contents);
    PVideoData4 dst = {};
    video_data4_take(&dst, &src);

    uint8_t left[sizeof(src)];
    memcpy(left, &src, sizeof(src));
    for (const uint8_t byte : left) {
        EXPECT_EQ(0u, byte);
    }
}

TEST(VideoDataTake, OverwritesTheDestinationWithoutReleasingIt)
{
    // Neither buffer is from the heap: releasing one would be seen.
    uint8_t old_payload[1] = {};
    uint32_t old_contents[1] = {};
    PVideoData4 dst = filled_packet(old_payload, old_contents);
    PVideoData4 src = {};
    video_data4_take(&dst, &src);

    EXPECT_EQ(nullptr, dst.payload.values);
    EXPECT_EQ(nullptr, dst.extension.contents.values);
    EXPECT_EQ(0u, dst.header.frame_seq);
}

TEST(VideoDataTake, OntoItselfKeepsThePacket)
{
    uint8_t payload[4] = {};
    uint32_t contents[2] = {};
    PVideoData4 packet = filled_packet(payload, contents);
    video_data4_take(&packet, &packet);
    EXPECT_EQ(payload, packet.payload.values);
    EXPECT_EQ(3u, packet.common.seq);
}

} // namespace
