#include "arrival/packet_hold.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

struct held {
    packet_hold hold;

    held()
    {
        packet_hold_init(&hold);
    }
    ~held()
    {
        packet_hold_clear(&hold);
    }
    held(const held &) = delete;
    held &operator=(const held &) = delete;

    void add(uint32_t number, uint32_t timestamp = 0, bool is_key = false, zeb_ts_t since = 0)
    {
        held_packet packet = {};
        packet.number = number;
        packet.timestamp = timestamp;
        packet.held_since = since;
        packet.video.header.video_type = is_key ? 0x00 : 0x10;
        packet.video.payload.values = zeb_malloc_impl_dbg(4, __func__, __LINE__);
        packet.video.payload.count = packet.video.payload.allocated = 4;
        ASSERT_TRUE(packet_hold_add(&hold, &packet));
        EXPECT_EQ(packet.video.payload.values, nullptr);
    }

    // The numbers that `take` gives until there is none.
    template <typename Take> std::vector<uint32_t> numbers(Take take)
    {
        std::vector<uint32_t> all;
        for (held_packet *packet = take(); packet != nullptr; packet = take()) {
            all.push_back(packet->number);
            held_packet_free(packet);
        }
        return all;
    }
};

using numbers = std::vector<uint32_t>;

TEST(PacketHold, GivesPacketsBackInTheOrderOfTheirNumbersAcrossTheWrap)
{
    held in;
    for (const uint32_t number : {3u, 0xFFFFFFFEu, 1u, 0xFFFFFFFFu, 0u, 2u}) {
        in.add(number);
    }
    EXPECT_EQ(in.numbers([&] { return packet_hold_take_first(&in.hold); }),
              (numbers{0xFFFFFFFE, 0xFFFFFFFF, 0, 1, 2, 3}));
}

TEST(PacketHold, FindsTheFirstKeyPacketAndTheFirstOfItsFrame)
{
    held in;
    EXPECT_EQ(packet_hold_first_key(&in.hold), nullptr);
    in.add(9, 3000);
    in.add(12, 6000, true);
    in.add(11, 6000, true);
    in.add(10, 6000);
    ASSERT_NE(packet_hold_first_key(&in.hold), nullptr);
    EXPECT_EQ(packet_hold_first_key(&in.hold)->number, 11u);
    EXPECT_EQ(packet_hold_first_of(&in.hold, 6000)->number, 10u);
    EXPECT_EQ(packet_hold_first_of(&in.hold, 1), nullptr);
}

TEST(PacketHold, FindsTheKeyFrameBehindAnother)
{
    held in;
    in.add(10, 6000, true);
    in.add(11, 6000, true);
    in.add(12, 9000);
    EXPECT_EQ(packet_hold_next_key(&in.hold, packet_hold_first_key(&in.hold)), nullptr);
    in.add(13, 12000, true);
    in.add(14, 12000, true);
    const held_packet *next = packet_hold_next_key(&in.hold, packet_hold_first_key(&in.hold));
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(next->number, 13u);
    EXPECT_EQ(packet_hold_next_key(&in.hold, next), nullptr);
}

TEST(PacketHold, TakesOutWhatBelongsToAFrameOrComesBeforeIt)
{
    held in;
    in.add(9, 3000);
    in.add(10, 6000);
    in.add(11, 9000);
    in.add(12, 6000);
    EXPECT_EQ(in.numbers([&] { return packet_hold_take_up_to(&in.hold, 10, 6000); }), (numbers{9, 10, 12}));
    EXPECT_EQ(in.hold.packets.count, 1u);
}

TEST(PacketHold, TakesOutDeltaPackets)
{
    held in;
    in.add(1, 0, true);
    in.add(2);
    in.add(3, 0, true);
    EXPECT_EQ(in.numbers([&] { return packet_hold_take_delta(&in.hold); }), (numbers{2}));
}

TEST(PacketHold, EndsAWaitAfterItsPatience)
{
    held in;
    in.add(1, 0, false, 100);
    in.add(2, 0, false, 50);
    EXPECT_EQ(in.numbers([&] { return packet_hold_take_over(&in.hold, 249); }), (numbers{}));
    EXPECT_EQ(in.numbers([&] { return packet_hold_take_over(&in.hold, 250); }), (numbers{2}));
    EXPECT_EQ(in.numbers([&] { return packet_hold_take_over(&in.hold, 300); }), (numbers{1}));
}

TEST(PacketHold, EndsAWaitWhenTooManyAreHeld)
{
    held in;
    for (uint32_t i = 0; i < kPacketHoldMax; i++) {
        in.add(i);
    }
    EXPECT_EQ(in.numbers([&] { return packet_hold_take_over(&in.hold, 0); }), (numbers{0}));
}

} // namespace
