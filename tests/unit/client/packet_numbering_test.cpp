#include "arrival/packet_numbering.h"

#include <gtest/gtest.h>

namespace
{

// Around the wrap of 16 bits, and of 32.
class PacketNumbering : public testing::TestWithParam<uint32_t>
{
  protected:
    packet_numbering self = {};

    uint32_t outer(uint32_t offset) const
    {
        return GetParam() + offset;
    }
    uint32_t assign(uint32_t offset)
    {
        return packet_numbering_assign(&self, outer(offset)) - GetParam();
    }
    bool leave_out(uint32_t offset)
    {
        return packet_numbering_leave_out(&self, outer(offset));
    }
    uint32_t back(uint32_t inner) const
    {
        return packet_numbering_outer(&self, GetParam() + inner) - GetParam();
    }
};

INSTANTIATE_TEST_SUITE_P(From, PacketNumbering, testing::Values(0x10000u, 0x1FFFEu, 0xFFFFFFFEu, 0x7FFFFFFEu));

TEST_P(PacketNumbering, IsTheSendersWhileNothingIsLeftOut)
{
    EXPECT_EQ(assign(0), 0u);
    EXPECT_EQ(assign(5), 5u);
    EXPECT_EQ(back(5), 5u);
}

TEST_P(PacketNumbering, MovesUpBehindWhatIsLeftOut)
{
    assign(0);
    EXPECT_TRUE(leave_out(1));
    EXPECT_TRUE(leave_out(2));
    EXPECT_EQ(assign(3), 1u);
    EXPECT_TRUE(leave_out(4));
    EXPECT_EQ(assign(5), 2u);
    EXPECT_EQ(packet_numbering_inner(&self, outer(3)) - GetParam(), 1u) << "earlier numbers stay";
    for (const uint32_t number : {0u, 3u, 5u, 9u}) {
        EXPECT_EQ(back(packet_numbering_inner(&self, outer(number)) - GetParam()), number);
    }
}

TEST_P(PacketNumbering, KeepsTheNumberOfAHoleInFrontOfWhatIsLeftOut)
{
    assign(0);
    EXPECT_TRUE(leave_out(2));
    EXPECT_EQ(assign(3), 2u);
    EXPECT_EQ(assign(1), 1u);
}

TEST_P(PacketNumbering, LeavesNothingOutThatALaterNumberStandsBehind)
{
    assign(0);
    assign(3);
    EXPECT_FALSE(leave_out(2));
    EXPECT_FALSE(leave_out(3));
    EXPECT_TRUE(leave_out(4));
    EXPECT_FALSE(leave_out(2)) << "nor one that another is left out behind";
    EXPECT_FALSE(leave_out(4)) << "nor the same one twice";
    EXPECT_EQ(assign(5), 4u);
}

TEST_P(PacketNumbering, ForgetsTheOldestProbeWhenThereAreTooMany)
{
    for (uint32_t i = 0; i <= kNumberingRunsMax; i++) {
        EXPECT_EQ(assign(2 * i), i);
        EXPECT_TRUE(packet_numbering_reaches(&self, outer(0)));
        EXPECT_TRUE(leave_out(2 * i + 1) || i == kNumberingRunsMax);
    }
    EXPECT_FALSE(packet_numbering_reaches(&self, outer(1)));
    EXPECT_TRUE(packet_numbering_reaches(&self, outer(4)));
    EXPECT_EQ(packet_numbering_inner(&self, outer(6)) - GetParam(), 3u);
    EXPECT_EQ(back(3), 6u);
}

} // namespace
