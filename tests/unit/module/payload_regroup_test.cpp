#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "fake_layers.h"
#include "log_gate.h"
#include "packets.h"
#include "payload_frame.h"

using namespace test_support;

namespace
{

constexpr char kRegroupTag[] = "video_frame_regroup_pkts";
constexpr size_t kUntouched = 0xDEAD; // in the caller's size before the call

// What a call gave; the buffer has been read and freed.
struct bitstream {
    bool is_null;
    size_t size; // as written by the call
    bytes data;
};

bitstream regroup(video_frame *frame, uint32_t packetizer_type)
{
    bitstream result = {true, kUntouched, {}};
    uint8_t *data = video_frame_regroup_pkts(frame, static_cast<PACKETIZER_TYPE>(packetizer_type), &result.size);

    if (data != nullptr) {
        result.is_null = false;
        result.data.assign(data, data + result.size);
        zeb_free_impl(data);
    }
    EXPECT_TRUE(World::now_living().live.empty()) << "nothing but the result may stay allocated";
    return result;
}

void expect_bytes(const bytes &expected, const bitstream &result)
{
    EXPECT_FALSE(result.is_null);
    EXPECT_EQ(expected.size(), result.size);
    EXPECT_EQ(expected, result.data);
}

void expect_null(size_t size, const bitstream &result)
{
    EXPECT_TRUE(result.is_null);
    EXPECT_EQ(size, result.size);
}

// `size` bytes that no padding looks like, the last one 0.
bytes plain(size_t size)
{
    bytes payload(size, 0xEE);

    payload.back() = 0;
    return payload;
}

// `size` bytes of which the last `pad_count` hold `pad_count`.
bytes padded(size_t size, uint8_t pad_count)
{
    bytes payload(size, 0xEE);

    std::fill(payload.end() - pad_count, payload.end(), pad_count);
    return payload;
}

const uint32_t kPacketizers[] = {PACKETIZER_TYPE_GENERIC, PACKETIZER_TYPE_H264, PACKETIZER_TYPE_H265, 3,
                                 PACKETIZER_TYPE_UNKNOWN};

// -- Arguments and memory --

TEST(FrameRegroup, GivesNullForNullArguments)
{
    World world;
    PacketFrame source({plain(5)});
    size_t size = kUntouched;

    EXPECT_EQ(nullptr, video_frame_regroup_pkts(nullptr, PACKETIZER_TYPE_GENERIC, &size));
    EXPECT_EQ(kUntouched, size);
    EXPECT_EQ(nullptr, video_frame_regroup_pkts(&source.frame, PACKETIZER_TYPE_GENERIC, nullptr));
    EXPECT_EQ(nullptr, video_frame_regroup_pkts(nullptr, PACKETIZER_TYPE_GENERIC, nullptr));
    EXPECT_TRUE(world.allocations.empty());
    EXPECT_TRUE(world.log.empty());
}

TEST(FrameRegroup, GivesNullWithoutMemoryAndLeavesTheSizeAlone)
{
    for (const uint32_t packetizer : kPacketizers) {
        SCOPED_TRACE(packetizer);
        World world;
        PacketFrame source({plain(5)});
        world.refuse_tag(kRegroupTag);

        expect_null(kUntouched, regroup(&source.frame, packetizer));
        EXPECT_EQ(1u, world.allocations.size());
        EXPECT_TRUE(world.log.empty());
        EXPECT_TRUE(world.depacketized.empty());
    }
}

struct room_case {
    const char *name;
    std::vector<size_t> payloads;
    size_t n_media;
    size_t room;
};

TEST(FrameRegroup, AllocatesOnceThirtyTwoBytesAndThePayloadPerMediaPacket)
{
    const room_case cases[] = {
        {"one byte", {1}, 1, 33},
        {"three packets", {100, 100, 50}, 3, 346},
        {"FEC packets take no room", {100, 100, 50, 70}, 2, 264},
        {"only FEC packets", {100}, 0, 0},
        {"more than 16 bits", {65535, 65535, 65535}, 3, 196701},
        {"empty packets", {0, 7, 0}, 3, 103},
    };

    for (const room_case &row : cases) {
        for (const uint32_t packetizer : kPacketizers) {
            SCOPED_TRACE(::testing::Message() << row.name << ", packetizer " << packetizer);
            World world;
            std::vector<bytes> packets;
            for (const size_t size : row.payloads) {
                packets.emplace_back(size, uint8_t{0});
            }
            PacketFrame source(packets);
            source.frame.n_pkts_media = static_cast<uint16_t>(row.n_media);

            regroup(&source.frame, packetizer);
            ASSERT_EQ(1u, world.allocations.size());
            EXPECT_EQ(row.room, world.allocations[0].size);
            EXPECT_EQ(kRegroupTag, world.allocations[0].tag);
        }
    }
}

TEST(FrameRegroup, GivesNullAndNoSizeForAFrameWithoutMediaPackets)
{
    for (const uint32_t packetizer : kPacketizers) {
        for (const bool is_refused : {false, true}) { // an allocator may give null for nothing
            SCOPED_TRACE(::testing::Message() << packetizer << (is_refused ? ", null for 0 bytes" : ""));
            World world;
            PacketFrame source({plain(5)});
            source.frame.n_pkts_media = 0;
            world.refuse = [is_refused](size_t, const allocation &) { return is_refused; };

            expect_null(0, regroup(&source.frame, packetizer));
            EXPECT_TRUE(world.log.empty());
            EXPECT_TRUE(world.depacketized.empty());
        }
    }
}

TEST(FrameRegroup, GivesNullAndNoSizeForAFrameParsedWithoutMemory)
{
    for (const uint32_t packetizer : kPacketizers) {
        SCOPED_TRACE(packetizer);
        World world;
        PacketFrame source({rtp_bytes({}, {1, 2}), rtp_bytes({}, {3, 4})});
        video_frame parsed = {};
        world.refuse_tag("video_frame_parse_payload");
        ASSERT_EQ(0, video_frame_parse_payload(&source.frame, &parsed));
        ASSERT_EQ(nullptr, parsed.pkts);

        expect_null(0, regroup(&parsed, packetizer));
        EXPECT_TRUE(world.log.empty());
        EXPECT_TRUE(world.depacketized.empty());
    }
}

// A frame from elsewhere may name its media packets and nothing more.
TEST(FrameRegroup, NeedsTheMediaCountAlone)
{
    World world;
    PacketFrame source({{1}, {2, 0}});
    source.frame.n_pkts_total = 0;
    source.frame.pkts_status = nullptr;

    expect_bytes({1, 2, 0}, regroup(&source.frame, PACKETIZER_TYPE_GENERIC));
}

// More FEC packets than packets make the media count wrap.
TEST(FrameRegroup, StopsAtThePacketsThereAreWhenTheMediaCountHasWrapped)
{
    for (const uint32_t packetizer : kPacketizers) {
        SCOPED_TRACE(packetizer);
        World world;
        PacketFrame source({{1}, {2, 0}});
        source.frame.n_pkts_fec = 3;
        source.frame.n_pkts_media = 65535;

        const bitstream result = regroup(&source.frame, packetizer);
        EXPECT_EQ(2u * 32 + 3, world.allocations[0].size);
        if (packetizer == PACKETIZER_TYPE_GENERIC) {
            expect_bytes({1, 2, 0}, result);
        } else if (packetizer <= PACKETIZER_TYPE_H265) {
            expect_bytes({0, 0, 0, 1, 1, 0, 0, 0, 1, 2, 0}, result);
        } else {
            expect_null(0, result);
        }
    }
}

// -- Generic payloads --

TEST(FrameRegroupGeneric, JoinsThePayloadsInOrder)
{
    World world;
    PacketFrame source({{1, 2, 3}, {4}, {5, 6, 0}});

    expect_bytes({1, 2, 3, 4, 5, 6, 0}, regroup(&source.frame, PACKETIZER_TYPE_GENERIC));
    EXPECT_TRUE(world.log.empty());
    EXPECT_TRUE(world.depacketized.empty());
}

TEST(FrameRegroupGeneric, TakesThePaddingOffTheLastPacket)
{
    World world;
    PacketFrame source({bytes(100, 0x11), bytes(100, 0x22), padded(50, 3)});

    bytes expected(100, 0x11);
    expected.insert(expected.end(), 100, 0x22);
    expected.insert(expected.end(), 47, 0xEE);
    expect_bytes(expected, regroup(&source.frame, PACKETIZER_TYPE_GENERIC));
}

TEST(FrameRegroupGeneric, CopiesEarlierPacketsWhole)
{
    World world;
    PacketFrame source({{7, 3, 3, 3}, {1}, {9, 2}, {5, 0}});

    expect_bytes({7, 3, 3, 3, 1, 9, 2, 5, 0}, regroup(&source.frame, PACKETIZER_TYPE_GENERIC));
}

TEST(FrameRegroupGeneric, LooksForPaddingInTheLastMediaPacketNotInFecPackets)
{
    World world;
    PacketFrame source({{7, 8}, {9, 2, 2}, {0xAA, 4}});
    source.frame.n_pkts_media = 2;

    expect_bytes({7, 8, 9}, regroup(&source.frame, PACKETIZER_TYPE_GENERIC));
}

TEST(FrameRegroupGeneric, TakesOffEveryPadCountThereIs)
{
    for (int count = 0; count < 256; count++) {
        SCOPED_TRACE(count);
        const auto pad_count = static_cast<uint8_t>(count);
        World world;
        bytes payload = count == 0 ? plain(300) : padded(300, pad_count);
        PacketFrame source({{1, 2}, payload});

        bytes expected = {1, 2};
        expected.insert(expected.end(), payload.begin(), payload.end() - count);
        expect_bytes(expected, regroup(&source.frame, PACKETIZER_TYPE_GENERIC));
    }
}

TEST(FrameRegroupGeneric, TakesPaddingForAllOfTheLastPacket)
{
    for (int count = 1; count < 256; count++) {
        SCOPED_TRACE(count);
        World world;
        const bytes payload(static_cast<size_t>(count), static_cast<uint8_t>(count));
        PacketFrame with_more({{1, 2}, payload});
        PacketFrame alone({payload});

        expect_bytes({1, 2}, regroup(&with_more.frame, PACKETIZER_TYPE_GENERIC));
        expect_null(0, regroup(&alone.frame, PACKETIZER_TYPE_GENERIC));
        EXPECT_TRUE(world.log.empty());
    }
}

// One wrong byte, at every place where the count promises a pad byte.
TEST(FrameRegroupGeneric, RejectsPaddingThatDoesNotHoldItsCountThroughout)
{
    const std::vector<log_line> padding_error = {{RTC_LOG_ERROR, "[ERROR] Generic padding error!\n"}};

    for (const int count : {2, 3, 100, 254, 255}) {
        for (int k = 1; k < count; k++) {
            SCOPED_TRACE(::testing::Message() << count << " pad bytes, wrong " << k << " before the last");
            World world;
            bytes payload = padded(300, static_cast<uint8_t>(count));
            payload[static_cast<size_t>(299 - k)] = static_cast<uint8_t>(count - 1);
            PacketFrame source({{1, 2}, payload});

            expect_null(kUntouched, regroup(&source.frame, PACKETIZER_TYPE_GENERIC));
            EXPECT_EQ(padding_error, world.log);
        }
    }
}

TEST(FrameRegroupGeneric, LooksNoFurtherThanThePadCount)
{
    World world;
    PacketFrame source({{9, 3, 3, 3, 3}});

    expect_bytes({9, 3}, regroup(&source.frame, PACKETIZER_TYPE_GENERIC));
}

TEST(FrameRegroupGeneric, RejectsAPadCountAboveThePayload)
{
    for (const bytes &payload : std::vector<bytes>{{2}, {255}, {3, 3}, bytes(254, 255)}) {
        SCOPED_TRACE(::testing::Message() << payload.size() << " bytes of " << int{payload[0]});
        World world;
        PacketFrame source({payload});

        expect_null(kUntouched, regroup(&source.frame, PACKETIZER_TYPE_GENERIC));
        EXPECT_EQ((std::vector<log_line>{{RTC_LOG_ERROR, "[ERROR] Generic padding error!\n"}}), world.log);
    }
}

TEST(FrameRegroupGeneric, FindsNoPaddingInAnEmptyLastPacket)
{
    for (const bool is_missing : {false, true}) {
        SCOPED_TRACE(is_missing ? "missing" : "empty");
        World world;
        PacketFrame source({{1, 3, 3, 3}, {}});
        if (is_missing) {
            source.lose(1);
        }

        expect_bytes({1, 3, 3, 3}, regroup(&source.frame, PACKETIZER_TYPE_GENERIC));
        EXPECT_TRUE(world.log.empty());
    }
}

TEST(FrameRegroupGeneric, SkipsMissingPacketsInTheMiddle)
{
    World world;
    PacketFrame source({{1}, {2}, {3, 0}});
    source.lose(1);

    expect_bytes({1, 3, 0}, regroup(&source.frame, PACKETIZER_TYPE_GENERIC));
}

TEST(FrameRegroupGeneric, GivesNullAndNoSizeWhenAllPayloadsAreEmpty)
{
    World world;
    PacketFrame source({{}, {}});

    expect_null(0, regroup(&source.frame, PACKETIZER_TYPE_GENERIC));
    EXPECT_EQ(64u, world.allocations[0].size);
    EXPECT_TRUE(world.log.empty());
}

TEST(FrameRegroupGeneric, JoinsTheLargestPackets)
{
    World world;
    PacketFrame source({bytes(65535, 0x11), padded(65535, 255)});

    bytes expected(65535, 0x11);
    expected.insert(expected.end(), 65535 - 255, 0xEE);
    expect_bytes(expected, regroup(&source.frame, PACKETIZER_TYPE_GENERIC));
}

// -- H.264 and H.265 --

class FrameRegroupNal : public ::testing::TestWithParam<PACKETIZER_TYPE>
{
  protected:
    bool is_h265() const
    {
        return GetParam() == PACKETIZER_TYPE_H265;
    }

