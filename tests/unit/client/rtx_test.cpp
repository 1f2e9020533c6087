#include "wire/rtx.h"

#include <gtest/gtest.h>

#include <random>

#include "exact_copy.h"
#include "hex_bytes.h"
#include "random_damage.h"
#include "wire/rtp.h"

namespace
{

constexpr uint8_t kPayloadType = 96;
constexpr uint32_t kSsrc = 0xA0B0C0D0;

struct restoring {
    rtx_result result;
    bytes packet;
};

restoring restore(const bytes &retransmission, size_t capacity)
{
    const exact_copy copy(retransmission);
    const std::unique_ptr<uint8_t[]> buffer(new uint8_t[capacity]);
    size_t size = 99;
    const rtx_result result = rtx_restore(copy.data(), copy.size(), kPayloadType, kSsrc, buffer.get(), capacity, &size);
    EXPECT_LE(size, capacity);
    return {result, bytes(buffer.get(), buffer.get() + size)};
}

restoring restore(const bytes &retransmission)
{
    return restore(retransmission, retransmission.size());
}

// Retransmission of number 0x4321 with payload type 97 and SSRC 0x0E0E0E0E.
const struct {
    const char *name;
    const char *retransmission;
    const char *original;
} kRestored[] = {
    {"Plain", "80 61 0001 01020304 0E0E0E0E 4321 AABBCC", "80 60 4321 01020304 A0B0C0D0 AABBCC"},
    {"Marker", "80 E1 0001 01020304 0E0E0E0E 4321 AABBCC", "80 E0 4321 01020304 A0B0C0D0 AABBCC"},
    {"Sources", "82 61 0001 01020304 0E0E0E0E 11111111 22222222 4321 AA",
     "82 60 4321 01020304 A0B0C0D0 11111111 22222222 AA"},
    {"HeaderExtension", "90 E1 0001 01020304 0E0E0E0E BEDE0001 10AA0000 4321 AA",
     "90 E0 4321 01020304 A0B0C0D0 BEDE0001 10AA0000 AA"},
    {"SourceAndHeaderExtension", "91 61 0001 01020304 0E0E0E0E 11111111 BEDE0000 4321 AA",
     "91 60 4321 01020304 A0B0C0D0 11111111 BEDE0000 AA"},
    {"PaddingIsDropped", "A0 61 0001 01020304 0E0E0E0E 4321 AABB 000003", "80 60 4321 01020304 A0B0C0D0 AABB"},
    {"PaddingBehindExtension", "B0 61 0001 01020304 0E0E0E0E BEDE0000 4321 AABB 01",
     "90 60 4321 01020304 A0B0C0D0 BEDE0000 AABB"},
    {"OriginalWithoutPayload", "80 61 0001 01020304 0E0E0E0E 4321", "80 60 4321 01020304 A0B0C0D0"},
};

TEST(RtxRestore, GivesBackTheOriginalPacket)
{
    for (const auto &row : kRestored) {
        SCOPED_TRACE(row.name);
        const restoring restored = restore(hex(row.retransmission));
        EXPECT_EQ(RTX_RESTORED, restored.result);
        EXPECT_EQ(hex(row.original), restored.packet);
    }
}

TEST(RtxRestore, WorksInPlace)
{
    for (const auto &row : kRestored) {
        SCOPED_TRACE(row.name);
        bytes packet = hex(row.retransmission);
        size_t size = 0;
        EXPECT_EQ(RTX_RESTORED,
                  rtx_restore(packet.data(), packet.size(), kPayloadType, kSsrc, packet.data(), packet.size(), &size));
        packet.resize(size);
        EXPECT_EQ(hex(row.original), packet);
    }
}

TEST(RtxRestore, NeedsRoomForTheOriginalAlone)
{
    for (const auto &row : kRestored) {
        SCOPED_TRACE(row.name);
        const size_t needed = hex(row.original).size();
        EXPECT_EQ(RTX_RESTORED, restore(hex(row.retransmission), needed).result);
        for (size_t capacity = 0; capacity < needed; capacity++) {
            const restoring restored = restore(hex(row.retransmission), capacity);
            EXPECT_EQ(RTX_NO_ROOM, restored.result);
            EXPECT_TRUE(restored.packet.empty());
        }
    }
}

TEST(RtxRestore, TellsWhatRepeatsNothing)
{
    const struct {
        const char *name;
        const char *retransmission;
        rtx_result result;
    } rows[] = {
        {"no payload", "80 61 0001 01020304 0E0E0E0E", RTX_TOO_SHORT},
        {"one byte", "80 61 0001 01020304 0E0E0E0E 43", RTX_TOO_SHORT},
        {"one byte and padding", "A0 61 0001 01020304 0E0E0E0E 43 0002", RTX_TOO_SHORT},
        {"padding alone", "A0 61 0001 01020304 0E0E0E0E 00000004", RTX_PADDING_ONLY},
        {"a byte of padding alone", "A0 61 0001 01020304 0E0E0E0E 01", RTX_PADDING_ONLY},
        {"padding alone behind an extension", "B0 61 0001 01020304 0E0E0E0E BEDE0000 0002", RTX_PADDING_ONLY},
        {"version 1", "40 61 0001 01020304 0E0E0E0E 4321 AA", RTX_NOT_RTP},
        {"padding into the header", "A0 61 0001 01020304 0E0E0E0E 4321 05", RTX_NOT_RTP},
        {"extension cut", "90 61 0001 01020304 0E0E0E0E BEDE0002 10AA0000", RTX_NOT_RTP},
    };
    for (const auto &row : rows) {
        const restoring restored = restore(hex(row.retransmission));
        EXPECT_EQ(row.result, restored.result) << row.name;
        EXPECT_TRUE(restored.packet.empty()) << row.name;
    }
}

TEST(RtxRestore, RefusesAPacketCutBeforeTheOriginalNumber)
{
    const bytes whole = hex("91 61 0001 01020304 0E0E0E0E 11111111 BEDE0001 10AA0000 4321 AA");
    for (size_t size = 0; size <= whole.size(); size++) {
        const bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        const rtx_result expected = size < 24 ? RTX_NOT_RTP : size < 26 ? RTX_TOO_SHORT : RTX_RESTORED;
        EXPECT_EQ(expected, restore(cut).result) << size << " bytes";
    }
}

// What comes out is a well-formed packet without padding that says what the retransmission said.
TEST(RtxRestore, KeepsWhatBothPacketsShareUnderRandomDamage)
{
    const bytes whole = hex("B1 E1 0001 01020304 0E0E0E0E 11111111 BEDE0001 10AA0000 4321 AABBCC 000003");
    std::mt19937 random(4588);
    int restored_count = 0;
    for (int round = 0; round < 100000; round++) {
        const bytes damaged = random_damage(whole, &random);
        const restoring restored = restore(damaged);
        if (restored.result != RTX_RESTORED) {
            ASSERT_TRUE(restored.packet.empty());
            continue;
        }
        restored_count++;
        rtp_view before = {};
        rtp_view after = {};
        ASSERT_EQ(PACKET_DROP_REASONS, rtp_parse(damaged.data(), damaged.size(), &before));
        ASSERT_EQ(PACKET_DROP_REASONS, rtp_parse(restored.packet.data(), restored.packet.size(), &after));
        ASSERT_EQ(before.marker, after.marker);
        ASSERT_EQ(before.timestamp, after.timestamp);
        ASSERT_EQ(before.header_size, after.header_size);
        ASSERT_EQ(before.payload_size, after.payload_size + 2);
        ASSERT_EQ(0u, after.padding_size);
        ASSERT_EQ(kPayloadType, after.payload_type);
        ASSERT_EQ(kSsrc, after.ssrc);
    }
    EXPECT_GT(restored_count, 1000);
}

} // namespace