    World world;
};

INSTANTIATE_TEST_SUITE_P(Codecs, FrameRegroupNal, ::testing::Values(PACKETIZER_TYPE_H264, PACKETIZER_TYPE_H265),
                         [](const auto &instance) { return instance.param == PACKETIZER_TYPE_H264 ? "H264" : "H265"; });

TEST_P(FrameRegroupNal, PassesEveryMediaPacketToItsDepacketizer)
{
    PacketFrame source({{0x65, 1, 2}, {0x41}, {9, 9, 9}});
    source.frame.n_pkts_media = 2;

    expect_bytes({0, 0, 0, 1, 0x65, 1, 2, 0, 0, 0, 1, 0x41}, regroup(&source.frame, GetParam()));
    ASSERT_EQ(2u, world.depacketized.size());
    EXPECT_EQ((bytes{0x65, 1, 2}), world.depacketized[0].payload);
    EXPECT_EQ(0u, world.depacketized[0].frame_offset);
    EXPECT_EQ(bytes{0x41}, world.depacketized[1].payload);
    EXPECT_EQ(7u, world.depacketized[1].frame_offset);
    for (const depacketizer_call &call : world.depacketized) {
        EXPECT_EQ(is_h265(), call.is_h265);
    }
    EXPECT_TRUE(world.log.empty());
}

TEST_P(FrameRegroupNal, PassesTheBufferAndThePayloadItself)
{
    PacketFrame source({{1, 2, 3}, {4, 5}});
    std::vector<const uint8_t *> buffers;
    world.depacketize = [&](size_t call, uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr,
                            size_t *frame_offset, size_t *frame_size) {
        buffers.push_back(frame_data);
        EXPECT_EQ(source.frame.pkts[call].values, cur_ptr);
        EXPECT_EQ(source.frame.pkts[call].count, end_ptr - cur_ptr);
        frame_data[(*frame_offset)++] = static_cast<uint8_t>(0xA0 + call);
        *frame_size += 1;
        return 0;
    };

    expect_bytes({0xA0, 0xA1}, regroup(&source.frame, GetParam()));
    ASSERT_EQ(2u, buffers.size());
    EXPECT_EQ(buffers[0], buffers[1]);
}

TEST_P(FrameRegroupNal, KeepsTheWritePositionApartFromTheSize)
{
    PacketFrame source({{1}, {2}, {3}});
    std::vector<std::pair<size_t, size_t>> seen;
    world.depacketize = [&](size_t, uint8_t *frame_data, const uint8_t *, const uint8_t *, size_t *frame_offset,
                            size_t *frame_size) {
        seen.emplace_back(*frame_offset, *frame_size);
        frame_data[seen.size() - 1] = 0x77;
        *frame_offset += 10;
        *frame_size += 1;
        return 0;
    };

    expect_bytes({0x77, 0x77, 0x77}, regroup(&source.frame, GetParam()));
    EXPECT_EQ((std::vector<std::pair<size_t, size_t>>{{0, 0}, {10, 1}, {20, 2}}), seen);
}

TEST_P(FrameRegroupNal, HasRoomForEightStartCodesPerPacket)
{
    PacketFrame source({bytes(7, 0x11), bytes(9, 0x22)});
    world.depacketize = [](size_t, uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr,
                           size_t *frame_offset, size_t *frame_size) {
        const size_t size = static_cast<size_t>(end_ptr - cur_ptr) + 32;
        std::fill_n(frame_data + *frame_offset, size, *cur_ptr);
        *frame_offset += size;
        *frame_size += size;
        return 0;
    };

    bytes expected(39, 0x11);
    expected.insert(expected.end(), 41, 0x22);
    expect_bytes(expected, regroup(&source.frame, GetParam()));
}

TEST_P(FrameRegroupNal, LeavesPaddingToTheDepacketizer)
{
    PacketFrame source({{0x65, 2, 2}});

    expect_bytes({0, 0, 0, 1, 0x65, 2, 2}, regroup(&source.frame, GetParam()));
}

TEST_P(FrameRegroupNal, StopsAtTheFirstPacketThatFailsAndKeepsWhatCameBefore)
{
    for (const int failure : {1, -1, 256}) {
        SCOPED_TRACE(failure);
        world.depacketized.clear();
        PacketFrame source({{1}, {2}, {3}});
        world.depacketize = [failure](size_t call, uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *,
                                      size_t *frame_offset, size_t *frame_size) {
            if (call == 1) {
                return failure;
            }
            frame_data[(*frame_offset)++] = *cur_ptr;
            *frame_size += 1;
            return 0;
        };

        expect_bytes({1}, regroup(&source.frame, GetParam()));
        EXPECT_EQ(2u, world.depacketized.size());
        EXPECT_TRUE(world.log.empty());
    }
}

TEST_P(FrameRegroupNal, KeepsBytesOfThePacketThatFails)
{
    PacketFrame source({{1}, {2}});
    world.depacketize = [](size_t, uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *, size_t *frame_offset,
                           size_t *frame_size) {
        frame_data[(*frame_offset)++] = *cur_ptr;
        *frame_size += 1;
        return 1;
    };

    expect_bytes({1}, regroup(&source.frame, GetParam()));
}

TEST_P(FrameRegroupNal, GivesNullAndNoSizeWhenTheFirstPacketFailsWithoutBytes)
{
    PacketFrame source({{1}, {2}});
    world.depacketize = [](size_t, uint8_t *, const uint8_t *, const uint8_t *, size_t *, size_t *) { return 1; };

    expect_null(0, regroup(&source.frame, GetParam()));
    EXPECT_EQ(1u, world.depacketized.size());
    EXPECT_TRUE(world.log.empty());
}

TEST_P(FrameRegroupNal, GivesNullAndNoSizeWhenNoPacketYieldsBytes)
{
    PacketFrame source({{1}, {2}});
    world.depacketize = [](size_t, uint8_t *, const uint8_t *, const uint8_t *, size_t *frame_offset, size_t *) {
        *frame_offset += 3; // the size alone tells
        return 0;
    };

    expect_null(0, regroup(&source.frame, GetParam()));
    EXPECT_EQ(2u, world.depacketized.size());
}

TEST_P(FrameRegroupNal, PassesAMissingPacketAsAnEmptyRange)
{
    PacketFrame source({{1}, {2}});
    source.lose(0);
    world.depacketize = [](size_t call, uint8_t *frame_data, const uint8_t *cur_ptr, const uint8_t *end_ptr,
                           size_t *frame_offset, size_t *frame_size) {
        if (call == 0) {
            EXPECT_EQ(nullptr, cur_ptr);
            EXPECT_EQ(nullptr, end_ptr);
            return 0;
        }
        frame_data[(*frame_offset)++] = *cur_ptr;
        *frame_size += 1;
        return 0;
    };

    expect_bytes({2}, regroup(&source.frame, GetParam()));
}

// -- Unknown packetizers --

struct unknown_case {
    uint32_t packetizer;
    bytes first_payload;
    uint32_t reserved;
    uint16_t protocol_version;
    const char *line;
};

#define SHOULD_NOT "[CRIT] [ERROR] SHOULDNOT Enter, reserved:"

const unknown_case kUnknown[] = {
    {254, {1, 0x2B, 0xC3, 0x0D, 0xFF, 0x77}, 0x28, 10, SHOULD_NOT "40 protocol_version:10 01 2B C3 0D FF\n"},
    {3, {1, 2, 3, 4, 5}, 0, 0, SHOULD_NOT "0 protocol_version:0 01 02 03 04 05\n"},
    {255, {1, 2, 3, 4, 5}, 1, 255, SHOULD_NOT "1 protocol_version:255 01 02 03 04 05\n"},
    // Only the whole value counts.
    {256, {1, 2, 3, 4, 5}, 0, 1, SHOULD_NOT "0 protocol_version:1 01 02 03 04 05\n"},
    {257, {1, 2, 3, 4, 5}, 0, 1, SHOULD_NOT "0 protocol_version:1 01 02 03 04 05\n"},
    {0xFFFFFFFF, {1, 2, 3, 4, 5}, 0, 1, SHOULD_NOT "0 protocol_version:1 01 02 03 04 05\n"},
    // The word is printed as a signed number.
    {254, {1, 2, 3, 4, 5}, 0x7FFFFFFF, 65535, SHOULD_NOT "2147483647 protocol_version:65535 01 02 03 04 05\n"},
    {254, {1, 2, 3, 4, 5}, 0xFFFFFFFF, 9, SHOULD_NOT "-1 protocol_version:9 01 02 03 04 05\n"},
    {254, {1, 2, 3, 4, 5}, 0x80000000, 9, SHOULD_NOT "-2147483648 protocol_version:9 01 02 03 04 05\n"},
    // Absent bytes print 00.
    {254, {}, 0, 9, SHOULD_NOT "0 protocol_version:9 00 00 00 00 00\n"},
    {254, {0xA1}, 0, 9, SHOULD_NOT "0 protocol_version:9 A1 00 00 00 00\n"},
    {254, {0xA1, 0xA2}, 0, 9, SHOULD_NOT "0 protocol_version:9 A1 A2 00 00 00\n"},
    {254, {0xA1, 0xA2, 0xA3}, 0, 9, SHOULD_NOT "0 protocol_version:9 A1 A2 A3 00 00\n"},
    {254, {0xA1, 0xA2, 0xA3, 0xA4}, 0, 9, SHOULD_NOT "0 protocol_version:9 A1 A2 A3 A4 00\n"},
};

TEST(FrameRegroupUnknown, LogsTheFirstPacketOnceAndGivesNullAndNoSize)
{
    for (const unknown_case &row : kUnknown) {
        SCOPED_TRACE(::testing::Message() << row.packetizer << ": " << row.line);
        World world;
        PacketFrame source({row.first_payload, {0x55, 0x55, 0x55, 0x55, 0x55}});
        source.frame.reserved = row.reserved;
        source.frame.protocol_version = row.protocol_version;

        expect_null(0, regroup(&source.frame, row.packetizer));
        EXPECT_EQ((std::vector<log_line>{{RTC_LOG_CRIT, row.line}}), world.log);
        EXPECT_TRUE(world.depacketized.empty());
    }
}

TEST(FrameRegroupUnknown, PrintsZerosForAMissingFirstPacket)
{
    World world;
    PacketFrame source({{1, 2, 3, 4, 5}, {6}});
    source.lose(0);

    expect_null(0, regroup(&source.frame, PACKETIZER_TYPE_UNKNOWN));
    EXPECT_TRUE(world.has_logged(RTC_LOG_CRIT, SHOULD_NOT "0 protocol_version:10 00 00 00 00 00\n"));
}

// -- The log gate --

void expect_gated(int level, uint32_t packetizer, size_t size)
{
    for (const log_gate &gate : log_gates(level)) {
        SCOPED_TRACE(gate.name);
        World world;
        PacketFrame source({{1, 2}});
        gate.set(LM_MIN);

        expect_null(size, regroup(&source.frame, packetizer));
        EXPECT_EQ(gate.is_open ? 1u : 0u, world.log.size());
    }
}

TEST(FrameRegroupLog, MakesThePaddingErrorUnderTheFirstModuleAlone)
{
    expect_gated(RTC_LOG_ERROR, PACKETIZER_TYPE_GENERIC, kUntouched);
}

TEST(FrameRegroupLog, NamesTheUnknownPacketizerUnderTheFirstModuleAlone)
{
    expect_gated(RTC_LOG_CRIT, PACKETIZER_TYPE_UNKNOWN, 0);
}

// -- From packets to the bitstream --

TEST(FrameRegroup, JoinsWhatParsingFoundBehindTheHeaders)
{
    World world;
    PacketFrame source({rtp_bytes({}, {0xFE, 1, 2}), rtp_bytes({}, {0xFE, 3, 1}), rtp_bytes({}, {0xFE, 9, 9})});
    source.frame.n_pkts_media = 2;
    source.frame.codec = VIDEO_TYPE_GENERIC;
    video_frame parsed = {};
    ASSERT_EQ(0, video_frame_parse_payload(&source.frame, &parsed));
    size_t size = 0;
    uint8_t *data = video_frame_regroup_pkts(&parsed, PACKETIZER_TYPE_GENERIC, &size);

    ASSERT_NE(nullptr, data);
    EXPECT_EQ((bytes{1, 2, 3}), bytes(data, data + size));
    zeb_free_impl(data);
    zeb_free_impl(parsed.pkts);
}

} // namespace
